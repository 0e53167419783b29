// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kxcodecs::grid {

/// Values of `bits` bits in units of 256: the value with the index i lies in lane i % 16, and each lane is a
/// row of 16-bit words, filled from the lowest bit. The words of a unit lie lane after lane: word 0 of all
/// 16 lanes, word 1 of all lanes, ... A unit of fewer values leaves out the words it does not need.

/// Bytes that `count` values take.
uint64_t PackedBytes(uint64_t count, uint32_t bits);

/// Appends `values`, each of which has no bits but the lowest `bits`, to `out`.
void PackLow(std::span<const uint16_t> values, uint32_t bits, std::vector<unsigned char>& out);

/// The way back: `PackedBytes(count, bits)` bytes into `count` values.
/// \param values  has room for `count` rounded up to 256
void UnpackLow(const unsigned char* packed, uint64_t count, uint32_t bits, uint16_t* values) noexcept;

}  // namespace kxcodecs::grid
