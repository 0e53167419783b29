// SPDX-License-Identifier: MIT
#include "kxexchange/GridFit.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "LineFit.h"

namespace kxexchange {

namespace {

constexpr double kPi = std::numbers::pi;

// Steps below this cannot be told apart in single precision at these magnitudes; no instrument has them.
constexpr double kLeastStep = 1e-6;
// A grid that would go round more often than this is no sweep: its cells are in no angular order.
constexpr double kMostTurns = 2.02;
// A fold needs more rows than this behind it (a sweep that merely overshoots the zenith is not folded) ...
constexpr size_t kLeastFoldRows = 2;
constexpr double kLeastFoldShare = 0.01;
// ... rows that agree across the columns, and an angle that grows along them, nearly in a line.
constexpr double kLeastAgreement = 0.9;
constexpr double kMostRowResidual = 0.15;
constexpr double kMostSweep = 2 * kPi + 0.1;

// Rows between two crossings of the vertical axis, on one side of it.
struct Stretch {
    size_t first = 0;
    size_t count = 0;
    bool far = false;
    bool towardsZenith = false;  // the vertical angle falls along the rows
    double top = 0;              // least vertical angle
};

// Rows that overshoot the axis go on in the rows of the stretch before them.
void Join(Stretch& kept, const Stretch& overshoot, double step, bool atTop) {
    kept.count += overshoot.count;
    if (atTop) kept.top -= step * static_cast<double>(overshoot.count);
}

double DefaultStep(size_t columns, size_t rows) {
    return std::min(2 * kPi / static_cast<double>(std::max<size_t>(columns, 4)),
                    kPi / static_cast<double>(std::max<size_t>(rows, 2)));
}

// Cuts the rows where the sweep's angle passes a multiple of pi: even ones are the zenith, odd the nadir.
std::vector<Stretch> CutAtAxis(const std::vector<Sample>& rows, const Line& line) {
    std::vector<Stretch> stretches;
    const size_t count = rows.size();
    // Angle of each row, of the line where no return says otherwise; made to grow, so that noise at the
    // axis cuts once.
    std::vector<double> angle(count);
    double shift = 0;
    size_t known = 0;
    for (size_t i = 0; i < count; ++i) {
        if (rows[i].weight > 0) {
            shift += rows[i].value - line.At(static_cast<double>(i));
            ++known;
        }
    }
    if (known != 0) shift /= static_cast<double>(known);
    for (size_t i = 0; i < count; ++i) {
        angle[i] = rows[i].weight > 0 ? rows[i].value : line.At(static_cast<double>(i)) + shift;
    }
    std::sort(angle.begin(), angle.end());
    for (size_t i = 0; i < count; ++i) {
        const double side = std::floor(angle[i] / kPi);
        if (i == 0 || side != std::floor(angle[i - 1] / kPi)) {
            Stretch stretch;
            stretch.first = i;
            // Between 0 and pi (even sides) the vertical angle is the sweep's own and grows.
            stretch.far = stretch.towardsZenith = std::fmod(std::abs(side), 2) == 1;
            stretches.push_back(stretch);
        }
        Stretch& last = stretches.back();
        ++last.count;
        const double vertical = std::abs(WrapAngle(angle[i]));
        last.top = last.count == 1 ? vertical : std::min(last.top, vertical);
    }
    return stretches;
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

FittedGrid GridFit::Finish() const {
    const size_t columns = m_columns.size();
    const size_t rows = m_rows.size();
    FittedGrid grid;
    grid.layout.columns = columns;
    grid.layout.rows = rows;
    if (columns == 0 || rows == 0) {
        grid.columnStep = grid.rowStep = DefaultStep(columns, rows);
        grid.layout.gridRows = rows;
        return grid;
    }

    // Does the sweep pass over the axis?
    std::vector<Sample> sweep(rows);
    double returns = 0, agreement = 0;
    for (size_t i = 0; i < rows; ++i) {
        const RowSums& sums = m_rows[i];
        sweep[i] = {static_cast<double>(i), std::atan2(sums.planeSine, sums.planeCosine), sums.planeCount};
        returns += sums.planeCount;
        agreement += std::hypot(sums.planeSine, sums.planeCosine);
    }
    UnwrapAngles(sweep);
    const Line sweepLine = FitLine(sweep);
    std::vector<Stretch> stretches;
    if (sweepLine.determined && sweepLine.slope > 0 &&
        sweepLine.slope * static_cast<double>(rows - 1) <= kMostSweep &&
        agreement >= kLeastAgreement * returns && LineResidual(sweep, sweepLine) <= kMostRowResidual) {
        stretches = CutAtAxis(sweep, sweepLine);
        // Stretches of a few rows at either end join their neighbour: those cells merely overshoot.
        const size_t least =
            std::max(kLeastFoldRows, static_cast<size_t>(kLeastFoldShare * static_cast<double>(rows)));
        while (stretches.size() > 1 && stretches.front().count <= least) {
            Join(stretches[1], stretches[0], sweepLine.slope, !stretches[1].towardsZenith);
            stretches[1].first = stretches[0].first;
            stretches.erase(stretches.begin());
        }
        while (stretches.size() > 1 && stretches.back().count <= least) {
            Stretch& kept = stretches[stretches.size() - 2];
            Join(kept, stretches.back(), sweepLine.slope, kept.towardsZenith);
            stretches.pop_back();
        }
    }
    const bool folded = stretches.size() > 1;

    // Columns.
    std::vector<Sample> azimuths(columns);
    for (size_t i = 0; i < columns; ++i) {
        const double x = folded ? m_columns[i].planeX : m_columns[i].directionX;
        const double y = folded ? m_columns[i].planeY : m_columns[i].directionY;
        azimuths[i] = {static_cast<double>(i), std::atan2(y, x), std::hypot(x, y)};
    }
    UnwrapAngles(azimuths);
    const Line columnLine = FitLine(azimuths);

    // Rows, as vertical angles at places along the grid.
    std::vector<Sample> verticals;
    verticals.reserve(rows);
    if (folded) {
        const double least =
            std::min_element(stretches.begin(), stretches.end(), [](const auto& a, const auto& b) {
                return a.top < b.top;
            })->top;
        const double step = std::max(sweepLine.slope, kLeastStep);
        // In each block the stretches follow each other downwards without sharing rows.
        std::vector<size_t> order(stretches.size());
        for (size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::sort(order.begin(), order.end(),
                  [&](size_t a, size_t b) { return stretches[a].top < stretches[b].top; });
        uint64_t ends[2] = {0, 0};
        std::vector<uint64_t> tops(stretches.size());
        for (const size_t i : order) {
            const Stretch& stretch = stretches[i];
            const auto offset = static_cast<uint64_t>(std::llround((stretch.top - least) / step));
            tops[i] = std::max(std::min<uint64_t>(offset, rows), ends[stretch.far]);
            ends[stretch.far] = tops[i] + stretch.count;
        }
        grid.layout.gridRows = std::max(ends[0], ends[1]);
        for (size_t i = 0; i < stretches.size(); ++i) {
            const Stretch& stretch = stretches[i];
            RowSegment segment;
            segment.firstRow = stretch.first;
            segment.count = stretch.count;
            segment.far = stretch.far;
            segment.descending = stretch.towardsZenith;
            segment.gridRow = segment.descending ? tops[i] + stretch.count - 1 : tops[i];
            grid.layout.segments.push_back(segment);
        }
    } else {
        for (size_t i = 0; i < rows; ++i) {
            verticals.push_back(
                {static_cast<double>(i), std::atan2(m_rows[i].sine, m_rows[i].cosine), m_rows[i].count});
        }
        const Line line = FitLine(verticals);
        // Sources list rows from the lowest elevation up, if nothing shows otherwise.
        const bool descending = !line.determined || line.slope <= 0;
        grid.layout.gridRows = rows;
        grid.layout.segments.push_back({0, rows, false, descending ? rows - 1 : 0, descending});
        verticals.clear();
    }
    for (const RowSegment& segment : grid.layout.segments) {
        for (uint64_t i = 0; i < segment.count; ++i) {
            const auto row = static_cast<size_t>(segment.firstRow + i);
            const uint64_t gridRow = segment.descending ? segment.gridRow - i : segment.gridRow + i;
            verticals.push_back({static_cast<double>(gridRow),
                                 std::atan2(m_rows[row].sine, m_rows[row].cosine), m_rows[row].count});
        }
    }
    const Line rowLine = FitLine(verticals);

    const double defaultStep = DefaultStep(columns, rows);
    double rowStep = rowLine.determined ? rowLine.slope : 0;
    const bool rowsFit = rowStep >= kLeastStep && rowStep <= kPi;
    if (!rowsFit) rowStep = defaultStep;
    double columnStep = columnLine.determined ? std::abs(columnLine.slope) : 0;
    const bool columnsFit = columnStep >= kLeastStep && columnStep <= kPi &&
                            columnStep * static_cast<double>(columns) <= kMostTurns * 2 * kPi;
    if (!columnsFit) columnStep = rowsFit && columns == 1 ? rowStep : defaultStep;
    if (!rowsFit && columnsFit && rows == 1) rowStep = columnStep;

    // The line through the rows is kept at their middle, whatever the step.
    double anyWeight = 0;
    double middleRow = 0;
    for (const Sample& sample : verticals) {
        anyWeight += sample.weight;
        middleRow += sample.weight * sample.position;
    }
    if (anyWeight > 0) {
        middleRow /= anyWeight;
        grid.rowStart = rowLine.At(middleRow) - rowStep * middleRow;
    } else {
        grid.rowStart = 0.5 * rowStep;
    }
    grid.rowStep = rowStep;

    grid.layout.columnsReversed = columnsFit && columnLine.slope > 0;
    grid.columnStep = columnStep;
    if (folded) {
        const auto halfTurn = static_cast<uint64_t>(std::llround(kPi / columnStep));
        grid.layout.farColumn = std::clamp<uint64_t>(halfTurn, columns, 2 * static_cast<uint64_t>(columns));
    }
    double middleColumn = 0;
    double columnWeight = 0;
    for (const Sample& sample : azimuths) {
        columnWeight += sample.weight;
        middleColumn += sample.weight * sample.position;
    }
    double azimuth = 0;
    if (columnWeight > 0) {
        middleColumn /= columnWeight;
        azimuth = columnLine.At(middleColumn);
        if (grid.layout.columnsReversed) middleColumn = static_cast<double>(columns - 1) - middleColumn;
    } else {
        middleColumn = 0.5 * static_cast<double>(columns - 1);
    }
    // Of all turns, the one whose angles are smallest: single precision is finest there.
    grid.columnStart = azimuth + columnStep * middleColumn;
    const double halfWidth = 0.5 * columnStep * static_cast<double>(grid.layout.GridColumns() - 1);
    grid.columnStart = WrapAngle(grid.columnStart - halfWidth) + halfWidth;
    return grid;
}

}  // namespace kxexchange
