// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

namespace kxio {

/// The 64-bit XXH3 hash of some bytes, seed 0. The same on every machine.
uint64_t Hash64(std::span<const unsigned char> bytes);

}  // namespace kxio
