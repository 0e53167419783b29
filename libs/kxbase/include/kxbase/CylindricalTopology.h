// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kxbase {

/// The writer's alternative description of a grid, without angles.
struct CylindricalTopology {
    uint32_t patchWidth = 0;   ///< columns per patch
    uint32_t patchHeight = 0;  ///< rows per patch
    uint32_t width = 0;        ///< columns
    uint32_t height = 0;       ///< rows; 0 when not known yet
    double previewFactor = 0;  ///< previews get up to about 2^20 x this many pixels; 0 means 2
};

}  // namespace kxbase
