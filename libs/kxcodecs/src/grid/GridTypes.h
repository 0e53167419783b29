// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <span>
#include <vector>

#include "kxcodecs/ChunkHeader.h"

// What the stages of the grid codec share. The stages, in the order of encoding: voids (GridVoids), value map
// (GridSource), lines (GridPlane), prediction (GridPlan, GridBlockChoice), residuals and exponents
// (GridResiduals), packing (GridPacking); GridPayload puts them together and holds the layout. Back again:
// GridPayload, GridPacking, GridBlockRow for the lines, GridStore for the values; GridDecode puts them
// together.

namespace kxcodecs::grid {

/// Memory that begins with a cache line: vectors of that size then never lie in two of them.
template <class T>
struct CacheLineAllocator {
    using value_type = T;
    static constexpr std::align_val_t kAlignment{64};
    CacheLineAllocator() = default;
    template <class U>
    explicit CacheLineAllocator(const CacheLineAllocator<U>& /*other*/) {}
    T* allocate(std::size_t count) {
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(::operator new(count * sizeof(T), kAlignment));
    }
    void deallocate(T* memory, std::size_t /*count*/) noexcept { ::operator delete(memory, kAlignment); }
    template <class U>
    bool operator==(const CacheLineAllocator<U>& /*other*/) const {
        return true;
    }
};
template <class T>
using LineVector = std::vector<T, CacheLineAllocator<T>>;

/// Side of a block: 16 lines of 16 cells share a predictor, an offset and an exponent.
constexpr uint32_t kBlock = 16;
/// Cells of a block.
constexpr uint32_t kBlockCells = kBlock * kBlock;
/// Cells that each line continues beyond its ends, so that a predictor may look there.
constexpr uint32_t kApron = 16;
/// No exponent is greater: the low bits of a residual lie in 16-bit lanes.
constexpr uint32_t kMostExponent = 16;
/// A token is a byte; what goes beyond its greatest value is an exception.
constexpr uint32_t kMostToken = 255;

/// How lines lie in the image.
enum class Axis : uint8_t { Rows = 0, Columns = 1 };

/// What stands in cells that are not stored.
enum class VoidKind : uint8_t {
    None = 0,       ///< all cells are stored
    Constant = 1,   ///< one value
    PerRow = 2,     ///< one value for each row of the image
    PerColumn = 3,  ///< one value for each column of the image
};

/// Sizes that follow from a chunk's header and its axis.
struct Shape {
    uint32_t width = 0;   ///< of the image, in elements
    uint32_t height = 0;  ///< of the image
    Axis axis = Axis::Rows;

    uint32_t Lines() const { return axis == Axis::Rows ? height : width; }
    uint32_t LineCells() const { return axis == Axis::Rows ? width : height; }
    /// Groups of 16 cells per line, the last one filled up with cells that are not stored.
    uint32_t Groups() const { return (LineCells() + kBlock - 1) / kBlock; }
    uint32_t BlockRows() const { return (Lines() + kBlock - 1) / kBlock; }
    std::size_t Blocks() const { return std::size_t{Groups()} * BlockRows(); }
    std::size_t MaskWords() const { return std::size_t{Groups()} * Lines(); }
    /// From the start of a line to that of the next one in memory.
    std::size_t Stride() const { return std::size_t{Groups()} * kBlock + 2 * kApron; }
    std::size_t Cells() const { return std::size_t{width} * height; }
};

/// Zigzag order: 0, -1, 1, -2, 2, ... become 0, 1, 2, 3, 4, ...
inline uint32_t Zigzag(uint32_t value) {
    return (value << 1) ^ (0U - (value >> 31));
}
/// The way back.
inline uint32_t UndoZigzag(uint32_t value) {
    return (value >> 1) ^ (0U - (value & 1));
}

}  // namespace kxcodecs::grid
