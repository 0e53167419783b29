// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

namespace kxexchange {

/// CRC-32C (Castagnoli: polynomial 0x1edc6f41, reflected, begun with and inverted by all ones).
uint32_t Crc32c(std::span<const unsigned char> bytes);

}  // namespace kxexchange
