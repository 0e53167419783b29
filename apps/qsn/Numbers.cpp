// SPDX-License-Identifier: MIT
#include "Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace qsn {

namespace {

template <class T>
std::optional<T> ParseWhole(std::string_view text) {
    T value{};
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (text.empty() || result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

std::string_view WithoutBlanks(std::string_view text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

/// Three figures at most, without a fraction of zeros.
std::string ThreeFigures(double number) {
    if (number < 10) return fmt::format("{:.2f}", number);
    if (number < 100) return fmt::format("{:.1f}", number);
    return fmt::format("{:.0f}", number);
}

std::string WithPrefix(double number, const char* unit) {
    static constexpr const char* kPrefixes[] = {"", "k", "M", "G", "T", "P", "E"};
    size_t power = 0;
    // 999.5 would be shown as 1000.
    while (number >= 999.5 && power + 1 < std::size(kPrefixes)) {
        number /= 1000;
        ++power;
    }
    return fmt::format("{} {}{}", ThreeFigures(number), kPrefixes[power], unit);
}

}  // namespace

std::string Grouped(uint64_t number) {
    std::string digits = fmt::format("{}", number);
    for (size_t i = digits.size(); i > 3; i -= 3)
        digits.insert(i - 3, 1, ',');
    return digits;
}

std::string ShortCount(double number) {
    if (number < 999.5) return fmt::format("{:.0f}", number);
    return WithPrefix(number, "");
}

std::string ShortBytes(uint64_t bytes) {
    if (bytes < 1000) return fmt::format("{} bytes", bytes);
    return WithPrefix(static_cast<double>(bytes), "B");
}

std::string ShortDuration(double seconds) {
    // A week and more is no estimate any longer, and keeps the conversion in range.
    constexpr double kLongest = 7 * 24 * 3600;
    const auto total = static_cast<uint64_t>(std::clamp(std::ceil(seconds), 0.0, kLongest));
    if (total < 3600) return fmt::format("{}:{:02}", total / 60, total % 60);
    return fmt::format("{}:{:02}:{:02}", total / 3600, total / 60 % 60, total % 60);
}

std::optional<double> ParseNumber(std::string_view text) {
    return ParseWhole<double>(text);
}

std::optional<uint32_t> ParseCount(std::string_view text) {
    return ParseWhole<uint32_t>(text);
}

std::optional<std::vector<double>> ParseNumbers(std::string_view text, size_t count) {
    std::vector<double> numbers;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(',', start), text.size());
        const auto number = ParseNumber(WithoutBlanks(text.substr(start, end - start)));
        if (!number || !std::isfinite(*number) || numbers.size() == count) return std::nullopt;
        numbers.push_back(*number);
        start = end + 1;
    }
    if (numbers.size() != count) return std::nullopt;
    return numbers;
}

std::optional<std::pair<uint32_t, uint32_t>> ParsePlace(std::string_view text) {
    const size_t comma = text.find(',');
    if (comma == std::string_view::npos) return std::nullopt;
    const auto row = ParseCount(WithoutBlanks(text.substr(0, comma)));
    const auto column = ParseCount(WithoutBlanks(text.substr(comma + 1)));
    if (!row || !column) return std::nullopt;
    return std::pair(*row, *column);
}

std::string Fixed(double value, int decimals) {
    std::string text = fmt::format("{:.{}f}", value, decimals);
    if (text.starts_with('-') && text.find_first_not_of("-0.") == std::string::npos) text.erase(0, 1);
    return text;
}

std::optional<std::pair<uint32_t, uint32_t>> ParseSize(std::string_view text) {
    const size_t cross = text.find('x');
    if (cross == std::string_view::npos) return std::nullopt;
    const auto width = ParseCount(text.substr(0, cross));
    const auto height = ParseCount(text.substr(cross + 1));
    if (!width || !height || *width == 0 || *height == 0) return std::nullopt;
    return std::pair(*width, *height);
}

}  // namespace qsn
