// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "grid/GridTypes.h"
#include "grid/GridVoids.h"

namespace kxcodecs::grid {

/// How stored numbers become values. The numbers stand in files.
enum class ValueMap : uint8_t {
    Step = 0,   ///< value = base + step x number
    Ranks = 1,  ///< value = base + table[number]
};

/// The values of a chunk, taken apart: which cells stand for nothing, and small numbers for the others.
struct GridSource {
    uint32_t width = 0;
    uint32_t height = 0;
    VoidKind voidKind = VoidKind::None;
    std::vector<uint64_t> voids;  ///< none, one, or one per row or column of the image
    uint64_t base = 0;
    uint32_t step = 1;
    std::size_t presentCount = 0;
    VoidsFound found;             ///< its `stored`: the mask, row by row
    LineVector<uint32_t> codes;   ///< numbers by step, as a `RawImage`, 0 in cells that are not
                                  ///< stored; rows up to a multiple of 16 are there
    std::vector<uint32_t> table;  ///< ascending; empty where ranks would not pay for it
    LineVector<uint32_t> ranks;   ///< numbers by rank, where there is a table
    double tableBits = 0;         ///< about what the table takes

    bool IsStored(std::size_t x, std::size_t y) const {
        return (found.stored[y * ((width + kBlock - 1) / kBlock) + x / kBlock] >> (x % kBlock)) & 1;
    }
    std::size_t At(std::size_t x, std::size_t y) const {
        return y * ((width + kBlock - 1) / kBlock * kBlock) + x;
    }
};

/// Takes width x height elements of 1, 2, 4 or 8 bytes (little-endian integers) apart. False when the values
/// of 8 bytes lie too far apart for numbers of 32 bits.
/// \param ranks  whether ranks are looked for too
bool TakeApart(std::span<const unsigned char> bytes, uint32_t width, uint32_t height, bool ranks,
               GridSource& out);

}  // namespace kxcodecs::grid
