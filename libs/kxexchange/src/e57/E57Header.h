// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "E57Pages.h"

namespace kxexchange {

// The first 48 bytes of an E57 file, little-endian.
//   @0  8 bytes "ASTM-E57"
//   @8  u32 major version      1
//   @12 u32 minor version      0
//   @16 u64 physical length    bytes of the file
//   @24 u64 XML offset         physical
//   @32 u64 XML length         bytes of content
//   @40 u64 page size          1024
struct E57Header {
    static constexpr size_t kBytes = 48;
    uint32_t major = 1;
    uint32_t minor = 0;
    uint64_t physicalLength = 0;
    uint64_t xmlOffset = 0;  ///< physical
    uint64_t xmlLength = 0;

    std::array<unsigned char, kBytes> Encode() const;
};

/// True when the bytes begin as an E57 file does.
bool LooksLikeE57(std::span<const unsigned char> bytes);

/// Reads and checks the header: signature, version 1.x, page size, and that the file is as long as it
/// says and holds the XML.
/// \throws SourceFormatException
E57Header ReadE57Header(E57PageReader& pages, kxbase::IInFileStream& stream);

}  // namespace kxexchange
