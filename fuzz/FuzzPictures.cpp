// SPDX-License-Identifier: MIT
// Thumbnail and previews. The first byte picks where the rest goes in a small file: 0 the JPEG bytes of the
// thumbnail, 1 the chunk of a preview (the next byte its component), 2 the whole thumbnail record, 3 a
// thumbnail for a writer, 4 a preview for a writer.
#include "FuzzCheck.h"
#include "kxbase/Exceptions.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "kxio/ScanAccess.h"
#include "support/TinyScan.h"

namespace {

using kxtest::Bytes;

void Look(kxbase::IInFileStream& stream) {
    unsigned width = 0;
    unsigned height = 0;
    Bytes bytes;
    const bool found = kxio::QSNScanReader::GetThumbnailRGB(&stream, bytes, width, height);
    Require(bytes.size() == uint64_t{3} * width * height, "three bytes per pixel");
    Require(found || (width == 100 && height == 100 && bytes[0] == 40), "else the grey placeholder");
    Require(kxio::QSNScanReader::GetThumbnailJPEG(&stream, bytes) || bytes.empty(),
            "no bytes without a thumbnail");
    try {
        const kxio::QSNScanReader reader(&stream);
        const kxio::ScanAccess access(reader);
        for (const kxbase::ComponentType component : reader.GetAvailablePreviews()) {
            try {
                reader.GetCompressedPreview(bytes, component);
                const uint32_t elementBytes = access.ElementBytes(component);
                const auto image = access.ReadPreviewBytes(component, elementBytes);
                Require(image.values.size() == uint64_t{image.width} * image.height * elementBytes,
                        "a preview has the size that it says");
            } catch (const kxbase::KXException&) {
                continue;  // it cannot be decoded
            }
        }
        std::vector<kxbase::tXYZLuminance8Point> points;
        reader.Get3DPreview(points, true);
    } catch (const kxbase::KXException&) {
        return;  // it does not open, or has no three previews
    }
}

void Write(const Bytes& bytes, bool preview, kxbase::ComponentType component) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::GridTopology grid;
    grid.columns = grid.rows = grid.patchWidth = grid.patchHeight = 2;
    writer.CreateNew(&stream, grid);
    kxcodecs::ZLibChunkCodec codec;
    std::vector<float> ranges(4, 1000.0F);
    kxio::FlatPatchDescriptor range(kxbase::Range, 4, kxio::RowMajor, 0.1, &codec);
    range.data = reinterpret_cast<unsigned char*>(ranges.data());
    range.size = ranges.size();
    writer.AddPatch({&range}, 0);
    try {
        Bytes copy = bytes;
        if (preview) {
            writer.SetCompressedPreview(copy.data(), copy.size(), component);
        } else {
            writer.SetCompressedThumbnail(copy);
        }
    } catch (const kxbase::KXBadInputException&) {
        Require(!preview, "only a thumbnail has to be an image");
    }
    writer.EndCreation();
    Look(stream);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const auto component = static_cast<kxbase::ComponentType>(1 + data[1] % 19);
    const Bytes bytes(data + 2, data + size);
    const unsigned kind = data[0] % 5;
    if (kind >= 3) {
        Write(bytes, kind == 4, component);
        return 0;
    }
    kxtest::ScanFileBuilder file = kxtest::TinyScan();
    if (kind == 0) file.Thumbnail(bytes, 8, 8);
    if (kind == 1) file.Preview(component, bytes);
    Bytes built = file.Build();
    if (kind == 2) {
        kxtest::SetMainField(built, kxtest::MainField::Thumbnail, built.size());
        built.insert(built.end(), bytes.begin(), bytes.end());
    }
    kxbase::InMemoryStream stream(built);
    Look(stream);
    return 0;
}
