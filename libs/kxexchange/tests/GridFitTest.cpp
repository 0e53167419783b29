// SPDX-License-Identifier: MIT
// The grid fit on sweeps of every orientation, over the zenith and the nadir, and on cells in no order.
#include "kxexchange/GridFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "LineFit.h"
#include "TestTools.h"

namespace kxexchange::testing {
namespace {

constexpr double kPi = std::numbers::pi;

FittedGrid Fit(const std::vector<Cell>& cells, uint64_t columns, uint64_t rows) {
    GridFit fit;
    const std::span<const Cell> all(cells);
    for (uint64_t i = 0; i < columns; ++i) {
        fit.AddColumn(all.subspan(static_cast<size_t>(i * rows), static_cast<size_t>(rows)));
    }
    return fit.Finish();
}

FittedGrid Fit(const Sweep& sweep) {
    return Fit(MakeSweep(sweep), sweep.columns, sweep.rows);
}

// What every fit must be, whatever the cells are.
void ExpectSound(const FittedGrid& grid) {
    EXPECT_TRUE(std::isfinite(grid.columnStart));
    EXPECT_TRUE(std::isfinite(grid.rowStart));
    EXPECT_GT(grid.columnStep, 0);
    EXPECT_GT(grid.rowStep, 0);
    EXPECT_LE(grid.columnStep, kPi);
    EXPECT_LE(grid.rowStep, kPi);
    EXPECT_LE(grid.columnStep * static_cast<double>(grid.layout.GridColumns()), 9 * kPi);
    EXPECT_GT(static_cast<float>(grid.columnStep), 0.0F);
    EXPECT_GT(static_cast<float>(grid.rowStep), 0.0F);
    EXPECT_TRUE(grid.layout.IsConsistent());
}

// Each return lies near its place in the grid.
void ExpectNear(const FittedGrid& grid, const std::vector<Cell>& cells, double tolerance) {
    ExpectSound(grid);
    const GridLayout& layout = grid.layout;
    for (uint64_t column = 0; column < layout.columns; ++column) {
        for (const RowSegment& segment : layout.segments) {
            for (uint64_t i = 0; i < segment.count; ++i) {
                const Cell& cell = cells[static_cast<size_t>(column * layout.rows + segment.firstRow + i)];
                if (!cell.valid) continue;
                const uint64_t gridRow = segment.descending ? segment.gridRow - i : segment.gridRow + i;
                const uint64_t gridColumn = layout.NearColumn(column) + (segment.far ? layout.farColumn : 0);
                const double flat = std::hypot(cell.x, cell.y);
                const double vertical = std::atan2(flat, cell.z);
                const double expectedV = grid.rowStart + static_cast<double>(gridRow) * grid.rowStep;
                const double expectedH = grid.columnStart - static_cast<double>(gridColumn) * grid.columnStep;
                ASSERT_NEAR(vertical, expectedV, tolerance)
                    << "column " << column << ", row " << segment.firstRow + i;
                const double across = WrapAngle(std::atan2(cell.y, cell.x) - expectedH) * std::sin(vertical);
                ASSERT_NEAR(across, 0, tolerance) << "column " << column << ", row " << segment.firstRow + i;
            }
        }
    }
}

TEST(GridFit, ExactGridsOfEveryOrientationAreFoundExactly) {
    for (const double azimuthStep : {-0.03, 0.03}) {
        for (const double angleStep : {-0.02, 0.02}) {
            Sweep sweep;
            sweep.azimuthStep = azimuthStep;
            sweep.angleStep = angleStep;
            const FittedGrid grid = Fit(sweep);
            EXPECT_EQ(grid.layout.columnsReversed, azimuthStep > 0);
            EXPECT_EQ(grid.layout.RowsReversed(), angleStep < 0);
            EXPECT_FALSE(grid.layout.Folded());
            EXPECT_NEAR(grid.columnStep, 0.03, 1e-12);
            EXPECT_NEAR(grid.rowStep, 0.02, 1e-12);
            const double lastAzimuth = sweep.firstAzimuth + 11 * azimuthStep;
            EXPECT_NEAR(WrapAngle(grid.columnStart - std::max(sweep.firstAzimuth, lastAzimuth)), 0, 1e-12);
            EXPECT_NEAR(grid.rowStart, std::min(sweep.firstAngle, sweep.firstAngle + 8 * angleStep), 1e-12);
            ExpectNear(grid, MakeSweep(sweep), 1e-11);
        }
    }
}

TEST(GridFit, AFullTurnAcrossTheSeamIsUnwrapped) {
    for (const double direction : {-1.0, 1.0}) {
        Sweep sweep;
        sweep.columns = 360;
        sweep.firstAzimuth = 2.5;
        sweep.azimuthStep = direction * 2 * kPi / 360;
        const FittedGrid grid = Fit(sweep);
        EXPECT_NEAR(grid.columnStep, 2 * kPi / 360, 1e-12);
        ExpectNear(grid, MakeSweep(sweep), 1e-10);
        // Of all turns the one around 0, where single precision is finest.
        EXPECT_LE(std::abs(grid.columnStart), 2 * kPi + 1e-9);
        EXPECT_LE(std::abs(grid.columnStart - 359 * grid.columnStep), 2 * kPi + 1e-9);
    }
}

TEST(GridFit, WobbleDriftAndHolesStayWithinTheirSize) {
    Sweep sweep;
    sweep.columns = 200;
    sweep.rows = 150;
    sweep.azimuthStep = 0.01;
    sweep.firstAngle = 2.2;
    sweep.angleStep = -0.01;
    sweep.wobble = 0.3;
    sweep.azimuthDrift = 0.02;
    sweep.missing = 0.6;
    const FittedGrid grid = Fit(sweep);
    EXPECT_TRUE(grid.layout.columnsReversed);
    EXPECT_NEAR(grid.columnStep, 0.01, 0.0001);
    EXPECT_NEAR(grid.rowStep, 0.01, 0.0001);
    ExpectNear(grid, MakeSweep(sweep), 0.02);
}

TEST(GridFit, EmptyColumnsInBetweenKeepTheirPlaces) {
    Sweep sweep;
    sweep.columns = 90;
    sweep.azimuthStep = -2 * kPi / 90;
    std::vector<Cell> cells = MakeSweep(sweep);
    // More than half a turn without a return: the step between neighbours tells how far it was.
    for (uint64_t column = 20; column < 75; ++column) {
        for (uint64_t row = 0; row < sweep.rows; ++row)
            cells[static_cast<size_t>(column * sweep.rows + row)] = {};
    }
    const FittedGrid grid = Fit(cells, sweep.columns, sweep.rows);
    EXPECT_NEAR(grid.columnStep, 2 * kPi / 90, 1e-10);
    ExpectNear(grid, cells, 1e-9);
}

TEST(GridFit, AFewStrayCellsMoveNothing) {
    Sweep sweep;
    sweep.columns = 100;
    sweep.rows = 80;
    sweep.wobble = 0.05;
    std::vector<Cell> cells = MakeSweep(sweep);
    for (uint64_t row = 0; row < sweep.rows; ++row) {
        cells[static_cast<size_t>(50 * sweep.rows + row)] =
            PolarCell(5, 4.0, 1.0);  // a column somewhere else
    }
    const FittedGrid grid = Fit(cells, sweep.columns, sweep.rows);
    EXPECT_NEAR(grid.columnStep, 0.03, 0.00005);
    EXPECT_NEAR(grid.rowStep, 0.02, 0.0005);
}

struct FoldCase {
    const char* name;
    double firstAngle;
    double angleStep;
    uint64_t rows;
    std::vector<RowSegment> segments;
    uint64_t gridRows;
};
void PrintTo(const FoldCase& fold, std::ostream* out) {
    *out << fold.name;
}

class Fold : public ::testing::TestWithParam<FoldCase> {};

TEST_P(Fold, EveryCellFindsItsPlaceInTwoBlocks) {
    const FoldCase& fold = GetParam();
    for (const double direction : {-1.0, 1.0}) {
        for (const double missing : {0.0, 0.4}) {
            Sweep sweep;
            sweep.columns = 180;
            sweep.rows = fold.rows;
            sweep.firstAzimuth = 0.4;
            sweep.azimuthStep = direction * kPi / 180;
            sweep.firstAngle = fold.firstAngle;
            sweep.angleStep = fold.angleStep;
            sweep.missing = missing;
            const std::vector<Cell> cells = MakeSweep(sweep);
            const FittedGrid grid = Fit(cells, sweep.columns, sweep.rows);
            EXPECT_TRUE(grid.layout.Folded());
            EXPECT_EQ(grid.layout.farColumn, 180U);
            EXPECT_EQ(grid.layout.columnsReversed, direction > 0);
            EXPECT_EQ(grid.layout.segments, fold.segments);
            EXPECT_EQ(grid.layout.gridRows, fold.gridRows);
            EXPECT_NEAR(grid.columnStep, kPi / 180, 1e-6);
            // The two sides need not sample the same vertical angles: half a step between them.
            ExpectNear(grid, cells, 0.51 * std::abs(fold.angleStep));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    GridFit, Fold,
    ::testing::Values(
        // Up on one side, over the zenith, down on the other.
        FoldCase{"OverTheZenith", -1.98, 0.04, 100, {{0, 50, true, 49, true}, {50, 50, false, 0, false}}, 50},
        FoldCase{"OverTheZenithTheOtherWay",
                 1.98,
                 -0.04,
                 100,
                 {{0, 50, true, 49, true}, {50, 50, false, 0, false}},
                 50},
        FoldCase{"OverTheZenithUnevenly",
                 -0.98,
                 0.04,
                 80,
                 {{0, 25, true, 24, true}, {25, 55, false, 0, false}},
                 55},
        // A row at the zenith: the other side begins one row below it.
        FoldCase{
            "ThroughTheZenith", -1.999, 0.04, 100, {{0, 50, true, 50, true}, {50, 50, false, 0, false}}, 51},
        // Down on one side, under the nadir, up on the other; no row starts at the zenith.
        FoldCase{
            "UnderTheNadir", kPi - 1.02, 0.04, 50, {{0, 26, false, 0, false}, {26, 24, true, 25, true}}, 26},
        // A whole circle: under the nadir, over the zenith, and down to where it began.
        FoldCase{"AWholeCircle",
                 8.5 * 2 * kPi / 100,
                 2 * kPi / 100,
                 100,
                 {{0, 42, false, 8, false}, {42, 50, true, 49, true}, {92, 8, false, 0, false}},
                 50}),
    [](const auto& test) { return test.param.name; });

TEST(GridFit, ASweepNarrowerThanHalfATurnLeavesAGapBeforeItsFarSide) {
    Sweep sweep;
    sweep.columns = 100;
    sweep.rows = 100;
    sweep.azimuthStep = -kPi / 150;
    sweep.firstAngle = -1.98;
    sweep.angleStep = 0.04;
    const FittedGrid grid = Fit(sweep);
    EXPECT_EQ(grid.layout.farColumn, 150U);
    ExpectNear(grid, MakeSweep(sweep), 0.021);
    // But a grid is never more than doubled for it.
    sweep.azimuthStep = -kPi / 1000;
    EXPECT_EQ(Fit(sweep).layout.farColumn, 200U);
}

TEST(GridFit, AColumnThatOnlyOvershootsTheZenithIsNotFolded) {
    Sweep sweep;
    sweep.columns = 180;
    sweep.rows = 400;
    sweep.azimuthStep = -2 * kPi / 180;
    sweep.firstAngle = 2.0;
    sweep.angleStep = -2.01 / 399;  // two rows beyond it
    const FittedGrid grid = Fit(sweep);
    EXPECT_FALSE(grid.layout.Folded());
    EXPECT_TRUE(grid.layout.RowsReversed());
    EXPECT_NEAR(grid.rowStep, 2.01 / 399, 1e-4);
    ExpectSound(grid);
}

TEST(GridFit, FoldedRowsWithoutReturnsAreCutByTheLine) {
    Sweep sweep;
    sweep.columns = 180;
    sweep.rows = 100;
    sweep.azimuthStep = -kPi / 180;
    sweep.firstAngle = -1.98;
    sweep.angleStep = 0.04;
    std::vector<Cell> cells = MakeSweep(sweep);
    for (size_t i = 0; i < cells.size(); ++i) {
        if (i % 100 >= 30 && i % 100 < 60) cells[i] = {};  // open sky
    }
    const FittedGrid grid = Fit(cells, sweep.columns, sweep.rows);
    const std::vector<RowSegment> expected{{0, 50, true, 49, true}, {50, 50, false, 0, false}};
    EXPECT_EQ(grid.layout.segments, expected);
    ExpectNear(grid, cells, 0.021);
}

TEST(GridFit, DegenerateGridsAreFiniteWithPositiveSteps) {
    const Cell none;
    // No returns at all; one column; one row; one cell; all returns in one direction.
    ExpectSound(Fit(std::vector<Cell>(20, none), 5, 4));
    ExpectSound(Fit({PolarCell(1, 2, 1)}, 1, 1));
    ExpectSound(Fit({none}, 1, 1));
    ExpectSound(Fit(std::vector<Cell>(20, PolarCell(3, 1, 1)), 5, 4));
    ExpectSound(Fit(std::vector<Cell>(20, PolarCell(3, 0, 0)), 5, 4));
    ExpectSound(Fit(std::vector<Cell>(20, PolarCell(3, 0, kPi)), 4, 5));
    Sweep sweep;
    sweep.columns = 1;
    const FittedGrid column = Fit(sweep);
    ExpectSound(column);
    EXPECT_NEAR(column.rowStep, 0.02, 1e-12);
    EXPECT_EQ(column.columnStep, column.rowStep);
    sweep.columns = 12;
    sweep.rows = 1;
    const FittedGrid row = Fit(sweep);
    ExpectSound(row);
    EXPECT_NEAR(row.columnStep, 0.03, 1e-12);
    EXPECT_EQ(row.rowStep, row.columnStep);
}

TEST(GridFit, ExtremeCoordinatesDoNotOverflow) {
    for (const double scale : {1e-300, 1e-160, 1e160, 1e300}) {
        std::vector<Cell> cells = MakeSweep({});
        for (Cell& cell : cells) {
            cell.x *= scale;
            cell.y *= scale;
            cell.z *= scale;
        }
        const FittedGrid grid = Fit(cells, 12, 9);
        ExpectSound(grid);
        EXPECT_NEAR(grid.columnStep, 0.03, 1e-9);
        EXPECT_NEAR(grid.rowStep, 0.02, 1e-9);
    }
}

TEST(GridFit, CellsInNoOrderEndInASoundGridWithoutAFold) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> uniform(-1, 1);
    for (const auto& [columns, rows] :
         {std::pair<uint64_t, uint64_t>{1, 3000}, {3000, 1}, {60, 50}, {2, 2}}) {
        std::vector<Cell> cells(static_cast<size_t>(columns * rows));
        for (Cell& cell : cells) {
            cell.x = 10 * uniform(random);
            cell.y = 10 * uniform(random);
            cell.z = 10 * uniform(random);
            cell.valid = true;
        }
        const FittedGrid grid = Fit(cells, columns, rows);
        ExpectSound(grid);
        EXPECT_TRUE(rows <= 2 || !grid.layout.Folded());
    }
}

TEST(GridFit, PointsOnAPlaneFarAwayEndInASoundGrid) {
    // Airborne points in world coordinates, row by row.
    std::vector<Cell> cells;
    for (int i = 0; i < 15 * 71; ++i) {
        Cell cell;
        cell.x = 637012 - i % 71 * 12.5;
        cell.y = 849028 + i / 71 * 11.0;
        cell.z = 430 + i % 13;
        cell.valid = true;
        cells.push_back(cell);
    }
    const FittedGrid grid = Fit(cells, 15, 71);
    ExpectSound(grid);
    EXPECT_FALSE(grid.layout.Folded());
}

TEST(LineFit, OutliersLoseTheirWeight) {
    std::vector<Sample> samples;
    for (int i = 0; i < 50; ++i)
        samples.push_back({double(i), 3 - 0.5 * i + 0.001 * (i % 3 - 1), 1});
    samples[20].value += 100;
    samples[45].value -= 70;
    const Line line = FitLine(samples);
    ASSERT_TRUE(line.determined);
    EXPECT_NEAR(line.slope, -0.5, 1e-4);
    EXPECT_NEAR(line.intercept, 3, 2e-3);
}

TEST(LineFit, OnePlaceDeterminesNoSlope) {
    const std::vector<Sample> one{{4, 7, 2}, {5, 0, 0}};
    const Line line = FitLine(one);
    EXPECT_FALSE(line.determined);
    EXPECT_EQ(line.slope, 0);
    EXPECT_EQ(line.intercept, 7);
    EXPECT_FALSE(FitLine({}).determined);
}

TEST(LineFit, AnglesAreUnwrappedAlongTheTypicalStep) {
    // Steps of 100 degrees, of which every third sample is missing: single gaps hide no turn.
    std::vector<Sample> samples;
    const double step = 100 * kPi / 180;
    for (int i = 0; i < 30; ++i)
        samples.push_back({double(i), WrapAngle(i * step), i % 3 == 2 ? 0.0 : 1.0});
    UnwrapAngles(samples);
    for (int i = 0; i < 30; ++i) {
        if (i % 3 == 2) continue;
        EXPECT_NEAR(samples[static_cast<size_t>(i)].value, i * step, 1e-9);
    }
}

}  // namespace
}  // namespace kxexchange::testing
