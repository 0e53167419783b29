// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// How stored numbers become values. The numbers stand in files.
enum class ValueMap : uint8_t {
    Step = 0,   ///< value = base + step x number
    Ranks = 1,  ///< value = base + table[number]
};

/// The values of a chunk, taken apart: which cells stand for nothing, and small numbers for the others.
struct GridSource {
    VoidKind voidKind = VoidKind::None;
    std::vector<uint64_t> voids;  ///< none, one, or one per row or column of the image
    ValueMap map = ValueMap::Step;
    uint64_t base = 0;
    uint32_t step = 1;
    std::vector<uint32_t> table;   ///< ascending; of `Ranks` only
    std::vector<uint32_t> codes;   ///< the number of each cell, row by row; 0 in cells that are not stored
    std::vector<uint8_t> present;  ///< 1: the cell is stored
    std::size_t presentCount = 0;
};

/// Takes width x height elements of 1, 2, 4 or 8 bytes (little-endian integers) apart. False when the values
/// of 8 bytes lie too far apart for numbers of 32 bits.
/// \param ranks  a table of ranks is made where it seems to help
bool TakeApart(std::span<const unsigned char> bytes, uint32_t width, uint32_t height, bool ranks,
               GridSource& out);

}  // namespace kxcodecs::grid
