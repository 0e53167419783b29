// SPDX-License-Identifier: MIT
#include "E57Header.h"

#include <algorithm>

#include "E57Error.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"

namespace kxexchange {

namespace {

constexpr std::array<unsigned char, 8> kSignature{'A', 'S', 'T', 'M', '-', 'E', '5', '7'};
constexpr uint32_t kMajor = 1;

}  // namespace

bool LooksLikeE57(std::span<const unsigned char> bytes) {
    return bytes.size() >= kSignature.size() &&
           std::equal(kSignature.begin(), kSignature.end(), bytes.begin());
}

std::array<unsigned char, E57Header::kBytes> E57Header::Encode() const {
    std::array<unsigned char, kBytes> bytes{};
    kxbase::ByteWriter out(bytes);
    out.Bytes(kSignature);
    out.U32(major);
    out.U32(minor);
    out.U64(physicalLength);
    out.U64(xmlOffset);
    out.U64(xmlLength);
    out.U64(kE57PageBytes);
    return bytes;
}

E57Header ReadE57Header(E57PageReader& pages, kxbase::IInFileStream& stream) {
    const auto fail = [&](const char* field, uint64_t offset, const std::string& detail) {
        FailE57({pages.Name(), "header", field, offset, detail});
    };
    // Unchecked first: another kind of file shall not be called a damaged page.
    std::array<unsigned char, E57Header::kBytes> bytes{};
    const uint64_t got = stream.Seek(0) ? stream.Read(bytes.data(), bytes.size()) : 0;
    if (!LooksLikeE57(std::span(bytes).first(static_cast<size_t>(got)))) {
        fail("signature", 0, "the file does not begin with ASTM-E57");
    }
    if (got < bytes.size()) {
        fail("", got, "the file ends after " + std::to_string(got) + " bytes, expected at least 48");
    }
    kxbase::ByteReader in(bytes, 0, "header");
    in.Skip(kSignature.size(), "signature");
    E57Header header;
    header.major = in.U32("major version");
    header.minor = in.U32("minor version");
    header.physicalLength = in.U64("physical length");
    header.xmlOffset = in.U64("XML offset");
    header.xmlLength = in.U64("XML length");
    const uint64_t pageSize = in.U64("page size");
    if (pageSize != kE57PageBytes) {
        fail("page size", 40, "found " + std::to_string(pageSize) + ", expected 1024");
    }
    pages.Read(0, bytes, "header");  // the checksum

    if (header.major != kMajor) {
        fail("major version", 8,
             "found version " + std::to_string(header.major) + "." + std::to_string(header.minor) +
                 ", expected 1.x");
    }
    if (header.physicalLength % kE57PageBytes != 0 || header.physicalLength > pages.FileBytes()) {
        fail("physical length", 16,
             "found " + std::to_string(header.physicalLength) + ", the file has " +
                 std::to_string(pages.FileBytes()) + " bytes" +
                 (header.physicalLength > pages.FileBytes() ? ": it was cut" : ", expected whole pages"));
    }
    const auto xml = E57Logical(header.xmlOffset);
    const uint64_t content = header.physicalLength / kE57PageBytes * kE57PageContent;
    if (!xml || *xml < E57Header::kBytes || *xml > content || header.xmlLength > content - *xml) {
        fail("XML offset", 24,
             "found " + std::to_string(header.xmlLength) + " bytes at " + std::to_string(header.xmlOffset) +
                 ", expected them inside the file");
    }
    return header;
}

}  // namespace kxexchange
