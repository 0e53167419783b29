// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// Signed numbers of 32 bits, row by row. Each row is filled up to whole groups of 16; a group behind the
/// last row is readable.
struct RawImage {
    const uint32_t* cells;
    uint32_t width;
    uint32_t height;

    std::size_t Groups() const { return (std::size_t{width} + kBlock - 1) / kBlock; }
    std::size_t Stride() const { return Groups() * kBlock; }
    /// The bits of the last group of a row that are cells.
    uint16_t LastWord() const {
        return static_cast<uint16_t>(width % kBlock == 0 ? 0xFFFFU : (1U << (width % kBlock)) - 1);
    }
};

/// Which cells of an image stand for "nothing came back".
struct VoidsFound {
    VoidKind kind = VoidKind::None;
    std::vector<uint32_t> values;  ///< none, one, or one for each row or column
    std::vector<uint16_t> stored;  ///< per row and group: bit i: cell i is not void
};

/// Looks for them: a value that stands in long runs, or one for each row or column.
void FindVoids(const RawImage& image, VoidsFound& out);
/// All cells that are `value` are void.
void TakeVoid(const RawImage& image, uint32_t value, VoidsFound& out);

}  // namespace kxcodecs::grid
