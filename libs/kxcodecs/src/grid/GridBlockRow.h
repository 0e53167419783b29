// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// Where the parts of one block lie.
struct BlockInput {
    const uint16_t* low;    ///< low bits of its stored cells
    const uint8_t* tokens;  ///< their tokens; null: all 0
    uint32_t offset;
    uint16_t stored;  ///< how many
    uint8_t exponent;
    uint8_t predictor;
    uint16_t exceptions;
    const uint8_t* places;  ///< of the exceptions
    const uint32_t* more;
};

/// What takes lines as soon as they are decoded, while the next ones are: what it writes to memory has time
/// to get there.
class LineSink {
public:
    virtual ~LineSink() = default;
    /// \param mask  the words of the line
    /// \param line  its place, counted from the first one of the chunk
    virtual void Put(const uint32_t* numbers, const uint16_t* mask, uint32_t line) noexcept = 0;
};

/// A row of blocks while it is decoded.
struct BlockRow {
    const BlockInput* blocks;  ///< one per group
    uint32_t groups;
    const uint16_t* mask;  ///< of its first line
    uint32_t* line;        ///< its first line; the two lines before are there. It begins with a cache line
    std::size_t stride;    ///< to the next line, a multiple of 16
    uint32_t lines;        ///< from 0 to 16
    uint32_t firstLine;    ///< the place of its first line
    LineSink* sink;
    uint32_t* residuals;    ///< room for groups x 256 + 256
    const uint32_t** next;  ///< room for one per group
    uint32_t* order;        ///< room for one per group
    uint32_t* sums;         ///< room for 16 per group
};

/// Counts the stored cells of each block of a row, given the masks of its lines, at most 16.
void CountBlockRow(const uint16_t* mask, std::size_t groups, uint32_t lines, uint16_t* counts) noexcept;

/// Fills the lines of a block row, aprons included, and hands them over. `low` and `tokens` of each block are
/// readable for 256 cells. False when an exception is none of a stored cell.
bool DecodeBlockRow(const BlockRow& row) noexcept;

}  // namespace kxcodecs::grid
