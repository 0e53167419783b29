// SPDX-License-Identifier: MIT
// Directions and points to grid cells and back.
#include "kxio/CoordConverter3D.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "geometry/GridProjection.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/LineCache.h"
#include "support/InterruptedStream.h"
#include "support/ScanFileBuilder.h"

namespace {

using kxbase::Angles;
using kxbase::ImageCoordinates;
using kxbase::QSNCoordinates;
using kxbase::QSNIndexCoordinates;
using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

constexpr float kStep = 0.02f;
constexpr uint32_t kFullColumns = 314;  // 314 x 0.02 = 6.28: closes around the horizon

struct GridSpec {
    uint32_t columns = 20;
    uint32_t rows = 12;
    uint32_t patchWidth = 8;
    uint32_t patchHeight = 8;
    float columnStart = 0.5f;
    float rowStart = 1.0f;
    float step = kStep;
};

// Angles of a cell, as the test scans store them: exactly on the grid.
float Horizontal(const GridSpec& g, uint32_t column) {
    return g.columnStart - static_cast<float>(column) * g.step;
}
float Vertical(const GridSpec& g, uint32_t row) {
    return g.rowStart + static_cast<float>(row) * g.step;
}
float RangeOf(uint32_t row, uint32_t column) {
    return 1000.0f + static_cast<float>(10 * row + column);
}

// A quantised scan (0.1 mm, 1e-6 rad) whose cells lie on the grid. `hasReturn` says which have a return.
template <class HasReturn>
kxtest::ScanFileBuilder Scan(const GridSpec& g, const HasReturn& hasReturn) {
    kxtest::ScanFileBuilder file(g.columns, g.rows, g.patchWidth, g.patchHeight);
    auto& grid = file.properties.grid;
    grid.columnStartAngle = g.columnStart;
    grid.rowStartAngle = g.rowStart;
    grid.columnAngularStep = g.step;
    grid.rowAngularStep = g.step;
    for (uint32_t pr = 0; pr < grid.PatchesPerColumn(); ++pr) {
        for (uint32_t pc = 0; pc < grid.PatchesPerRow(); ++pc) {
            std::vector<float> range;
            std::vector<float> vertical;
            std::vector<float> horizontal;
            for (uint32_t r = 0; r < g.patchHeight; ++r) {
                for (uint32_t c = 0; c < g.patchWidth; ++c) {
                    const uint32_t row = pr * g.patchHeight + r;
                    const uint32_t column = pc * g.patchWidth + c;
                    const bool inside = row < g.rows && column < g.columns;
                    range.push_back(inside && hasReturn(row, column) ? RangeOf(row, column) : 0);
                    vertical.push_back(Vertical(g, row));
                    horizontal.push_back(Horizontal(g, column));
                }
            }
            file.Chunk(1, pr, pc, kxtest::SnappyChunk(range, g.patchWidth, g.patchHeight, 10.0f));
            file.Chunk(2, pr, pc, kxtest::SnappyChunk(vertical, g.patchWidth, g.patchHeight, 1e6f));
            file.Chunk(3, pr, pc, kxtest::SnappyChunk(horizontal, g.patchWidth, g.patchHeight, 1e6f));
        }
    }
    return file;
}
kxtest::ScanFileBuilder FullScan(const GridSpec& g) {
    return Scan(g, [](uint32_t, uint32_t) { return true; });
}

class Converter : public kxio::CoordConverter3D {
public:
    using CoordConverter3D::CoordConverter3D;
    using CoordConverter3D::IsInCache;
    using CoordConverter3D::IsSamePoint;
};

// What a cell's index pair stands for.
ImageCoordinates Cell(const Converter& converter, const QSNIndexCoordinates& index) {
    const auto& grid = converter.GetScanInformation().grid;
    const uint32_t perRow = grid.PatchesPerRow();
    return {
        static_cast<int32_t>(index.patchIndex / perRow * grid.patchHeight + index.index / grid.patchWidth),
        static_cast<int32_t>(index.patchIndex % perRow * grid.patchWidth + index.index % grid.patchWidth)};
}

template <class Call>
void ExpectNotFound(const Call& call) {
    try {
        call();
        ADD_FAILURE() << "something was found";
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_STREQ(e.what(), "Coordinate not found");
    }
}

TEST(GetPoint, GivesTheStoredPointOfACell) {
    const GridSpec g;
    kxbase::InMemoryStream stream(FullScan(g).Build());
    const Converter converter(&stream);
    const PolarPoint point = converter.GetPoint(QSNCoordinates{1, 2, 3, 1});  // row 11, column 17
    EXPECT_NEAR(point.range, RangeOf(11, 17), 0.06);
    EXPECT_NEAR(point.horizontal, Horizontal(g, 17), 1e-6);
    EXPECT_NEAR(point.vertical, Vertical(g, 11), 1e-6);
    EXPECT_EQ(converter.GetPoint(QSNIndexCoordinates{5, 8 * 3 + 1}), point);
}

TEST(GetPoint, CellsOutsideAreTheInvalidPoint) {
    kxbase::InMemoryStream stream(FullScan({}).Build());
    const Converter converter(&stream);
    for (const QSNCoordinates& cell : {QSNCoordinates{-1, 0, 0, 0},
                                       {0, -1, 0, 0},
                                       {0, 0, -1, 0},
                                       {0, 0, 0, -1},
                                       {2, 0, 0, 0},
                                       {0, 3, 0, 0},
                                       {0, 0, 12, 0},
                                       {0, 0, 0, 20},
                                       {0, 0, 8, 0}}) {
        EXPECT_EQ(converter.GetPoint(cell), PolarPoint(-1, -1, -1))
            << cell.patchRow << " " << cell.patchColumn << " " << cell.row << " " << cell.column;
    }
    EXPECT_EQ(converter.GetPoint(QSNIndexCoordinates{6, 0}), PolarPoint::Invalid());
    EXPECT_EQ(converter.GetPoint(QSNIndexCoordinates{0xffffffffu, 0xffffffffu}), PolarPoint::Invalid());
}

TEST(GetPoint, AColumnBeyondThePatchPassesAndAliasesTheNextRow) {
    kxbase::InMemoryStream stream(FullScan({}).Build());
    const Converter converter(&stream);
    EXPECT_EQ(converter.GetPoint(QSNCoordinates{0, 0, 0, 8}), converter.GetPoint(QSNCoordinates{0, 0, 1, 0}));
    EXPECT_NE(converter.GetPoint(QSNCoordinates{0, 0, 0, 8}), PolarPoint::Invalid());
}

TEST(GetPoint, AnUnreadablePatchIsInvalidEveryTimeAndNeverCached) {
    auto file = FullScan({});
    file.Chunk(2, 1, 1, kxtest::Bytes(40, 9));
    file.Entry0(3, 1, 0, 0);
    file.Chunk(1, 0, 2, kxtest::SnappyChunk(std::vector<uint16_t>(64, 1), 8, 8));
    kxbase::InMemoryStream stream(file.Build());
    const Converter converter(&stream);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(converter.GetPoint(QSNCoordinates{1, 1, 0, 0}), PolarPoint::Invalid());
        EXPECT_EQ(converter.GetPoint(QSNCoordinates{0, 1, 0, 0}), PolarPoint::Invalid());
        EXPECT_EQ(converter.GetPoint(QSNCoordinates{0, 2, 0, 0}), PolarPoint::Invalid());
        EXPECT_FALSE(converter.IsInCache({1, 1}, kxbase::Range));
    }
    EXPECT_NE(converter.GetPoint(QSNCoordinates{1, 0, 0, 0}), PolarPoint::Invalid());
    EXPECT_TRUE(converter.IsInCache({1, 0}, kxbase::Range));
    EXPECT_TRUE(converter.IsInCache({1, 0}, kxbase::HorizontalAngle));
    EXPECT_FALSE(converter.IsInCache({1, 0}, kxbase::Luminance8));
}

TEST(GetPoint, WhateverTheStreamThrowsIsTheInvalidPointAndReleasesTheLock) {
    kxtest::InterruptedStream stream(FullScan({}).Build());
    const Converter converter(&stream);
    stream.beforeRead = [] { throw 7; };
    EXPECT_EQ(converter.GetPoint(QSNCoordinates{1, 1, 0, 0}), PolarPoint::Invalid());
    stream.beforeRead = nullptr;
    EXPECT_NE(converter.GetPoint(QSNCoordinates{1, 1, 0, 0}), PolarPoint::Invalid());
}

TEST(ClosestCell, OfAPointFromACellsOwnValuesIsThatCell) {
    GridSpec full;
    full.columns = kFullColumns;
    for (const GridSpec& g : {GridSpec{}, full}) {
        kxbase::InMemoryStream stream(FullScan(g).Build());
        const Converter converter(&stream);
        for (uint32_t row = 0; row < g.rows; ++row) {
            for (uint32_t column = 0; column < g.columns; ++column) {
                const QSNCoordinates cell =
                    kxio::ToPatchCoordinates(converter.GetScanInformation().grid,
                                             {static_cast<int32_t>(row), static_cast<int32_t>(column)});
                const XYZPoint point(converter.GetPoint(cell));
                const ImageCoordinates found = Cell(converter, converter.GetClosestQSNCoordinate(point));
                ASSERT_EQ(found, (ImageCoordinates{static_cast<int32_t>(row), static_cast<int32_t>(column)}));
            }
        }
    }
}

TEST(ClosestCell, APointThatNoCellStoresIsNotFound) {
    kxbase::InMemoryStream stream(FullScan({}).Build());
    const Converter converter(&stream);
    const PolarPoint stored = converter.GetPoint(QSNCoordinates{0, 0, 4, 4});
    ExpectNotFound([&] {
        converter.GetClosestQSNCoordinate(
            XYZPoint(PolarPoint(stored.range + 1, stored.horizontal, stored.vertical)));
    });
    ExpectNotFound([&] {
        converter.GetClosestQSNCoordinate(
            XYZPoint(PolarPoint(stored.range, stored.horizontal + kStep / 2, stored.vertical)));
    });
    ExpectNotFound([&] { converter.GetClosestQSNCoordinate(XYZPoint(0, 0, 0)); });
}

TEST(ClosestCell, NumbersWithoutAPlaceAreNotFoundAndEndAtOnce) {
    kxbase::InMemoryStream stream(FullScan({}).Build());
    const Converter converter(&stream);
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const float odd : {inf, -inf, nan}) {
        ExpectNotFound([&] { converter.GetClosestQSNCoordinate(XYZPoint(odd, 1, 1)); });
        ExpectNotFound([&] { converter.GetClosestValidQSNCoordinate({odd, 1.0f}); });
        ExpectNotFound([&] { converter.GetClosestValidQSNCoordinate({0.4f, odd}); });
    }
    // A huge but finite angle is some direction: it ends, found or not.
    try {
        converter.GetClosestValidQSNCoordinate({1e30f, 1.1f});
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_STREQ(e.what(), "Coordinate not found");
    }
}

TEST(ClosestCell, GridsWithoutExtentHaveNoPlaces) {
    for (const auto& change : std::vector<void (*)(kxbase::GridTopology&)>{
             [](kxbase::GridTopology& g) { g.columnAngularStep = 0; },
             [](kxbase::GridTopology& g) { g.rowAngularStep = 0; },
             [](kxbase::GridTopology& g) { g.columnStartAngle = 1e30f; },
             [](kxbase::GridTopology& g) { g.rowStartAngle = std::numeric_limits<float>::quiet_NaN(); }}) {
        auto file = FullScan({});
        change(file.properties.grid);
        kxbase::InMemoryStream stream(file.Build());
        const Converter converter(&stream);
        ExpectNotFound([&] { converter.GetClosestValidQSNCoordinate({0.4f, 1.1f}); });
    }
}

TEST(ClosestValidCell, IsTheCellOfTheDirectionOrANeighbourWithAReturn) {
    const GridSpec g;
    auto file = Scan(g, [](uint32_t row, uint32_t column) { return !(row == 5 && column == 9); });
    kxbase::InMemoryStream stream(file.Build());
    const Converter converter(&stream);
    const auto at = [&](float row, float column) {
        return Cell(converter, converter.GetClosestValidQSNCoordinate(
                                   {g.columnStart - column * g.step, g.rowStart + row * g.step}));
    };
    EXPECT_EQ(at(5, 8), (ImageCoordinates{5, 8}));
    EXPECT_EQ(at(5.3f, 8.2f), (ImageCoordinates{5, 8}));
    EXPECT_EQ(at(5, 9.2f), (ImageCoordinates{5, 10}));  // (5, 9) has no return
}

TEST(ClosestValidCell, ABlockWithoutReturnsIsNotFound) {
    const GridSpec g;
    auto file = Scan(g, [](uint32_t row, uint32_t column) { return row > 8 || column > 12; });
    kxbase::InMemoryStream stream(file.Build());
    const Converter converter(&stream);
    ExpectNotFound([&] { converter.GetClosestValidQSNCoordinate({Horizontal(g, 4), Vertical(g, 4)}); });
    ExpectNotFound([&] { converter.GetClosestValidQSNCoordinate({Horizontal(g, 10), Vertical(g, 6)}); });
    EXPECT_NO_THROW(converter.GetClosestValidQSNCoordinate({Horizontal(g, 11), Vertical(g, 6)}));
}

TEST(ClosestValidCell, ADirectionOutsideTheGridIsToldInDegreesWithTheGridsReach) {
    kxbase::InMemoryStream stream(FullScan({}).Build());  // 20 columns from 0.5 down, 12 rows from 1 down
    const Converter converter(&stream);
    try {
        converter.GetClosestValidQSNCoordinate({-1.0f, 1.1f});
        FAIL() << "something was found";
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_STREQ(e.what(), "Coordinate not found");
        EXPECT_EQ(
            e.Context().detail,
            "the direction of -57.30 degrees horizontally and 63.03 from the zenith is outside the grid "
            "of 12 rows and 20 columns, which reaches from 6.30 to 29.22 and 56.72 to 70.47 degrees, "
            "and no cell near by has a return");
    }
}

TEST(ClosestValidCell, AmongEqualDistancesTheCentreAndThenHigherRowsAndColumnsWin) {
    // Several cells store one direction: all are equally far from it.
    GridSpec g;
    auto file = FullScan(g);
    const std::set<uint32_t> same{8 * 3 + 3, 8 * 3 + 5, 8 * 5 + 3, 8 * 5 + 5, 8 * 4 + 4};
    const auto rewrite = [&](bool withCentre) {
        std::vector<float> range;
        std::vector<float> vertical;
        std::vector<float> horizontal;
        for (uint32_t i = 0; i < 64; ++i) {
            const bool chosen = same.count(i) != 0 && (withCentre || i != 8 * 4 + 4);
            range.push_back(chosen ? 1000.0f : 0.0f);
            vertical.push_back(Vertical(g, 4));
            horizontal.push_back(Horizontal(g, 4));
        }
        file.Chunk(1, 0, 0, kxtest::SnappyChunk(range, 8, 8, 10.0f));
        file.Chunk(2, 0, 0, kxtest::SnappyChunk(vertical, 8, 8, 1e6f));
        file.Chunk(3, 0, 0, kxtest::SnappyChunk(horizontal, 8, 8, 1e6f));
    };
    for (const auto& [withCentre, expected] :
         {std::pair{true, ImageCoordinates{4, 4}}, {false, ImageCoordinates{5, 5}}}) {
        rewrite(withCentre);
        kxbase::InMemoryStream stream(file.Build());
        const Converter converter(&stream);
        EXPECT_EQ(Cell(converter, converter.GetClosestValidQSNCoordinate({Horizontal(g, 4), Vertical(g, 4)})),
                  expected);
    }
}

kxbase::GridTopology Topology(const GridSpec& g) {
    kxbase::GridTopology grid;
    grid.columnStartAngle = g.columnStart;
    grid.rowStartAngle = g.rowStart;
    grid.columnAngularStep = g.step;
    grid.rowAngularStep = g.step;
    grid.columns = g.columns;
    grid.rows = g.rows;
    grid.patchWidth = g.patchWidth;
    grid.patchHeight = g.patchHeight;
    grid.UpdateHalfSteps();
    return grid;
}

TEST(SearchOrder, TheCentreComesFirstThenFromTheHighestRowAndColumnDown) {
    const auto cells = kxio::SearchOrder(Topology({}), {5, 9});
    ASSERT_EQ(cells.size(), 25u);
    EXPECT_EQ(cells[0], (ImageCoordinates{5, 9}));
    EXPECT_EQ(cells[1], (ImageCoordinates{7, 11}));
    EXPECT_EQ(cells[2], (ImageCoordinates{7, 10}));
    EXPECT_EQ(cells[24], (ImageCoordinates{3, 7}));
}

TEST(SearchOrder, AFullTurnWrapsAroundAndAPartialGridDropsNeighbours) {
    GridSpec full;
    full.columns = kFullColumns;
    const auto around = kxio::SearchOrder(Topology(full), {5, 0});
    EXPECT_EQ(around.size(), 25u);
    EXPECT_EQ(std::count(around.begin(), around.end(), ImageCoordinates{5, kFullColumns - 1}), 1);
    EXPECT_EQ(std::count(around.begin(), around.end(), ImageCoordinates{7, kFullColumns - 2}), 1);
    const auto right = kxio::SearchOrder(Topology(full), {5, kFullColumns - 1});
    EXPECT_EQ(std::count(right.begin(), right.end(), ImageCoordinates{5, 1}), 1);

    const auto partial = kxio::SearchOrder(Topology({}), {5, 0});
    EXPECT_EQ(partial.size(), 15u);
    for (const ImageCoordinates& cell : partial)
        EXPECT_LT(cell.column, 3);
    EXPECT_EQ(kxio::SearchOrder(Topology({}), {0, 5}).size(), 15u);  // rows above the grid are left out
}

TEST(SearchOrder, GridsOfOneOrTwoClosingColumnsStayInBounds) {
    for (const uint32_t columns : {1u, 2u}) {
        GridSpec g;
        g.columns = columns;
        g.step = 6.2831855f / static_cast<float>(columns);
        for (const ImageCoordinates& cell : kxio::SearchOrder(Topology(g), {3, 0})) {
            EXPECT_GE(cell.column, 0);
            EXPECT_LT(cell.column, static_cast<int32_t>(columns));
        }
    }
}

TEST(Projection, DirectionsHalfACellOutsideTheFirstColumnBelongToIt) {
    const GridSpec g;
    const auto grid = Topology(g);
    const auto project = [&grid](float h, float v) { return *kxio::ProjectOntoGrid(grid, {h, v}); };
    EXPECT_EQ(project(g.columnStart + 0.4f * g.step, g.rowStart), (ImageCoordinates{0, 0}));
    EXPECT_EQ(project(g.columnStart, g.rowStart - 0.4f * g.step), (ImageCoordinates{0, 0}));
    EXPECT_EQ(project(Horizontal(g, 7), Vertical(g, 3)), (ImageCoordinates{3, 7}));
    EXPECT_EQ(project(Horizontal(g, 7) + 6.2831855f, Vertical(g, 3)), (ImageCoordinates{3, 7}));
    EXPECT_EQ(project(Horizontal(g, 7) - 6.2831855f, Vertical(g, 3)), (ImageCoordinates{3, 7}));
    // Just outside that half step the direction lies almost a turn further on.
    EXPECT_GT(project(g.columnStart + 0.6f * g.step, g.rowStart).column, 300);
    // A vertical angle above the grid is taken half a turn down.
    EXPECT_GT(project(g.columnStart, g.rowStart - 0.6f * g.step).row, 150);
}

TEST(Projection, VerticalAnglesAreTakenByHalfTurns) {
    const GridSpec g;
    const float half = 3.1415927f;
    for (const float angle : {Vertical(g, 3) + half, Vertical(g, 3) - half, Vertical(g, 3) + 5 * half})
        EXPECT_EQ(kxio::ProjectOntoGrid(Topology(g), {Horizontal(g, 7), angle}), (ImageCoordinates{3, 7}))
            << angle;
}

TEST(Projection, AGridWithoutExtentOrWithAnglesBeyondMeasureHasNoPlaces) {
    using Grid = kxbase::GridTopology;
    const Grid whole = Topology({});
    const Angles direction{Horizontal({}, 7), Vertical({}, 3)};
    ASSERT_TRUE(kxio::ProjectOntoGrid(whole, direction));
    for (uint32_t Grid::*const side : {&Grid::columns, &Grid::rows, &Grid::patchWidth, &Grid::patchHeight}) {
        Grid grid = whole;
        grid.*side = 0;
        EXPECT_FALSE(kxio::ProjectOntoGrid(grid, direction));
    }
    const float inf = std::numeric_limits<float>::infinity();
    for (float Grid::*const angle :
         {&Grid::columnStartAngle, &Grid::rowStartAngle, &Grid::columnHalfStep, &Grid::rowHalfStep}) {
        for (const float value : {inf, -inf, std::numeric_limits<float>::quiet_NaN(), 1e4f}) {
            Grid grid = whole;
            grid.*angle = value;
            EXPECT_FALSE(kxio::ProjectOntoGrid(grid, direction)) << value;
        }
    }
}

TEST(SamePoint, HorizontalAnglesCompareAroundTheCircleAndVerticalOnesDoNot) {
    kxbase::InMemoryStream stream(FullScan({}).Build());
    const Converter converter(&stream);
    const float turn = 6.2831855f;
    EXPECT_TRUE(converter.IsSamePoint({10, 0.0000002f, 1}, {10, turn - 0.0000002f, 1}));
    EXPECT_TRUE(converter.IsSamePoint({10, 0.3f, 1}, {10, 0.3f + turn, 1}));
    EXPECT_FALSE(converter.IsSamePoint({10, 1, 0.0000002f}, {10, 1, turn - 0.0000002f}));
    EXPECT_TRUE(converter.IsSamePoint({10, 1, 1}, {10.09f, 1, 1}));
    EXPECT_FALSE(converter.IsSamePoint({10, 1, 1}, {10.11f, 1, 1}));
    EXPECT_FALSE(converter.IsSamePoint({10, 1, 1}, {10, 1.000003f, 1}));
    EXPECT_FALSE(converter.IsSamePoint({10, 1, 1}, {10, 1, 1.000003f}));
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_FALSE(converter.IsSamePoint({10, inf, 1}, {10, inf, 1}));
    EXPECT_FALSE(converter.IsSamePoint({10, 1, 1}, {10, inf, 1}));
    EXPECT_FALSE(converter.IsSamePoint({10, 1, inf}, {10, 1, 1}));
    EXPECT_FALSE(converter.IsSamePoint({10, 1, 1}, {10, 1, inf}));
    EXPECT_FALSE(converter.IsSamePoint({10, 1e30f, 1}, {10, 1, 1}));
}

class FilledLineCache : public kxio::LineCache {
public:
    using LineCache::LineCache;
    void Put(uint32_t line, uint32_t component) {
        m_lines[line][static_cast<kxbase::ComponentType>(component)] = std::make_unique<unsigned char[]>(64);
    }
};

TEST(LineCache, CountsTheElementsOfALineAndReleasesEveryPossibleBuffer) {
    kxbase::InMemoryStream stream(FullScan({}).Build());
    const kxio::QSNScanReader reader(&stream);
    FilledLineCache cache(reader);
    EXPECT_EQ(cache.GetElementCount(), 12u);
    for (uint32_t component = 1; component <= 12; ++component)
        cache.Put(component, component);
    cache.Put(3, 18);
    cache.Put(3, 19);
}

TEST(LineCacheDeathTest, ABufferUnderAnImpossibleComponentEndsTheProgram) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            kxbase::InMemoryStream stream(FullScan({}).Build());
            const kxio::QSNScanReader reader(&stream);
            FilledLineCache cache(reader);
            cache.Put(0, 13);
        },
        "");
}

}  // namespace
