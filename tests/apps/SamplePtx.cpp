// SPDX-License-Identifier: MIT
#include "SamplePtx.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <numbers>

namespace qsn {

std::string MakePtx(uint32_t columns, uint32_t rows,
                    const std::function<SampleCell(uint32_t column, uint32_t row)>& cell) {
    // Steps of a degree, or what keeps a large grid on the sphere.
    const double degrees = std::min({1.0, 350.0 / columns, 170.0 / rows});
    const double step = degrees * std::numbers::pi / 180;
    std::string text = fmt::format(
        "{}\n{}\n10 20 3\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n10 20 3 1\n", columns, rows);
    for (uint32_t column = 0; column < columns; ++column) {
        const double horizontal = 1.0 - column * step;
        for (uint32_t up = 0; up < rows; ++up) {
            const uint32_t row = rows - 1 - up;
            const SampleCell c = cell(column, row);
            if (c.range <= 0) {
                text += "0 0 0 0.5 0 0 0\n";
                continue;
            }
            const double elevation = (up - (rows - 1) / 2.0) * step;
            fmt::format_to(std::back_inserter(text), "{:.6f} {:.6f} {:.6f} {:.6f} {} {} {}\n",
                           c.range * std::cos(elevation) * std::cos(horizontal),
                           c.range * std::cos(elevation) * std::sin(horizontal),
                           c.range * std::sin(elevation), c.intensity, c.red, c.green, c.blue);
        }
    }
    return text;
}

std::string MakeSmallPtx(uint32_t columns, uint32_t rows) {
    return MakePtx(columns, rows, [=](uint32_t column, uint32_t row) {
        if (column % 7 == 3 && row % 5 == 2) return SampleCell{};
        const double along = static_cast<double>(column) / columns;
        const double down = static_cast<double>(row) / rows;
        return SampleCell{2 + 3 * along * down, along, static_cast<unsigned>(255 * along),
                          static_cast<unsigned>(255 * down), 128};
    });
}

}  // namespace qsn
