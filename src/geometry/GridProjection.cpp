// SPDX-License-Identifier: MIT
#include "geometry/GridProjection.h"

#include <algorithm>
#include <cmath>

namespace kxio {

namespace {

constexpr float kPi = 3.1415927f;
constexpr float kTwoPi = 6.2831855f;
constexpr double kTwoPiDouble = 6.283185307179586;

// Beyond this, single-precision steps of a full turn stop changing the angle and the loops below would
// never end; such angles are reduced in double precision first.
constexpr float kLargeAngle = 1000.0f;

std::optional<float> Tame(float angle) {
    if (!std::isfinite(angle)) return std::nullopt;
    if (std::abs(angle) <= kLargeAngle) return angle;
    return static_cast<float>(std::fmod(static_cast<double>(angle), kTwoPiDouble));
}

bool IsSmall(float value) {
    return std::isfinite(value) && std::abs(value) <= kLargeAngle;
}

// Half away from zero.
float Rounded(float value) {
    return value < 0 ? std::ceil(value - 0.5f) : std::floor(value + 0.5f);
}

bool FitsInt(float value) {
    return std::abs(value) <= static_cast<float>(1 << 30);
}  // false for NaN

}  // namespace

std::optional<kxbase::ImageCoordinates> ProjectOntoGrid(const kxbase::GridTopology& grid,
                                                        const kxbase::Angles& direction) {
    const std::optional<float> horizontal = Tame(direction.horizontal);
    const std::optional<float> vertical = Tame(direction.vertical);
    const bool usable = grid.columns != 0 && grid.rows != 0 && grid.patchWidth != 0 &&
                        grid.patchHeight != 0 && IsSmall(grid.columnStartAngle) &&
                        IsSmall(grid.rowStartAngle) && IsSmall(grid.columnHalfStep) &&
                        IsSmall(grid.rowHalfStep);
    if (!horizontal || !vertical || !usable) return std::nullopt;

    float h = *horizontal;
    const float left = grid.columnStartAngle + grid.columnHalfStep;
    while (h > left)
        h -= kTwoPi;
    while (left - kTwoPi >= h)
        h += kTwoPi;
    const float x = (grid.columnStartAngle - h) / grid.columnAngularStep;

    float v = *vertical;
    const float top = std::max(grid.rowStartAngle - grid.rowHalfStep, 0.0f);
    while (v < top)
        v += kPi;
    while (v >= top + kPi)
        v -= kPi;
    const float y = (v - grid.rowStartAngle) / grid.rowAngularStep;

    if (!FitsInt(x) || !FitsInt(y)) return std::nullopt;
    return kxbase::ImageCoordinates{static_cast<int32_t>(Rounded(y)), static_cast<int32_t>(Rounded(x))};
}

std::vector<kxbase::ImageCoordinates> SearchOrder(const kxbase::GridTopology& grid,
                                                  const kxbase::ImageCoordinates& centre) {
    constexpr int64_t kReach = 2;
    const int64_t rows = grid.rows;
    const int64_t columns = grid.columns;
    const float covered = static_cast<float>(grid.columns) * grid.columnAngularStep;
    const bool closes = static_cast<double>(2 * grid.columnAngularStep) >
                        std::abs(kTwoPiDouble - static_cast<double>(covered));
    std::vector<kxbase::ImageCoordinates> cells{centre};
    for (int64_t row = centre.row + kReach; row >= centre.row - kReach; --row) {
        if (row < 0 || row >= rows) continue;
        for (int64_t column = centre.column + kReach; column >= centre.column - kReach; --column) {
            if (row == centre.row && column == centre.column) continue;
            int64_t place = column;
            if (place < 0 || place >= columns) {
                if (!closes || columns == 0) continue;
                place = ((place % columns) + columns) % columns;
            }
            cells.push_back({static_cast<int32_t>(row), static_cast<int32_t>(place)});
        }
    }
    return cells;
}

kxbase::QSNCoordinates ToPatchCoordinates(const kxbase::GridTopology& grid,
                                          const kxbase::ImageCoordinates& cell) {
    const int64_t width = grid.patchWidth;
    const int64_t height = grid.patchHeight;
    return {static_cast<int32_t>(cell.row / height), static_cast<int32_t>(cell.column / width),
            static_cast<int32_t>(cell.row % height), static_cast<int32_t>(cell.column % width)};
}

std::optional<float> WrapToFullTurn(float angle) {
    std::optional<float> tame = Tame(angle);
    if (!tame) return tame;
    while (*tame < 0)
        *tame += kTwoPi;
    while (*tame > kTwoPi)
        *tame -= kTwoPi;
    return tame;
}

}  // namespace kxio
