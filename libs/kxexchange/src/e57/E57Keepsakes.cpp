// SPDX-License-Identifier: MIT
#include "E57Keepsakes.h"

#include "TextFormat.h"

namespace kxexchange {

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

std::string EncodeKeepsake(std::string_view text) {
    constexpr const char* kHex = "0123456789abcdef";
    std::string value;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= ' ' || byte == 0x7f || c == '%' || c == '=') {
            value += {'%', kHex[byte >> 4], kHex[byte & 15]};
        } else {
            value += c;
        }
    }
    return value;
}

std::string DecodeKeepsake(std::string_view value) {
    std::string text;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '%' && value.size() - i > 2) {
            const int high = HexDigit(value[i + 1]), low = HexDigit(value[i + 2]);
            if (high >= 0 && low >= 0) {
                text += static_cast<char>(high * 16 + low);
                i += 2;
                continue;
            }
        }
        text += value[i];
    }
    return text;
}

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
