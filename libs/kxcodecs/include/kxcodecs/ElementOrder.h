// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>

namespace kxcodecs {

/// Chunks hold their elements little-endian, callers in the order of their processor. On little-endian
/// machines this does nothing; on others it turns every whole element of 2, 4 or 8 bytes round, in place,
/// either way. Elements of other sizes are bytes and stay as they are.
inline void TurnElements(std::span<unsigned char> bytes, uint64_t elementBytes) noexcept {
    if constexpr (std::endian::native == std::endian::big) {
        if (elementBytes != 2 && elementBytes != 4 && elementBytes != 8) return;
        const auto size = static_cast<std::size_t>(elementBytes);
        for (; bytes.size() >= size; bytes = bytes.subspan(size))
            std::ranges::reverse(bytes.first(size));
    } else {
        static_cast<void>(bytes);
        static_cast<void>(elementBytes);
    }
}

}  // namespace kxcodecs
