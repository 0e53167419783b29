// SPDX-License-Identifier: MIT
#include "kxexchange/GridFit.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "LineFit.h"
#include "SweepFold.h"

namespace kxexchange {

namespace {

constexpr double kPi = std::numbers::pi;

// Steps below this cannot be told apart in single precision at these magnitudes; no instrument has them.
constexpr double kLeastStep = 1e-6;
// A grid that would go round more often than this is no sweep: its cells are in no angular order.
constexpr double kMostTurns = 2.02;

double DefaultStep(size_t columns, size_t rows) {
    return std::min(2 * kPi / static_cast<double>(std::max<size_t>(columns, 4)),
                    kPi / static_cast<double>(std::max<size_t>(rows, 2)));
}

bool IsStep(double step) {
    return step >= kLeastStep && step <= kPi;
}

// A point of a line, at the weighted middle of its samples.
struct Anchor {
    double position = 0;
    double value = 0;
    bool known = false;
};

Anchor AnchorOf(const std::vector<Sample>& samples, const Line& line) {
    double weight = 0;
    Anchor anchor;
    for (const Sample& sample : samples) {
        weight += sample.weight;
        anchor.position += sample.weight * sample.position;
    }
    if (!(weight > 0)) return {};
    anchor.position /= weight;
    anchor.value = line.At(anchor.position);
    anchor.known = true;
    return anchor;
}

}  // namespace

void GridFit::AddColumn(std::span<const Cell> column) {
    if (m_rows.size() < column.size()) m_rows.resize(column.size());
    m_directions.clear();
    ColumnSums sums;
    for (size_t row = 0; row < column.size(); ++row) {
        const Cell& cell = column[row];
        if (!cell.valid) continue;
        double x = cell.x, y = cell.y, z = cell.z;
        double square = x * x + y * y + z * z;
        if (!(square > 1e-200 && square < 1e200)) [[unlikely]] {
            const double largest = std::max({std::abs(x), std::abs(y), std::abs(z)});
            x /= largest;
            y /= largest;
            z /= largest;
            square = x * x + y * y + z * z;
            if (!(square > 0.5 && square < 4)) continue;
        }
        const double scale = 1 / std::sqrt(square);
        x *= scale;
        y *= scale;
        z *= scale;
        sums.directionX += x;
        sums.directionY += y;
        RowSums& rowSums = m_rows[row];
        rowSums.sine += std::sqrt(x * x + y * y);
        rowSums.cosine += z;
        rowSums.count += 1;
        m_directions.push_back({x, y, z, row});
    }
    AddPlane(sums);
    m_columns.push_back(sums);
}

// The vertical plane that fits the column best: the axis of the doubled horizontal angles. Its sense is
// chosen so that the angle in it, from the zenith, grows along the rows.
void GridFit::AddPlane(ColumnSums& sums) {
    constexpr double kLeastTurn = 1e-9;
    double doubledX = 0, doubledY = 0, weight = 0;
    for (const Direction& d : m_directions) {
        doubledX += d.x * d.x - d.y * d.y;
        doubledY += 2 * d.x * d.y;
        weight += d.x * d.x + d.y * d.y;
    }
    if (!(weight > 0)) return;
    const double azimuth = 0.5 * std::atan2(doubledY, doubledX);
    double planeX = std::cos(azimuth), planeY = std::sin(azimuth);
    double turn = 0;  // sum of the sines of the steps from return to return
    for (size_t i = 1; i < m_directions.size(); ++i) {
        const Direction& a = m_directions[i - 1];
        const Direction& b = m_directions[i];
        turn += (b.x * planeX + b.y * planeY) * a.z - (a.x * planeX + a.y * planeY) * b.z;
    }
    if (!(std::abs(turn) > kLeastTurn)) return;
    if (turn < 0) {
        planeX = -planeX;
        planeY = -planeY;
    }
    sums.planeX = planeX * weight;
    sums.planeY = planeY * weight;
    for (const Direction& d : m_directions) {
        RowSums& row = m_rows[d.row];
        row.planeSine += d.x * planeX + d.y * planeY;
        row.planeCosine += d.z;
        row.planeCount += 1;
    }
}

// Whether the sweep passes over the axis, and where.
std::optional<FoldedRows> GridFit::Fold() const {
    std::vector<Sample> sweep(m_rows.size());
    double returns = 0, agreement = 0;
    for (size_t i = 0; i < sweep.size(); ++i) {
        const RowSums& sums = m_rows[i];
        sweep[i] = {static_cast<double>(i), std::atan2(sums.planeSine, sums.planeCosine), sums.planeCount};
        returns += sums.planeCount;
        agreement += std::hypot(sums.planeSine, sums.planeCosine);
    }
    if (!(returns > 0)) return std::nullopt;
    return FoldSweep(std::move(sweep), agreement / returns);
}

// Without a fold all rows go one way: downwards, from wherever they begin.
void GridFit::LayRows(GridLayout& layout) const {
    if (std::optional<FoldedRows> folded = Fold()) {
        layout.segments = std::move(folded->segments);
        layout.gridRows = folded->gridRows;
        return;
    }
    const size_t rows = m_rows.size();
    const Line line = FitLine(Verticals({{0, rows, false, 0, false}}));
    // Sources list rows from the lowest elevation up, if nothing shows otherwise.
    const bool descending = !line.determined || line.slope <= 0;
    layout.segments = {{0, rows, false, descending ? rows - 1 : 0, descending}};
    layout.gridRows = rows;
}

// The rows' mean vertical angles at their places in the grid.
std::vector<Sample> GridFit::Verticals(const std::vector<RowSegment>& segments) const {
    std::vector<Sample> verticals;
    verticals.reserve(m_rows.size());
    for (const RowSegment& segment : segments) {
        for (uint64_t i = 0; i < segment.count; ++i) {
            const RowSums& row = m_rows[static_cast<size_t>(segment.firstRow + i)];
            const uint64_t gridRow = segment.descending ? segment.gridRow - i : segment.gridRow + i;
            verticals.push_back({static_cast<double>(gridRow), std::atan2(row.sine, row.cosine), row.count});
        }
    }
    return verticals;
}

// The columns' directions, unwrapped.
std::vector<Sample> GridFit::Azimuths(bool folded) const {
    std::vector<Sample> azimuths(m_columns.size());
    for (size_t i = 0; i < azimuths.size(); ++i) {
        const ColumnSums& sums = m_columns[i];
        const double x = folded ? sums.planeX : sums.directionX;
        const double y = folded ? sums.planeY : sums.directionY;
        azimuths[i] = {static_cast<double>(i), std::atan2(y, x), std::hypot(x, y)};
    }
    UnwrapAngles(azimuths);
    return azimuths;
}

FittedGrid GridFit::Finish() const {
    const size_t columns = m_columns.size();
    const size_t rows = m_rows.size();
    const double defaultStep = DefaultStep(columns, rows);
    FittedGrid grid;
    GridLayout& layout = grid.layout;
    layout.columns = columns;
    layout.rows = layout.gridRows = rows;
    grid.columnStep = grid.rowStep = defaultStep;
    if (columns == 0 || rows == 0) return grid;

    LayRows(layout);
    const bool folded = layout.segments.size() > 1;
    const std::vector<Sample> verticals = Verticals(layout.segments);
    const Line rowLine = FitLine(verticals);
    const std::vector<Sample> azimuths = Azimuths(folded);
    const Line columnLine = FitLine(azimuths);

    const double width = std::abs(columnLine.slope) * static_cast<double>(columns);
    const bool rowsFit = rowLine.determined && IsStep(rowLine.slope);
    const bool columnsFit =
        columnLine.determined && IsStep(std::abs(columnLine.slope)) && width <= kMostTurns * 2 * kPi;
    if (rowsFit) grid.rowStep = rowLine.slope;
    if (columnsFit) grid.columnStep = std::abs(columnLine.slope);
    // One column, or one row, has square cells.
    if (!columnsFit && rowsFit && columns == 1) grid.columnStep = grid.rowStep;
    if (!rowsFit && columnsFit && rows == 1) grid.rowStep = grid.columnStep;

    // The lines are held at the middle of the returns, whatever the steps became.
    const Anchor rowAnchor = AnchorOf(verticals, rowLine);
    grid.rowStart =
        rowAnchor.known ? rowAnchor.value - grid.rowStep * rowAnchor.position : 0.5 * grid.rowStep;

    layout.columnsReversed = columnsFit && columnLine.slope > 0;
    if (folded) {
        const auto halfTurn = static_cast<uint64_t>(std::llround(kPi / grid.columnStep));
        layout.farColumn = std::clamp<uint64_t>(halfTurn, columns, 2 * static_cast<uint64_t>(columns));
    }
    const Anchor columnAnchor = AnchorOf(azimuths, columnLine);
    const double last = static_cast<double>(columns - 1);
    double middle = columnAnchor.known ? columnAnchor.position : 0.5 * last;
    if (layout.columnsReversed) middle = last - middle;
    grid.columnStart = columnAnchor.value + grid.columnStep * middle;
    // Of all turns, the one whose angles are smallest: single precision is finest there.
    const double halfWidth = 0.5 * grid.columnStep * static_cast<double>(layout.GridColumns() - 1);
    grid.columnStart = WrapAngle(grid.columnStart - halfWidth) + halfWidth;
    return grid;
}

}  // namespace kxexchange
