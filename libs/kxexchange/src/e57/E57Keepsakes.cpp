// SPDX-License-Identifier: MIT
#include "E57Keepsakes.h"

#include "TextFormat.h"

namespace kxexchange {

const std::string* FindKeepsake(const Keepsakes& keepsakes, std::string_view key) {
    for (const auto& [name, value] : keepsakes) {
        if (name == key) return &value;
    }
    return nullptr;
}

std::optional<std::vector<double>> KeepsakeNumbers(const Keepsakes& keepsakes, std::string_view key,
                                                   size_t count) {
    const std::string* const value = FindKeepsake(keepsakes, key);
    if (!value) return std::nullopt;
    auto numbers = SplitNumbers(*value);
    if (!numbers || numbers->size() != count) return std::nullopt;
    return numbers;
}

std::string JoinKeepsakes(const Keepsakes& keepsakes) {
    std::string line;
    for (const auto& [key, value] : keepsakes) {
        if (!line.empty()) line += ' ';
        line += key + "=" + value;
    }
    return line;
}

Keepsakes SplitKeepsakes(std::string_view line) {
    Keepsakes keepsakes;
    while (!line.empty()) {
        const size_t blank = line.find(' ');
        const std::string_view piece = line.substr(0, blank);
        line = blank == std::string_view::npos ? std::string_view() : line.substr(blank + 1);
        const size_t equals = piece.find('=');
        if (equals == std::string_view::npos || equals == 0) continue;
        keepsakes.emplace_back(piece.substr(0, equals), piece.substr(equals + 1));
    }
    return keepsakes;
}

}  // namespace kxexchange
