// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "LineFit.h"
#include "kxexchange/GridLayout.h"

namespace kxexchange {

/// Where the rows of a sweep lie that passes over the zenith or the nadir.
struct FoldedRows {
    std::vector<RowSegment> segments;
    uint64_t gridRows = 0;
};

/// Cuts a sweep where it passes over the vertical axis.
///
/// \param sweep      for each row its angle in the columns' planes, from the zenith, any turn; it should grow
///                   along the rows. Even multiples of pi are the zenith, odd ones the nadir.
/// \param agreement  0..1: how well the columns agree on these angles
/// \return nothing when the sweep stays on one side (but for a few rows), goes round more than once, or is
///         no sweep at all
std::optional<FoldedRows> FoldSweep(std::vector<Sample> sweep, double agreement);

}  // namespace kxexchange
