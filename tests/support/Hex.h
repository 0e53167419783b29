// SPDX-License-Identifier: MIT
#pragma once

#include <cctype>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kxtest {

using Bytes = std::vector<unsigned char>;

/// Bytes spelled out: pairs of hexadecimal digits, blanks and line ends ignored, '#' begins a comment that
/// runs to the end of its line.
/// \throws std::invalid_argument for anything else, so that a typing mistake fails the test
inline Bytes Hex(std::string_view text) {
    Bytes bytes;
    int high = -1;
    bool comment = false;
    for (const char c : text) {
        if (c == '\n') comment = false;
        if (c == '#') comment = true;
        if (comment || std::isspace(static_cast<unsigned char>(c))) continue;
        const std::string_view digits = "0123456789abcdef";
        const size_t value = digits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        if (value == std::string_view::npos)
            throw std::invalid_argument(std::string("no hexadecimal digit: ") + c);
        if (high < 0) {
            high = static_cast<int>(value);
        } else {
            bytes.push_back(static_cast<unsigned char>(high * 16 + static_cast<int>(value)));
            high = -1;
        }
    }
    if (high >= 0) throw std::invalid_argument("odd number of hexadecimal digits");
    return bytes;
}

/// "5e de 73 ...", for messages of failing tests.
inline std::string ToHex(std::span<const unsigned char> bytes) {
    static const char* digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        if (!text.empty()) text += ' ';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

/// The bytes of a .hex file in the notation of `Hex`.
/// \param path  below the source folder's tests/golden
inline Bytes GoldenHex(const std::string& path) {
    const std::string whole = std::string(KXIO_SOURCE_DIR) + "/tests/golden/" + path;
    std::ifstream file(whole, std::ios::binary);
    if (!file) throw std::invalid_argument("cannot open " + whole);
    return Hex(std::string(std::istreambuf_iterator<char>(file), {}));
}

}  // namespace kxtest
