// SPDX-License-Identifier: MIT
#include "E57Images.h"

#include <array>

#include "E57Error.h"
#include "E57Scan.h"
#include "kxbase/ByteReader.h"

namespace kxexchange {

namespace {

struct Representation {
    const char* name;
    ImageDescription::Role role;
};
constexpr std::array kRepresentations{
    Representation{"visualReferenceRepresentation", ImageDescription::Role::VisualReference},
    Representation{"pinholeRepresentation", ImageDescription::Role::Pinhole},
    Representation{"sphericalRepresentation", ImageDescription::Role::Spherical},
    Representation{"cylindricalRepresentation", ImageDescription::Role::Cylindrical},
};

uint64_t PixelsOf(const E57Node& node, const char* name) {
    const E57Node* const child = node.Find(name);
    return child && child->type == E57Node::Type::Integer && child->integer > 0
               ? static_cast<uint64_t>(child->integer)
               : 0;
}

}  // namespace

std::vector<unsigned char> ReadE57Blob(E57PageReader& pages, const E57Node& blob, const std::string& where) {
    const auto fail = [&](const char* field, const std::string& detail) {
        FailE57({pages.Name(), where, field, blob.fileOffset, detail});
    };
    const auto start = E57Logical(blob.fileOffset);
    const uint64_t all = pages.LogicalBytes();
    if (!start || *start >= all) fail("fileOffset", "expected a place inside the file that is no checksum");
    std::array<unsigned char, kE57BlobHeaderBytes> header{};
    pages.Read(*start, header, where);
    kxbase::ByteReader in(header, blob.fileOffset, where);
    const unsigned id = in.U8("section id");
    in.Skip(7, "reserved");
    const uint64_t length = in.U64("section length");
    if (id != 0) fail("section id", "found " + std::to_string(id) + ", expected 0");
    if (length < kE57BlobHeaderBytes || length > all - *start || blob.count > length - kE57BlobHeaderBytes) {
        fail("section length", "found " + std::to_string(length) + " for a blob of " +
                                   std::to_string(blob.count) + " bytes, the file has " +
                                   std::to_string(all - *start) + " bytes of content from there");
    }
    std::vector<unsigned char> bytes(static_cast<size_t>(blob.count));
    pages.Read(*start + kE57BlobHeaderBytes, bytes, where);
    return bytes;
}

std::vector<ImageDescription> DescribeE57Images(const E57Document& document, E57PageReader& pages,
                                                const std::string& guid, bool alone,
                                                std::vector<UnheldFact>& unheld) {
    std::vector<ImageDescription> images;
    size_t number = 0;
    for (const E57Node& node : E57Children(document, "images2D")) {
        const std::string where = "image " + std::to_string(++number);
        const E57Node* const owner = node.Find("associatedData3DGuid");
        const bool named = owner && !owner->text.empty();
        if (named ? owner->text != guid : !alone) continue;
        const E57Node* const name = node.Find("name");
        for (const Representation& kind : kRepresentations) {
            const E57Node* const shown = node.Find(kind.name);
            if (!shown) continue;
            const E57Node* const jpeg = shown->Find("jpegImage");
            const E57Node* const png = shown->Find("pngImage");
            const E57Node* const blob = jpeg ? jpeg : png;
            if (!blob || blob->type != E57Node::Type::Blob) {
                unheld.push_back({where, "holds neither JPEG nor PNG"});
                continue;
            }
            ImageDescription image;
            if (name) image.name = name->text;
            image.encoding = jpeg ? ImageDescription::Encoding::Jpeg : ImageDescription::Encoding::Png;
            image.role = kind.role;
            image.width = PixelsOf(*shown, "imageWidth");
            image.height = PixelsOf(*shown, "imageHeight");
            image.byteCount = blob->count;
            image.load = [&pages, blob, where] { return ReadE57Blob(pages, *blob, where); };
            images.push_back(std::move(image));
            if (shown->Find("imageMask")) unheld.push_back({where, "its mask"});
        }
        if (node.Find("pose")) unheld.push_back({where, "its pose"});
    }
    return images;
}

}  // namespace kxexchange
