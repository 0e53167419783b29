// SPDX-License-Identifier: MIT
#include "kxbase/GridTopology.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace kxbase {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Sizing {
    uint32_t width;
    uint32_t height;
    double factor;
    uint32_t previewWidth;
    uint32_t previewHeight;
    float columnRatio;
    float rowRatio;
};

TEST(PreviewSize, WorkedExamples) {
    const Sizing rows[] = {
        {10000, 5000, 2.0, 2000, 1000, 5.0f, 5.0f},
        {100, 50, 2.0, 100, 50, 1.0f, 1.0f},
        {4000, 2000, 0.5, 1000, 500, 4.0f, 4.0f},
        {2000, 8000, 2.0, 666, 2666, 3.0030031f, 3.0007503f},
        {100000, 50000, 2.0, 2040, 1020, static_cast<float>(100000.0 / 2040),
         static_cast<float>(50000.0 / 1020)},
        {3000000, 1, 2.0, 3000000, 1, 1.0f, 1.0f},
        {8, 8, 1e-7, 8, 8, 1.0f, 1.0f},  // a budget below one pixel falls back to the full size
        {100, 50, kInfinity, 100, 50, 1.0f, 1.0f},
    };
    for (const Sizing& row : rows) {
        SCOPED_TRACE(testing::Message() << row.width << " x " << row.height << ", factor " << row.factor);
        const PreviewSize size = ComputePreviewSize(row.width, row.height, row.factor);
        EXPECT_EQ(size.width, row.previewWidth);
        EXPECT_EQ(size.height, row.previewHeight);
        EXPECT_EQ(size.columnRatio, row.columnRatio);
        EXPECT_EQ(size.rowRatio, row.rowRatio);
    }
}

TEST(PreviewSize, NothingToShowGivesFourZeros) {
    const Sizing rows[] = {
        {0, 0, 2.0, 0, 0, 0, 0},  {0, 50, 2.0, 0, 0, 0, 0},      {100, 0, 2.0, 0, 0, 0, 0},
        {8, 8, 0.0, 0, 0, 0, 0},  {8, 8, -1.0, 0, 0, 0, 0},      {8, 8, kNaN, 0, 0, 0, 0},
        {8, 8, -0.0, 0, 0, 0, 0}, {0, 8, kInfinity, 0, 0, 0, 0}, {8, 8, -kInfinity, 0, 0, 0, 0},
    };
    for (const Sizing& row : rows) {
        SCOPED_TRACE(testing::Message() << row.width << " x " << row.height << ", factor " << row.factor);
        const PreviewSize size = ComputePreviewSize(row.width, row.height, row.factor);
        EXPECT_EQ(size.width, 0u);
        EXPECT_EQ(size.height, 0u);
        EXPECT_EQ(size.columnRatio, 0.0f);
        EXPECT_EQ(size.rowRatio, 0.0f);
    }
}

TEST(PreviewSize, AreaAbove32BitsDoesNotWrapAround) {
    // 65536 x 65536 is 0 in 32 bits.
    const PreviewSize size = ComputePreviewSize(65536, 65536, 2.0);
    EXPECT_EQ(size.width, 1456u);  // step round(65536 / 1448) = 45
    EXPECT_EQ(size.height, 1456u);
    const PreviewSize largest = ComputePreviewSize(0xffffffffu, 0xffffffffu, 2.0);
    EXPECT_GT(largest.width, 1400u);
    EXPECT_LT(largest.width, 1500u);
    EXPECT_EQ(largest.width, largest.height);
}

RC_GTEST_PROP(PreviewSize, IsNoLargerThanTheGridAndRatiosLeadBack, ()) {
    const auto width = *rc::gen::inRange<uint32_t>(1, 200000);
    const auto height = *rc::gen::inRange<uint32_t>(1, 200000);
    const double factor = *rc::gen::element(0.01, 0.25, 0.5, 1.0, 2.0, 5.0);
    const PreviewSize size = ComputePreviewSize(width, height, factor);
    RC_ASSERT(size.width >= 1u && size.width <= width);
    RC_ASSERT(size.height >= 1u && size.height <= height);
    RC_ASSERT(size.columnRatio == static_cast<float>(std::max(1.0, double(width) / size.width)));
    RC_ASSERT(size.rowRatio == static_cast<float>(std::max(1.0, double(height) / size.height)));
    // One whole step serves both directions: the steps that give each side have one in common.
    const uint32_t fewest = std::max(width / (size.width + 1), height / (size.height + 1)) + 1;
    const uint32_t most = std::min(size.width == 1 ? 0xffffffffu : width / size.width,
                                   size.height == 1 ? 0xffffffffu : height / size.height);
    RC_ASSERT(fewest <= most);
}

RC_GTEST_PROP(PreviewSize, AnyInputIsAnswered, (uint32_t width, uint32_t height, double factor)) {
    const PreviewSize size = ComputePreviewSize(width, height, factor);
    const bool something = double(width) * double(height) * factor > 0;
    RC_ASSERT((size.width > 0) == something);
    RC_ASSERT(size.width <= width && size.height <= height);
}

TEST(PatchesAlong, RoundsUpAndToleratesZeros) {
    const struct {
        uint32_t count;
        uint32_t size;
        uint32_t patches;
    } rows[] = {
        {0, 0, 0},
        {10, 0, 0},
        {0, 10, 0},
        {1, 256, 1},
        {256, 256, 1},
        {257, 256, 2},
        {1074, 256, 5},
        {0xffffffffu, 1, 0xffffffffu},
        {0xffffffffu, 2, 0x80000000u},
        {0xffffffffu, 0xffffffffu, 1},
        {1, 0xffffffffu, 1},
    };
    for (const auto& row : rows)
        EXPECT_EQ(PatchesAlong(row.count, row.size), row.patches) << row.count << " / " << row.size;
}

GridTopology Grid(uint32_t columns, uint32_t rows, uint32_t patchWidth, uint32_t patchHeight) {
    GridTopology grid;
    grid.columns = columns;
    grid.rows = rows;
    grid.patchWidth = patchWidth;
    grid.patchHeight = patchHeight;
    return grid;
}

TEST(GridTopology, PatchCounts) {
    const GridTopology grid = Grid(345, 1074, 256, 100);
    EXPECT_EQ(grid.PatchesPerRow(), 2u);
    EXPECT_EQ(grid.PatchesPerColumn(), 11u);
    EXPECT_EQ(grid.PatchCount(), 22u);
    EXPECT_EQ(grid.PatchCount64(), 22u);
}

TEST(GridTopology, PatchSizeZeroHasNoPatches) {
    for (const GridTopology& grid : {Grid(345, 1074, 0, 256), Grid(345, 1074, 256, 0),
                                     Grid(0, 1074, 256, 256), Grid(345, 0, 256, 256), Grid(0, 0, 0, 0)}) {
        EXPECT_EQ(grid.PatchCount(), 0u);
        EXPECT_EQ(grid.PatchCount64(), 0u);
    }
    EXPECT_EQ(Grid(345, 1074, 0, 0).RowsInPatch(0), 0u);
    EXPECT_EQ(Grid(345, 1074, 0, 0).ColumnsInPatch(0), 0u);
}

TEST(GridTopology, PatchCountAbove32BitsIsTruncatedOnlyWhereStated) {
    const GridTopology grid = Grid(1u << 20, 1u << 20, 8, 4);
    EXPECT_EQ(grid.PatchesPerRow(), 1u << 17);
    EXPECT_EQ(grid.PatchesPerColumn(), 1u << 18);
    EXPECT_EQ(grid.PatchCount64(), uint64_t{1} << 35);
    EXPECT_EQ(grid.PatchCount(), 0u);
    const GridTopology cells = Grid(0xffffffffu, 0xffffffffu, 1, 1);
    EXPECT_EQ(cells.PatchCount64(), 0xfffffffe00000001u);
    EXPECT_EQ(cells.PatchCount(), 1u);
}

TEST(GridTopology, EdgePatchesHoldTheRest) {
    const GridTopology grid = Grid(345, 1074, 256, 256);
    EXPECT_EQ(grid.ColumnsInPatch(0), 256u);
    EXPECT_EQ(grid.ColumnsInPatch(1), 89u);
    EXPECT_EQ(grid.ColumnsInPatch(2), 0u);
    EXPECT_EQ(grid.RowsInPatch(3), 256u);
    EXPECT_EQ(grid.RowsInPatch(4), 50u);
    EXPECT_EQ(grid.RowsInPatch(5), 0u);
    EXPECT_EQ(grid.RowsInPatch(0xffffffffu), 0u);
}

TEST(GridTopology, ExactMultipleHasFullPatchesOnly) {
    const GridTopology grid = Grid(512, 256, 256, 256);
    EXPECT_EQ(grid.ColumnsInPatch(0), 256u);
    EXPECT_EQ(grid.ColumnsInPatch(1), 256u);
    EXPECT_EQ(grid.ColumnsInPatch(2), 0u);
    EXPECT_EQ(grid.RowsInPatch(0), 256u);
    EXPECT_EQ(grid.RowsInPatch(1), 0u);
}

TEST(GridTopology, GridSmallerThanAPatch) {
    const GridTopology grid = Grid(3, 2, 10, 10);
    EXPECT_EQ(grid.ColumnsInPatch(0), 3u);
    EXPECT_EQ(grid.RowsInPatch(0), 2u);
}

RC_GTEST_PROP(GridTopology, PatchesCoverTheGridExactly, ()) {
    const auto columns = *rc::gen::inRange<uint32_t>(0, 3000);
    const auto rows = *rc::gen::inRange<uint32_t>(0, 3000);
    const auto width = *rc::gen::inRange<uint32_t>(1, 400);
    const auto height = *rc::gen::inRange<uint32_t>(1, 400);
    const GridTopology grid = Grid(columns, rows, width, height);
    uint32_t sum = 0;
    for (uint32_t p = 0; p < grid.PatchesPerRow(); ++p) {
        const uint32_t part = grid.ColumnsInPatch(p);
        RC_ASSERT(part >= 1u && part <= width);
        // The closed form, where the grid is wider than a patch.
        if (columns > width) RC_ASSERT(part == width - (((p + 1) * width) % columns) % width);
        sum += part;
    }
    RC_ASSERT(sum == columns);
    sum = 0;
    for (uint32_t p = 0; p < grid.PatchesPerColumn(); ++p) {
        const uint32_t part = grid.RowsInPatch(p);
        if (rows > height) RC_ASSERT(part == height - (((p + 1) * height) % rows) % height);
        sum += part;
    }
    RC_ASSERT(sum == rows);
}

RC_GTEST_PROP(GridTopology, PatchSizesOfLargeGridsDoNotOverflow,
              (uint32_t rows, uint32_t height, uint32_t patch)) {
    const GridTopology grid = Grid(1, rows, 1, height);
    const uint64_t start = uint64_t{patch} * height;
    const uint64_t expected =
        height == 0 || start >= rows ? 0 : std::min<uint64_t>(height, uint64_t{rows} - start);
    RC_ASSERT(grid.RowsInPatch(patch) == expected);
}

TEST(GridTopology, UpdatePreviewSetsTheFourDerivedFields) {
    GridTopology grid = Grid(2000, 8000, 256, 256);
    grid.UpdatePreview(2.0);
    EXPECT_EQ(grid.previewWidth, 666u);
    EXPECT_EQ(grid.previewHeight, 2666u);
    EXPECT_EQ(grid.columnRatio, 3.0030031f);
    EXPECT_EQ(grid.rowRatio, 3.0007503f);
    grid.UpdatePreview(0.0);
    EXPECT_EQ(grid, Grid(2000, 8000, 256, 256));
}

TEST(GridTopology, UpdateHalfStepsHalvesTheSteps) {
    GridTopology grid;
    grid.columnAngularStep = 0.25f;
    grid.rowAngularStep = -0.5f;
    grid.UpdateHalfSteps();
    EXPECT_EQ(grid.columnHalfStep, 0.125f);
    EXPECT_EQ(grid.rowHalfStep, -0.25f);
}

TEST(GridTopology, FourteenFieldsOfFourBytesInOrder) {
    static_assert(sizeof(GridTopology) == 56);
    static_assert(offsetof(GridTopology, columnStartAngle) == 0);
    static_assert(offsetof(GridTopology, rowStartAngle) == 4);
    static_assert(offsetof(GridTopology, columnAngularStep) == 8);
    static_assert(offsetof(GridTopology, columns) == 16);
    static_assert(offsetof(GridTopology, patchWidth) == 24);
    static_assert(offsetof(GridTopology, previewWidth) == 32);
    static_assert(offsetof(GridTopology, columnRatio) == 40);
    static_assert(offsetof(GridTopology, rowHalfStep) == 52);
    EXPECT_EQ(GridTopology(), Grid(0, 0, 0, 0));
}

}  // namespace
}  // namespace kxbase
