// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "grid/GridSource.h"
#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// What the encoder decided for each block, and the residuals that are left.
struct GridPlan {
    Shape shape;
    std::vector<uint16_t> mask;       ///< per line and group: bit i set: cell i is stored
    std::vector<uint32_t> firstLine;  ///< codes of line 0
    std::vector<uint8_t> predictors;  ///< per block, block row by block row
    std::vector<uint32_t> offsets;    ///< per block: added to each prediction
    std::vector<uint16_t> counts;     ///< per block: stored cells behind line 0
    std::vector<uint32_t> residuals;  ///< zigzag; block by block, in each line by line
};

/// Chooses the axis and, for each block, the predictor.
/// \param quick  tries fewer predictors on fewer lines
void MakePlan(const GridSource& source, uint32_t width, uint32_t height, bool quick, GridPlan& out);

}  // namespace kxcodecs::grid
