// SPDX-License-Identifier: MIT
#include "LineCount.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>

namespace kxexchange {

size_t CountLineEnds(const char* begin, const char* end) {
    // Columns of bytes that are counted in bytes, which compilers turn into vectors; std::count goes by words
    // and takes eight times as long.
    constexpr size_t kColumns = 64;
    constexpr size_t kMostRows = 255;
    size_t count = 0;
    while (static_cast<size_t>(end - begin) >= kColumns) {
        const size_t rows = std::min(kMostRows, static_cast<size_t>(end - begin) / kColumns);
        std::array<uint8_t, kColumns> counts{};
        for (size_t row = 0; row < rows; ++row, begin += kColumns) {
            for (size_t i = 0; i < kColumns; ++i)
                counts[i] = static_cast<uint8_t>(counts[i] + (begin[i] == '\n' ? 1 : 0));
        }
        count = std::accumulate(counts.begin(), counts.end(), count);
    }
    return count + static_cast<size_t>(std::count(begin, end, '\n'));
}

}  // namespace kxexchange
