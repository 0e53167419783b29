// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "grid/GridPlan.h"

namespace kxcodecs::grid {

/// Residuals parted: residual = (token + more) x 2^exponent + low bits; more is 0 but for exceptions, and
/// tokens are 0 where a chunk has none.
struct GridResiduals {
    std::vector<uint8_t> exponents;                ///< per block
    std::vector<uint8_t> exceptionCounts;          ///< per block
    std::vector<uint8_t> exceptionPlaces;          ///< among the stored cells of their block
    std::vector<uint32_t> exceptionMore;           ///< of each exception
    std::vector<uint8_t> tokens;                   ///< one per stored cell; empty without tokens
    std::vector<uint16_t> low[kMostExponent + 1];  ///< low bits of all blocks of an exponent
};

/// False when a block has more exceptions than its count can tell: the chunk is not made for this codec.
bool PartResiduals(const GridPlan& plan, bool withTokens, GridResiduals& out);

}  // namespace kxcodecs::grid
