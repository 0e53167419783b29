// SPDX-License-Identifier: MIT
// A scan that is small and has what an import looks at.
#pragma once

#include <string>
#include <vector>

#include "TestTools.h"

namespace kxexchange::testing {

/// 40 x 30 cells, with a third of them missing or none.
inline std::vector<Cell> SmallSweepCells(bool holes = true) {
    Sweep sweep;
    sweep.columns = 40;
    sweep.rows = 30;
    sweep.azimuthStep = -0.01;
    sweep.angleStep = -0.01;
    sweep.missing = holes ? 0.3 : 0;
    return MakeSweep(sweep);
}

/// The same as text.
inline std::string SmallText(bool color = true) {
    return PtxText(SmallSweepCells(), 40, 30, color);
}

}  // namespace kxexchange::testing
