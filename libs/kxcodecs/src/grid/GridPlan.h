// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "grid/GridPlane.h"
#include "grid/GridSource.h"
#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// What the encoder decided for each block, and the residuals that are left.
struct GridPlan {
    Shape shape;
    ValueMap map = ValueMap::Step;
    Plane plane;                      ///< the lines; its mask belongs to the chunk
    std::vector<uint32_t> firstLine;  ///< codes of line 0
    std::vector<uint8_t> predictors;  ///< per block, block row by block row
    std::vector<uint32_t> offsets;    ///< per block: added to each prediction
    std::vector<uint16_t> counts;     ///< per block: stored cells behind line 0
    LineVector<uint32_t> residuals;   ///< zigzag; block by block, in each line by line; 16 more behind
};

/// Chooses the axis, the value map and, for each block, the predictor. `source` must outlive the plan.
/// \param quick  tries fewer predictors on fewer lines
/// \param ranks  numbers by rank may be taken where the source has them
void MakePlan(const GridSource& source, bool quick, bool ranks, GridPlan& out);

}  // namespace kxcodecs::grid
