// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kxcodecs {

/// Bits of each symbol's code, so that symbols which occur `counts` times take few bits together and none
/// takes more than `mostBits`, with which all symbols can be told apart; 0 for symbols that do not occur. A
/// single symbol takes one bit.
std::vector<uint8_t> HuffmanLengths(std::span<const uint32_t> counts, unsigned mostBits);

/// The canonical codes of such lengths as deflate (RFC 1951) has them, the bit that is written first lowest.
std::vector<uint16_t> HuffmanCodes(std::span<const uint8_t> lengths);

}  // namespace kxcodecs
