// SPDX-License-Identifier: MIT
// Sizes that an import chooses, and how its cells become patches.
#include "ImportPlan.h"

#include <gtest/gtest.h>

#include <numbers>

#include "PatchAssembler.h"
#include "TestTools.h"

namespace kxexchange::testing {
namespace {

TEST(PatchSize, FollowsTheGridWhereTheGridIsSmaller) {
    struct Row {
        uint32_t columns, rows, width, height, expectedWidth, expectedHeight;
    };
    for (const Row& row : {Row{10000, 5000, 256, 256, 256, 256}, Row{345, 1074, 256, 256, 256, 256},
                           Row{40, 30, 256, 256, 40, 40},  // smaller, still square
                           Row{1024, 128, 256, 256, 256, 256},
                           Row{1, 1000000, 256, 256, 1, 256},  // a single column: no padding to a square
                           Row{1000000, 1, 256, 256, 256, 1}, Row{1, 1, 256, 256, 1, 1},
                           Row{100, 100, 16, 32, 16, 32}, Row{20, 100, 64, 8, 64, 8}}) {
        kxbase::GridTopology grid;
        grid.columns = row.columns;
        grid.rows = row.rows;
        SetPatchSize(grid, row.width, row.height);
        EXPECT_EQ(grid.patchWidth, row.expectedWidth) << row.columns << " x " << row.rows;
        EXPECT_EQ(grid.patchHeight, row.expectedHeight) << row.columns << " x " << row.rows;
    }
}

kxbase::GridTopology PreviewedGrid(uint64_t columns, uint64_t rows, uint32_t previewSide = 1000) {
    FittedGrid fitted;
    fitted.columnStep = fitted.rowStep = 1e-3;
    fitted.layout.columns = columns;
    fitted.layout.rows = fitted.layout.gridRows = rows;
    ImportOptions options;
    options.previewSide = previewSide;
    return MakeTopology(fitted, options);
}

TEST(PreviewSize, IsAWholeStepSmallerThanTheGridAndNoSideIsLongerThanAsked) {
    struct Row {
        uint64_t columns, rows;
        uint32_t previewSide, width, height;
    };
    const Row table[] = {
        {1, 1, 1000, 1, 1},           {128, 128, 1000, 128, 128},  // small: every cell
        {129, 128, 1000, 64, 64},                                  // at least a step of two
        {345, 1074, 1000, 172, 537},  {8000, 4000, 1000, 1000, 500},
        {8001, 4000, 1000, 889, 444}, {2000, 1000, 4000, 1000, 500},
        {2000, 1000, 1, 1, 1},        {1, 100000000, 1000, 1, 1000},
        {100000001, 1, 1000, 999, 1},
    };
    for (const Row& row : table) {
        const kxbase::GridTopology grid = PreviewedGrid(row.columns, row.rows, row.previewSide);
        EXPECT_EQ(grid.previewWidth, row.width) << row.columns << " x " << row.rows;
        EXPECT_EQ(grid.previewHeight, row.height) << row.columns << " x " << row.rows;
        EXPECT_FLOAT_EQ(grid.columnRatio, static_cast<float>(row.columns) / static_cast<float>(row.width));
        EXPECT_FLOAT_EQ(grid.rowRatio, static_cast<float>(row.rows) / static_cast<float>(row.height));
    }
    EXPECT_THROW(
        {
            ImportOptions options;
            options.previewSide = 0;
            CheckOptions(options);
        },
        kxbase::KXBadInputException);
}

// Feeds a sweep to an assembler and notes how many columns of patches were begun at the same time.
size_t MostOpenColumns(const Sweep& sweep, uint32_t patchSide) {
    const std::vector<Cell> cells = MakeSweep(sweep);
    const std::span<const Cell> all(cells);
    GridFit fit;
    const auto rows = static_cast<size_t>(sweep.rows);
    for (size_t i = 0; i < sweep.columns; ++i)
        fit.AddColumn(all.subspan(i * rows, rows));
    const FittedGrid grid = fit.Finish();
    ImportOptions options;
    options.patchWidth = options.patchHeight = patchSide;
    const kxbase::GridTopology topology = MakeTopology(grid, options);
    PatchAssembler assembler(topology, grid.layout, {});
    std::vector<bool> seen(topology.PatchesPerRow(), false);
    size_t most = 0;
    for (size_t i = 0; i < sweep.columns; ++i) {
        assembler.AddColumn(all.subspan(i * rows, rows), [&](std::unique_ptr<PatchColumn> column) {
            EXPECT_FALSE(seen[column->column]) << "a column of patches came twice";
            seen[column->column] = true;
            assembler.Recycle(std::move(column));
        });
        most = std::max(most, assembler.OpenColumns());
    }
    EXPECT_EQ(assembler.OpenColumns(), 0U);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), static_cast<std::ptrdiff_t>(seen.size()));
    return most;
}

TEST(PatchAssembler, HoldsAFewColumnsOfPatchesWhateverTheSizeOfTheScan) {
    Sweep sweep;
    sweep.columns = 600;
    sweep.rows = 50;
    for (const double direction : {-1.0, 1.0}) {
        sweep.azimuthStep = direction * std::numbers::pi / 600;
        sweep.firstAngle = 1.5;
        sweep.angleStep = -0.02;
        EXPECT_EQ(MostOpenColumns(sweep, 16), 1U);
        // Folded: one on each side, and the one where both sides meet.
        sweep.firstAngle = -0.49;
        sweep.angleStep = 0.02;
        EXPECT_EQ(MostOpenColumns(sweep, 16), 3U);
    }
}

}  // namespace
}  // namespace kxexchange::testing
