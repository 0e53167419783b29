// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "kxcodecs/Export.h"

namespace kxcodecs {

/// Moves numbers so that `GridChunkCodec` stores them in less: where what is left behind its prediction may
/// become 0, or else a rounder number, it does.
///
/// `values` become their replacements, width x height, row by row. No value moves by more than its `reach`;
/// one with the reach 0 stays. Says how many moved: none where that would not help. Costs about six
/// encodings; memory: about 30 bytes for each value.
///
/// \param reach  one per value, below 2^30
/// \throws kxbase::KXBadInputException  sizes that do not fit each other
KXCODECS_EXPORT uint64_t SettleValues(std::span<int32_t> values, uint32_t width, uint32_t height,
                                      std::span<const uint32_t> reach);

}  // namespace kxcodecs
