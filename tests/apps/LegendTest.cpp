// SPDX-License-Identifier: MIT
#include "Legend.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>

#include "BitmapFont.h"

namespace qsn {
namespace {

TEST(Legend, TicksAreRoundNumbersInsideTheScale) {
    struct Case {
        double low, high;
        unsigned maximum;
        std::vector<double> expected;
    };
    const std::vector<Case> cases = {
        {0, 10, 11, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},  {2.05, 5.43, 6, {3, 4, 5}},
        {2.05, 5.43, 9, {2.5, 3, 3.5, 4, 4.5, 5}},        {-180, 180, 5, {-100, 0, 100}},
        {0.001, 0.0045, 5, {0.001, 0.002, 0.003, 0.004}},
    };
    for (const Case& c : cases) {
        const std::vector<double> ticks = RoundTicks(c.low, c.high, c.maximum);
        ASSERT_EQ(ticks.size(), c.expected.size()) << c.low << " " << c.high;
        for (size_t i = 0; i < ticks.size(); ++i)
            EXPECT_NEAR(ticks[i], c.expected[i], 1e-9);
    }
}

TEST(Legend, AnEmptyScaleHasNoTicks) {
    EXPECT_TRUE(RoundTicks(3, 3, 10).empty());
    EXPECT_TRUE(RoundTicks(4, 3, 10).empty());
    EXPECT_TRUE(RoundTicks(0, 1, 1).empty());
    EXPECT_TRUE(RoundTicks(std::numeric_limits<double>::quiet_NaN(), 1, 5).empty());
    EXPECT_TRUE(RoundTicks(0, std::numeric_limits<double>::infinity(), 5).empty());
    EXPECT_TRUE(RoundTicks(-1e308, 1e308, 5).empty());
}

TEST(Legend, TickTextsHaveTheDecimalsOfTheirStep) {
    EXPECT_EQ(TickText(3, 1), "3");
    EXPECT_EQ(TickText(2.5, 0.5), "2.5");
    EXPECT_EQ(TickText(0.30000000000000004, 0.1), "0.3");
    EXPECT_EQ(TickText(120, 20), "120");
    EXPECT_EQ(TickText(-1e-17, 0.1), "0.0");
}

TEST(Legend, TakesTheLowestRowsAndLeavesTheOthers) {
    Picture picture(800, 200);
    DrawLegend(picture, {2, 5, "range in m"});
    const uint32_t top = 200 - LegendHeight(800);
    for (uint32_t x = 0; x < 800; ++x) {
        EXPECT_EQ(picture.At(x, top - 1), Pixel{}) << x;
        EXPECT_EQ(picture.At(x, top).alpha, 255) << x;
        EXPECT_EQ(picture.At(x, 199).alpha, 255) << x;
    }
}

TEST(Legend, FitsIntoPicturesOfAnySize) {
    for (uint32_t width : {1U, 16U, 100U, 320U, 5000U}) {
        for (uint32_t height : {1U, 10U, 300U}) {
            Picture picture(width, height);
            DrawLegend(picture, {0, 1, "range in m"});
            EXPECT_EQ(picture.At(width - 1, height - 1).alpha, 255);
        }
    }
}

TEST(BitmapFont, EveryCharacterHasAShapeOfItsOwn) {
    std::set<std::string> shapes;
    const std::string characters = "0123456789.,-+()/:%<>abcdefghijklmnopqrstuvwxyz #";
    for (const char c : characters) {
        std::string shape;
        for (uint32_t y = 0; y < font::kGlyphHeight; ++y) {
            for (uint32_t x = 0; x < font::kGlyphWidth; ++x)
                shape += font::GlyphPixel(c, x, y) ? '#' : '.';
        }
        EXPECT_TRUE(shapes.insert(shape).second) << c;
    }
}

TEST(BitmapFont, WidthCountsNoGapBehindTheLastCharacter) {
    EXPECT_EQ(font::TextWidth("", 3), 0U);
    EXPECT_EQ(font::TextWidth("1", 1), 5U);
    EXPECT_EQ(font::TextWidth("12", 2), 22U);
}

TEST(BitmapFont, TextOutsideThePictureIsCutOff) {
    Picture picture(8, 8);
    font::Draw(picture, -3, -3, "88888", 2, {1, 2, 3, 255});
    font::Draw(picture, 100, 100, "8", 1, {1, 2, 3, 255});
    uint32_t set = 0;
    for (uint32_t y = 0; y < 8; ++y) {
        for (uint32_t x = 0; x < 8; ++x)
            set += picture.At(x, y).alpha != 0;
    }
    EXPECT_GT(set, 0U);
    EXPECT_LT(set, 64U);
}

}  // namespace
}  // namespace qsn
