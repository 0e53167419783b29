// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "kxbase/Export.h"

namespace kxbase {

/// Product of sizes and counts. What does not fit into 64 bits becomes the largest number there is, which no
/// comparison with a size that is there lets pass: so sizes from a file can be multiplied first and judged
/// afterwards.
constexpr uint64_t SizeProduct(uint64_t a, uint64_t b) noexcept {
    constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();
    return a != 0 && b > kMost / a ? kMost : a * b;
}
/// Of more factors.
template <class... More>
constexpr uint64_t SizeProduct(uint64_t a, uint64_t b, uint64_t c, More... more) noexcept {
    return SizeProduct(SizeProduct(a, b), c, more...);
}

/// Sum of sizes and counts, bounded like `SizeProduct`.
constexpr uint64_t SizeSum(uint64_t a, uint64_t b) noexcept {
    constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();
    return b > kMost - a ? kMost : a + b;
}
/// Of more terms.
template <class... More>
constexpr uint64_t SizeSum(uint64_t a, uint64_t b, uint64_t c, More... more) noexcept {
    return SizeSum(SizeSum(a, b), c, more...);
}

/// For `ErrorContext::detail`, where a stated limit refuses something: "limit recordBytes: 20 found, at most
/// 10 allowed".
KXBASE_EXPORT std::string OverLimit(const char* limit, uint64_t found, uint64_t most);

}  // namespace kxbase
