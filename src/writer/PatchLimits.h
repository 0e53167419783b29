// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "kxio/MinMaxHeader.h"
#include "writer/PatchPlace.h"

namespace kxio {

/// What a range patch adds to the limits and to the point count.
struct PatchLimits {
    MinMaxPair pair{0.0F, 0.0F};  ///< over all values above 0, also those beyond the grid; (0, 0) without any
    uint64_t points = 0;          ///< values above 0 inside the grid
};

/// Where a value must lie to be counted as a point.
enum class CountedValues { InsideGrid, All };

/// \param floats      32-bit floats in native byte order; no alignment needed
/// \param transposed  the values lie column after column
PatchLimits MeasurePatch(std::span<const unsigned char> floats, const PatchPlace& place, bool transposed,
                         CountedValues counted);

}  // namespace kxio
