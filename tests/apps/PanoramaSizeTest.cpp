// SPDX-License-Identifier: MIT
#include "PanoramaSize.h"

#include <gtest/gtest.h>

#include <limits>

#include "LayerSampler.h"

namespace qsn {
namespace {

kxbase::GridTopology Grid(uint32_t columns, uint32_t rows, float columnStep, float rowStep,
                          uint32_t patch = 256) {
    kxbase::GridTopology grid;
    grid.columns = columns;
    grid.rows = rows;
    grid.columnAngularStep = columnStep;
    grid.rowAngularStep = rowStep;
    grid.patchWidth = grid.patchHeight = patch;
    return grid;
}

TEST(PanoramaSize, KeepsTheProportionOfTheAngles) {
    // 86.25 by 72.6 degrees, steps of 0.25 and 0.0676 degrees.
    const PictureSize size = FitPanorama(Grid(345, 1074, 0.25F, 0.0676F), {2000, 1000});
    EXPECT_EQ(size.height, 1000U);
    EXPECT_NEAR(size.width / 1000.0, 345 * 0.25 / (1074 * 0.0676), 0.001);
}

TEST(PanoramaSize, FitsIntoTheBoxEitherWay) {
    EXPECT_EQ(FitPanorama(Grid(8000, 4000, 0.01F, 0.01F), {2000, 1000}), (PictureSize{2000, 1000}));
    EXPECT_EQ(FitPanorama(Grid(8000, 1000, 0.01F, 0.01F), {2000, 1000}), (PictureSize{2000, 250}));
    EXPECT_EQ(FitPanorama(Grid(1000, 8000, 0.01F, 0.01F), {2000, 1000}), (PictureSize{125, 1000}));
}

TEST(PanoramaSize, DoesNotBlowUpWhatHasNoDetail) {
    EXPECT_EQ(FitPanorama(Grid(1024, 128, 0.35F, 0.35F), {2000, 1000}), (PictureSize{1024, 128}));
    EXPECT_EQ(FitPanorama(Grid(10, 5, 0.1F, 0.1F), {2000, 1000}), (PictureSize{640, 320}));
}

TEST(PanoramaSize, WithoutStepsCellsAreSquare) {
    EXPECT_EQ(FitPanorama(Grid(4000, 2000, 0, 0.01F), {1000, 1000}), (PictureSize{1000, 500}));
    const float none = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(FitPanorama(Grid(4000, 2000, none, 0.01F), {1000, 1000}), (PictureSize{1000, 500}));
}

TEST(PanoramaSize, HasAtLeastOnePixel) {
    EXPECT_EQ(FitPanorama(Grid(1, 4000000000U, 0.1F, 0.1F), {100, 50}), (PictureSize{1, 50}));
    const PictureSize none = FitPanorama(Grid(0, 0, 0, 0), {100, 50});
    EXPECT_GE(none.width, 1U);
    EXPECT_GE(none.height, 1U);
}

TEST(PanoramaSize, PixelsShowTheCellUnderTheirCentre) {
    // 4 pixels over 10 cells: centres at 1.25, 3.75, 6.25, 8.75.
    EXPECT_EQ(CellOfPixel(0, 4, 10), 1U);
    EXPECT_EQ(CellOfPixel(1, 4, 10), 3U);
    EXPECT_EQ(CellOfPixel(2, 4, 10), 6U);
    EXPECT_EQ(CellOfPixel(3, 4, 10), 8U);
    for (uint32_t i = 0; i < 7; ++i)
        EXPECT_EQ(CellOfPixel(i, 7, 7), i);
    const uint32_t most = std::numeric_limits<uint32_t>::max();
    EXPECT_LT(CellOfPixel(32767, 32768, most), most);
}

TEST(PanoramaSize, EveryPixelBelongsToThePatchOfItsCell) {
    for (const uint32_t patch : {1U, 3U, 7U, 64U, 1000U}) {
        for (const PictureSize size : {PictureSize{1, 1}, PictureSize{37, 23}, PictureSize{200, 100}}) {
            const kxbase::GridTopology grid = Grid(101, 53, 0.1F, 0.1F, patch);
            std::vector<int> seen(size_t{size.width} * size.height, 0);
            for (const PatchPixels& p : PatchesOfPicture(grid, size)) {
                ASSERT_LT(p.firstX, p.endX);
                ASSERT_LT(p.firstY, p.endY);
                for (uint32_t y = p.firstY; y < p.endY; ++y) {
                    EXPECT_EQ(CellOfPixel(y, size.height, grid.rows) / patch, p.patchRow);
                    for (uint32_t x = p.firstX; x < p.endX; ++x) {
                        EXPECT_EQ(CellOfPixel(x, size.width, grid.columns) / patch, p.patchColumn);
                        ++seen[size_t{y} * size.width + x];
                    }
                }
            }
            for (const int count : seen)
                EXPECT_EQ(count, 1);
        }
    }
}

TEST(PanoramaSize, AGridThatClaimsToBeHugeCostsNoMoreThanThePicture) {
    const uint32_t most = std::numeric_limits<uint32_t>::max();
    EXPECT_EQ(PatchesOfPicture(Grid(most, most, 0.1F, 0.1F, 1), {20, 10}).size(), 200U);
    EXPECT_TRUE(PatchesOfPicture(Grid(10, 10, 0.1F, 0.1F, 0), {20, 10}).empty());
}

}  // namespace
}  // namespace qsn
