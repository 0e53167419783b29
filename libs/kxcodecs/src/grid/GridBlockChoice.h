// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "grid/GridPrediction.h"
#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// A row of blocks while their predictors are sought.
struct PlanRow {
    const uint32_t* first = nullptr;  ///< of its first line that is predicted; the two lines before are there
    std::size_t stride = 0;
    const uint16_t* mask = nullptr;  ///< of that line, `groups` words to the next one
    std::size_t groups = 0;
    uint32_t lines = 0;  ///< up to 16
};

/// About the sums of what predictors leave behind an offset, block by block: `scores[k * groups + group]`.
/// \param lineStep  only every so many lines are tried
/// \param stored    per group: cells in the lines that were tried
void ScoreRow(const PlanRow& row, std::span<const Predictor> tried, uint32_t lineStep, uint32_t* scores,
              uint32_t* stored) noexcept;

/// How much is done for a block.
struct ChoiceEffort {
    uint32_t lineStep;  ///< every so many lines tell the predictor
    int offsetRounds;   ///< how often the offset is brought nearer to the middle of most differences
};
/// What is chosen for the blocks of a row.
struct RowChoice {
    uint8_t* predictors;
    uint32_t* offsets;
    uint16_t* counts;
};
/// Takes for each block the predictor that seems to leave the least, and an offset.
/// \param residuals  room for groups x 256 + 16 of them, in zigzag order, block by block, line by line
/// \return how many residuals there are
std::size_t ChooseRow(const PlanRow& row, std::span<const Predictor> tried, const ChoiceEffort& effort,
                      const RowChoice& out, uint32_t* residuals) noexcept;

}  // namespace kxcodecs::grid
