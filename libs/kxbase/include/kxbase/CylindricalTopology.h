// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kxbase {

/// The writer's alternative description of a grid, without angles.
struct CylindricalTopology {
    uint32_t patchWidth = 0;
    uint32_t patchHeight = 0;
    uint32_t width = 0;   ///< columns
    uint32_t height = 0;  ///< rows; 0 when not known yet
    double previewFactor = 0;
};

}  // namespace kxbase
