// SPDX-License-Identifier: MIT
#include "writer/PatchLimits.h"

#include <bit>
#include <cstring>

namespace kxio {

namespace {

// Positive floats are ordered as their bits are, read as unsigned integers: 1 is the smallest above zero,
// kInfinity the largest, zero, negative values and NaN lie outside. Integers let the loop run on vectors.
constexpr uint32_t kInfinity = 0x7f800000;
constexpr uint32_t kLargestFinite = 0x7f7fffff;

struct Extremes {
    uint32_t low = kLargestFinite;
    uint32_t high = 0;
};

// Takes `count` values into the extremes; returns how many are above 0.
uint64_t TakeRun(const unsigned char* values, uint64_t count, Extremes& extremes) {
    uint32_t low = extremes.low;
    uint32_t high = extremes.high;
    uint64_t points = 0;
    for (uint64_t i = 0; i < count; ++i) {
        uint32_t bits = 0;
        std::memcpy(&bits, values + 4 * i, 4);
        const bool isPoint = bits - 1 < kInfinity;
        const uint32_t below = isPoint ? bits : kLargestFinite;
        const uint32_t above = isPoint ? bits : 0;
        low = below < low ? below : low;
        high = above > high ? above : high;
        points += isPoint ? 1 : 0;
    }
    extremes.low = low;
    extremes.high = high;
    return points;
}

}  // namespace

PatchLimits MeasurePatch(std::span<const unsigned char> floats, const PatchPlace& place, bool transposed,
                         CountedValues counted) {
    const unsigned char* values = floats.data();
    const uint64_t count = floats.size() / 4;
    Extremes extremes;
    PatchLimits result;
    if (counted == CountedValues::All) {
        result.points = TakeRun(values, count, extremes);
    } else {
        // A line holds patchWidth values in either order; only what the line and the place in it mean
        // differs.
        const uint64_t lineLength = std::max(1U, place.grid.patchWidth);
        const uint64_t linesInside = transposed ? place.ColumnsLeft() : place.RowsLeft();
        const uint64_t placesInside = transposed ? place.RowsLeft() : place.ColumnsLeft();
        for (uint64_t first = 0, line = 0; first < count; first += lineLength, ++line) {
            const uint64_t length = std::min(lineLength, count - first);
            const uint64_t inside = line < linesInside ? std::min(length, placesInside) : 0;
            result.points += TakeRun(values + 4 * first, inside, extremes);
            TakeRun(values + 4 * (first + inside), length - inside, extremes);
        }
    }
    if (extremes.high != 0) {
        result.pair = {std::bit_cast<float>(extremes.low), std::bit_cast<float>(extremes.high)};
    }
    return result;
}

}  // namespace kxio
