// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>

#include "kxbase/GridTopology.h"

namespace kxio {

/// A patch position together with the grid as it was when the position was checked.
struct PatchPlace {
    kxbase::GridTopology grid;
    uint32_t row = 0;
    uint32_t column = 0;
    uint32_t index = 0;  ///< linear patch index

    /// Grid columns from the patch's first one to the grid's edge; 0 when it lies behind the edge.
    uint64_t ColumnsLeft() const { return Left(grid.columns, column, grid.patchWidth); }
    /// Grid rows likewise.
    uint64_t RowsLeft() const { return Left(grid.rows, row, grid.patchHeight); }

private:
    static uint64_t Left(uint32_t total, uint32_t patch, uint32_t size) {
        return total - std::min<uint64_t>(total, uint64_t{patch} * size);
    }
};

}  // namespace kxio
