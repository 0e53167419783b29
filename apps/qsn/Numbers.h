// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qsn {

/// "1234567" as "1,234,567", whatever the locale.
std::string Grouped(uint64_t number);

/// "12.3 M", "456 k", "789": three figures, powers of 1000.
std::string ShortCount(double number);

/// "2.68 MB" and the like, powers of 1000; below 1000 "12 bytes".
std::string ShortBytes(uint64_t bytes);

/// "0:07", "12:34", "3:00:05".
std::string ShortDuration(double seconds);

/// The whole of `text` as a decimal number; nothing for anything else. A point is the decimal mark,
/// whatever the locale.
std::optional<double> ParseNumber(std::string_view text);
std::optional<uint32_t> ParseCount(std::string_view text);

/// `count` finite numbers with commas between them; blanks around a number do not matter.
std::optional<std::vector<double>> ParseNumbers(std::string_view text, size_t count);

/// "R,C": a row and a column, each from 0.
std::optional<std::pair<uint32_t, uint32_t>> ParsePlace(std::string_view text);

/// With so many decimals, never "-0.00".
std::string Fixed(double value, int decimals);

/// "WxH" with two counts of at least 1.
std::optional<std::pair<uint32_t, uint32_t>> ParseSize(std::string_view text);

}  // namespace qsn
