// SPDX-License-Identifier: MIT
#include "kxio/CoordConverter3D.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>

#include "geometry/GridProjection.h"
#include "kxbase/Exceptions.h"

namespace kxio {

using kxbase::ImageCoordinates;
using kxbase::QSNCoordinates;
using kxbase::QSNIndexCoordinates;
using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

namespace {

[[noreturn]] void ThrowNotFound(const std::string& detail) {
    throw kxbase::KXBadInputException("Coordinate not found", {{}, "scan grid", {}, {}, detail});
}

// With two decimals, and a point in every locale.
std::string Degrees(double radians) {
    char digits[400];  // the largest double has 309 digits before the point
    const auto end = std::to_chars(digits, digits + sizeof digits, radians * (180 / 3.14159265358979323846),
                                   std::chars_format::fixed, 2);
    return {digits, end.ptr};
}

// "17.80 to 57.80" of cells that begin at `start` and go on by `step`, half a step more on either side.
std::string Reach(float start, double step, uint32_t count) {
    const double edge = static_cast<double>(start) - step / 2;
    const double otherEdge = edge + step * count;
    return Degrees(std::min(edge, otherEdge)) + " to " + Degrees(std::max(edge, otherEdge));
}

// After a search around `centre`, towards which `direction` points, for a cell that `wanted`.
[[noreturn]] void ThrowNotFound(const kxbase::GridTopology& grid, const ImageCoordinates& centre,
                                const kxbase::Angles& direction, const std::string& wanted) {
    const bool inside = centre.row >= 0 && centre.column >= 0 && uint64_t(centre.row) < grid.rows &&
                        uint64_t(centre.column) < grid.columns;
    if (inside) {
        ThrowNotFound("no cell around row " + std::to_string(centre.row) + ", column " +
                      std::to_string(centre.column) + " " + wanted);
    }
    ThrowNotFound("the direction of " + Degrees(static_cast<double>(direction.horizontal)) +
                  " degrees horizontally and " + Degrees(static_cast<double>(direction.vertical)) +
                  " from the zenith is outside the grid of " + std::to_string(grid.rows) + " rows and " +
                  std::to_string(grid.columns) + " columns, which reaches from " +
                  Reach(grid.columnStartAngle, -static_cast<double>(grid.columnAngularStep), grid.columns) +
                  " and " + Reach(grid.rowStartAngle, static_cast<double>(grid.rowAngularStep), grid.rows) +
                  " degrees, and no cell near by " + wanted);
}

QSNIndexCoordinates ToIndexCoordinates(const kxbase::GridTopology& grid, const QSNCoordinates& cell) {
    return {
        grid.PatchesPerRow() * static_cast<uint32_t>(cell.patchRow) + static_cast<uint32_t>(cell.patchColumn),
        grid.patchWidth * static_cast<uint32_t>(cell.row) + static_cast<uint32_t>(cell.column)};
}

// The point's direction as a unit vector.
XYZPoint UnitVector(float horizontal, float vertical) {
    return XYZPoint(PolarPoint(1.0f, horizontal, vertical));
}

float Distance(const XYZPoint& a, const XYZPoint& b) {
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    const float dz = a.z - b.z;
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

}  // namespace

CoordConverter3D::CoordConverter3D(const std::wstring& path) : QSNScanReader(path, 0) {}
CoordConverter3D::CoordConverter3D(kxbase::IInFileStream* stream) : QSNScanReader(stream) {}
CoordConverter3D::~CoordConverter3D() = default;

bool CoordConverter3D::IsInCache(const ImageCoordinates& patch, kxbase::ComponentType component) const {
    return component >= kxbase::Range && component <= kxbase::HorizontalAngle && m_cache.contains(patch);
}

void CoordConverter3D::Load(const ImageCoordinates& patch) const {
    const auto row = static_cast<unsigned>(patch.row);
    const auto column = static_cast<unsigned>(patch.column);
    kxbase::tPolarVector<float> values;
    GetPatchAsFloats(row, column, kxbase::Range, values.range);
    GetPatchAsFloats(row, column, kxbase::HorizontalAngle, values.horizontal);
    GetPatchAsFloats(row, column, kxbase::VerticalAngle, values.vertical);
    m_cache.insert_or_assign(patch, std::move(values));
}

PolarPoint CoordConverter3D::GetPoint(const QSNIndexCoordinates& cell) const {
    const kxbase::GridTopology& grid = GetScanInformation().grid;
    const uint32_t perRow = grid.PatchesPerRow();
    if (perRow == 0 || grid.patchWidth == 0) return PolarPoint::Invalid();
    return GetPoint(QSNCoordinates{static_cast<int32_t>(cell.patchIndex / perRow),
                                   static_cast<int32_t>(cell.patchIndex % perRow),
                                   static_cast<int32_t>(cell.index / grid.patchWidth),
                                   static_cast<int32_t>(cell.index % grid.patchWidth)});
}

PolarPoint CoordConverter3D::GetPoint(const QSNCoordinates& cell) const {
    const kxbase::GridTopology& grid = GetScanInformation().grid;
    const auto below = [](int32_t value, uint32_t limit) {
        return value >= 0 && static_cast<uint32_t>(value) < limit;
    };
    if (!below(cell.patchRow, grid.PatchesPerColumn()) || !below(cell.patchColumn, grid.PatchesPerRow()) ||
        !below(cell.row, grid.rows) || !below(cell.column, grid.columns)) {
        return PolarPoint::Invalid();
    }
    const ImageCoordinates patch{cell.patchRow, cell.patchColumn};
    const uint64_t offset =
        uint64_t{grid.patchWidth} * static_cast<uint32_t>(cell.row) + static_cast<uint32_t>(cell.column);
    try {
        const std::lock_guard lock(m_mutex);
        if (!IsInCache(patch, kxbase::Range)) Load(patch);
        const kxbase::tPolarVector<float>& values = m_cache.at(patch);
        if (offset >= values.range.size() || offset >= values.horizontal.size() ||
            offset >= values.vertical.size()) {
            return PolarPoint::Invalid();
        }
        return {values.range[offset], values.horizontal[offset], values.vertical[offset]};
    } catch (...) {
        // Unreadable patch, failed lock, no memory or whatever a caller's stream throws: the point cannot be
        // had, which is this call's answer.
        return PolarPoint::Invalid();
    }
}

bool CoordConverter3D::IsSamePoint(PolarPoint a, PolarPoint b) const {
    const auto horizontalA = WrapToFullTurn(a.horizontal);
    const auto horizontalB = WrapToFullTurn(b.horizontal);
    const auto verticalA = WrapToFullTurn(a.vertical);
    const auto verticalB = WrapToFullTurn(b.vertical);
    if (!horizontalA || !horizontalB || !verticalA || !verticalB) return false;
    constexpr float kPi = 3.1415927f;
    constexpr float kTwoPi = 6.2831855f;
    const float rangeDifference = std::abs(a.range - b.range);
    float horizontalDifference = std::abs(*horizontalA - *horizontalB);
    if (horizontalDifference > kPi) horizontalDifference = kTwoPi - horizontalDifference;
    const float verticalDifference = std::abs(*verticalA - *verticalB);
    const auto& precision = GetScanInformation().componentValue;  // of components 1, 2, 3
    return precision[0] > static_cast<double>(rangeDifference) &&
           precision[2] > static_cast<double>(horizontalDifference) &&
           precision[1] > static_cast<double>(verticalDifference);
}

QSNIndexCoordinates CoordConverter3D::GetClosestQSNCoordinate(const XYZPoint& point) const {
    const kxbase::GridTopology& grid = GetScanInformation().grid;
    const PolarPoint polar(point);
    const kxbase::Angles direction{polar.horizontal, polar.vertical};
    const auto centre = ProjectOntoGrid(grid, direction);
    if (!centre) ThrowNotFound("the point has no place on the grid");
    for (const ImageCoordinates& image : SearchOrder(grid, *centre)) {
        const QSNCoordinates cell = ToPatchCoordinates(grid, image);
        if (IsSamePoint(GetPoint(cell), polar)) return ToIndexCoordinates(grid, cell);
    }
    ThrowNotFound(grid, *centre, direction, "stores this point");
}

QSNIndexCoordinates CoordConverter3D::GetClosestValidQSNCoordinate(const kxbase::Angles& direction) const {
    const kxbase::GridTopology& grid = GetScanInformation().grid;
    const auto centre = ProjectOntoGrid(grid, direction);
    if (!centre) ThrowNotFound("the direction has no place on the grid");
    const XYZPoint wanted = UnitVector(direction.horizontal, direction.vertical);
    float best = std::numeric_limits<float>::max();
    QSNCoordinates winner;
    for (const ImageCoordinates& image : SearchOrder(grid, *centre)) {
        const QSNCoordinates cell = ToPatchCoordinates(grid, image);
        const PolarPoint stored = GetPoint(cell);
        if (stored == PolarPoint::Invalid() || stored.range == 0) continue;
        const float distance = Distance(wanted, UnitVector(stored.horizontal, stored.vertical));
        if (distance < best) {
            best = distance;
            winner = cell;
        }
    }
    if (best == std::numeric_limits<float>::max()) {
        ThrowNotFound(grid, *centre, direction, "has a return");
    }
    return ToIndexCoordinates(grid, winner);
}

}  // namespace kxio
