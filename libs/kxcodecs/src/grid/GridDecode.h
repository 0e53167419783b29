// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "kxcodecs/ChunkHeader.h"

namespace kxcodecs::grid {

/// Unpacks a payload of form 1 or 2 into exactly `out`, width x height elements of 1, 2, 4 or 8 bytes; false
/// when it is damaged. Memory: about ten bytes per cell and what a row of blocks takes.
/// \throws std::bad_alloc
bool DecodeGrid(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                std::span<unsigned char> out);

}  // namespace kxcodecs::grid
