// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "grid/GridPlan.h"

namespace kxcodecs::grid {

/// Residuals parted: residual = (token + more) x 2^exponent + low bits; more is 0 but for exceptions, and
/// tokens are 0 where a chunk has none.
struct GridResiduals {
    std::vector<uint8_t> exponents;        ///< per block
    std::vector<uint8_t> exceptionCounts;  ///< per block
    std::vector<uint8_t> exceptionPlaces;  ///< among the stored cells of their block
    std::vector<uint32_t> exceptionMore;   ///< of each exception
    std::vector<uint8_t> tokens;           ///< one per stored cell, 16 more behind; empty without tokens
    std::size_t tokenCount = 0;
    std::vector<uint16_t> low;                 ///< low bits of all blocks, exponent by exponent
    std::size_t lowStarts[kMostExponent + 2];  ///< where those of each exponent from 1 on begin

    std::span<const uint16_t> LowOf(uint32_t exponent) const {
        return {low.data() + lowStarts[exponent], lowStarts[exponent + 1] - lowStarts[exponent]};
    }
};

/// False when a block has more exceptions than its count can tell: the chunk is not made for this codec.
bool PartResiduals(const GridPlan& plan, bool withTokens, GridResiduals& out);

}  // namespace kxcodecs::grid
