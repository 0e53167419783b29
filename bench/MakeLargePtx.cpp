// SPDX-License-Identifier: MIT
// Writes PTX text of a made-up scan of any size to standard output: MakeLargePtx COLUMNS ROWS.
//
// A full turn around the instrument over a floor and walls with noise, every ninth cell without a return, so
// that nothing compresses too well. Holds one column.
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <string>

namespace {

char* Append(char* out, double value) {
    return std::to_chars(out, out + 32, value, std::chars_format::fixed, 6).ptr;
}

bool WriteColumn(uint32_t column, uint32_t columns, uint32_t rows, std::string& text) {
    const double azimuth = -2 * std::numbers::pi * column / columns;
    text.clear();
    for (uint32_t row = 0; row < rows; ++row) {
        const uint32_t noise = (column * 7919 + row * 104729) % 10007;
        if (noise % 9 == 0) {
            text += "0 0 0 0.5\n";
            continue;
        }
        const double elevation = (static_cast<double>(row) / rows - 0.35) * 0.75 * std::numbers::pi;
        const double wall = 4 / std::max(0.2, std::abs(std::cos(azimuth))) + noise * 1e-6;
        const double flat = wall * std::cos(elevation);
        std::array<char, 160> line;
        char* out = line.data();
        for (const double value : {flat * std::cos(azimuth), flat * std::sin(azimuth),
                                   wall * std::sin(elevation), noise / 10007.0}) {
            if (out != line.data()) *out++ = ' ';
            out = Append(out, value);
        }
        *out++ = '\n';
        text.append(line.data(), out);
    }
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

}  // namespace

int main(int count, char** values) {
    const auto side = [&](int index) {
        return count > index ? static_cast<uint32_t>(std::strtoul(values[index], nullptr, 10)) : 0;
    };
    const uint32_t columns = side(1), rows = side(2);
    if (columns == 0 || rows == 0) {
        std::fputs("usage: MakeLargePtx COLUMNS ROWS\n", stderr);
        return 2;
    }
    std::printf("%u\n%u\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n12.5 -3.25 1.75 1\n", columns,
                rows);
    std::string text;
    for (uint32_t column = 0; column < columns; ++column) {
        if (!WriteColumn(column, columns, rows, text)) return 1;
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
