// SPDX-License-Identifier: MIT
// Writes the seeds of fuzz_recovery into a folder: small scan files, damaged in all the ways that matter.
#include <string>

#include "SeedFolder.h"
#include "kxio/QSNScanWriter.h"
#include "support/TinyScan.h"

namespace {

using namespace kxtest;

void Zero(Bytes& bytes, uint64_t first, uint64_t count) {
    for (uint64_t i = first; i < first + count; ++i)
        bytes.at(i) = 0;
}

Bytes WithoutGrid() {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    kxcodecs::SnappyChunkCodec codec;
    std::vector<float> values(6, 40.0F);
    for (const unsigned index : {0U, 2U}) {
        kxio::FlatPatchDescriptor patch(kxbase::Range, 4, kxio::RowMajor, 1.0, &codec);
        patch.data = reinterpret_cast<unsigned char*>(values.data());
        patch.size = values.size() - index;
        writer.AddPatch({&patch}, index);
    }
    Bytes jpeg;
    kxcodecs::JPEG::Encode(Bytes(192, 80).data(), 8, 8, 50, jpeg);
    writer.SetCompressedThumbnail(jpeg);
    writer.EndCreation();
    return stream.GetBytes();
}

}  // namespace

int main(int argc, char** argv) {
    const SeedFolder write(argc, argv);

    const Bytes tiny = TinyScan().Build();
    write("whole", tiny);
    const uint64_t chunksEnd = GetMainField(tiny, MainField::ChunkDataEnd);
    Bytes bytes(tiny.begin(), tiny.begin() + static_cast<std::ptrdiff_t>(chunksEnd));
    write("chunks-only", bytes);
    bytes.resize(bytes.size() - 20);
    write("cut-in-a-chunk", bytes);
    bytes = tiny;
    Zero(bytes, 0, 92);
    write("without-main-header", bytes);
    bytes = tiny;
    Zero(bytes, GetMainField(tiny, MainField::ScanHeader), 16);
    write("without-scan-header", bytes);
    bytes = tiny;
    Zero(bytes, 92, 8);
    write("damaged-tag", bytes);
    bytes = tiny;
    Zero(bytes, 92, 32);
    write("damaged-record", bytes);
    bytes = tiny;
    Zero(bytes, 92 + 32 + 30, 8);
    write("damaged-data", bytes);
    bytes = tiny;
    bytes.erase(bytes.begin() + 140, bytes.begin() + 150);
    write("bytes-removed", bytes);
    bytes = tiny;
    bytes.insert(bytes.end(), tiny.begin(), tiny.end());
    write("two-files", bytes);

    ScanFileBuilder outer(4, 3, 4, 3);
    Bytes padded = tiny;
    padded.resize((padded.size() + 11) / 12 * 12);
    kxcodecs::ZLibChunkCodec stored;
    stored.SetCompressionLevel(0);
    outer.Chunk(10, 0, 0, EncodedChunk(stored, padded, 4, 3));
    outer.Chunk(4, 0, 0, LiteralChunk(Bytes(12, 9), 4, 3));
    bytes = outer.Build();
    write("nested", bytes);
    Zero(bytes, 92, 32);
    write("nested-damaged", bytes);

    write("without-grid", WithoutGrid());
    return 0;
}
