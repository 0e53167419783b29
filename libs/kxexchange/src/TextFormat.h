// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kxexchange {

/// Shortest decimal text that reads back as the same double; no locale.
inline std::string ShortestText(double value) {
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return {text, result.ptr};
}

/// The most bytes that AppendFixed and AppendShortest write.
constexpr size_t kMaxNumberBytes = 352;
/// The most bytes of a line with four numbers and a colour.
constexpr size_t kMaxCellBytes = 4 * (kMaxNumberBytes + 1) + 3 * 6 + 1;

/// Writes `value` with `decimals` digits (0..12) behind the point; never "-0". \return end of the text
inline char* AppendFixed(char* out, double value, int decimals) {
    static constexpr double kPowers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12};
    static constexpr double kExact = 9007199254740992.0;  // 2^53
    const double scaled = std::abs(value) * kPowers[decimals];
    if (!(scaled < kExact))
        return std::to_chars(out, out + kMaxNumberBytes, value, std::chars_format::fixed, decimals).ptr;
    auto digits = static_cast<uint64_t>(scaled + 0.5);
    if (value < 0 && digits != 0) *out++ = '-';
    char fraction[16];
    for (int i = decimals; i-- > 0; digits /= 10)
        fraction[i] = static_cast<char>('0' + digits % 10);
    out = std::to_chars(out, out + kMaxNumberBytes, digits).ptr;
    if (decimals > 0) {
        *out++ = '.';
        out = std::copy_n(fraction, decimals, out);
    }
    return out;
}

/// Writes the shortest text that reads back as the same double. \return end of the text
inline char* AppendShortest(char* out, double value) {
    return std::to_chars(out, out + kMaxNumberBytes, value).ptr;
}

/// Shortest texts, separated by commas.
inline std::string JoinNumbers(std::span<const double> values) {
    std::string text;
    for (const double value : values) {
        if (!text.empty()) text += ',';
        text += ShortestText(value);
    }
    return text;
}

/// The numbers of a text written by JoinNumbers; nothing when it is anything else.
std::optional<std::vector<double>> SplitNumbers(std::string_view text);

}  // namespace kxexchange
