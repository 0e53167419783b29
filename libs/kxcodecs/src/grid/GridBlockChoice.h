// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "grid/GridPrediction.h"
#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// One block while its predictor is sought.
struct PlanBlock {
    const uint32_t* first = nullptr;  ///< of its first line that is predicted; the two lines before are there
    std::size_t stride = 0;
    uint32_t lines = 0;
    uint32_t stored = 0;
    uint32_t lanes[kBlockCells];        ///< all bits set: the cell is stored
    uint32_t differences[kBlockCells];  ///< to the prediction; 0 in cells that are not stored
};

/// Sets `lanes` and `stored` from the masks of the lines, `maskStep` apart.
void TakeMask(const uint16_t* mask, std::size_t maskStep, PlanBlock& block) noexcept;

/// The predictor that leaves the least behind an offset, and its differences in `block`.
/// \param lineStep  only every so many lines are tried
/// \param score     about the sum of what it leaves in those lines
Predictor BestPredictor(std::span<const Predictor> tried, uint32_t lineStep, PlanBlock& block,
                        uint64_t& score) noexcept;

}  // namespace kxcodecs::grid
