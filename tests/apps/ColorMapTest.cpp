// SPDX-License-Identifier: MIT
#include "ColorMap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace qsn {
namespace {

double Linear(uint8_t byte) {
    const double v = byte / 255.0;
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

/// CIE lightness L*, 0 to 100: another measure than the one the scale was made with.
double Lightness(Pixel p) {
    const double y = 0.2126 * Linear(p.red) + 0.7152 * Linear(p.green) + 0.0722 * Linear(p.blue);
    return y > 216.0 / 24389 ? 116 * std::cbrt(y) - 16 : y * 24389 / 27;
}

TEST(ColorMap, LightnessRisesAllTheWay) {
    for (int i = 1; i < 256; ++i)
        EXPECT_GE(Lightness(ScaleColor(i / 255.0)), Lightness(ScaleColor((i - 1) / 255.0))) << i;
    for (int i = 4; i < 256; ++i)
        EXPECT_GT(Lightness(ScaleColor(i / 255.0)), Lightness(ScaleColor((i - 4) / 255.0))) << i;
}

TEST(ColorMap, EqualStepsLookEqual) {
    const double first = Lightness(ScaleColor(0));
    const double last = Lightness(ScaleColor(1));
    for (int i = 0; i <= 20; ++i) {
        const double share = i / 20.0;
        EXPECT_NEAR(Lightness(ScaleColor(share)), first + share * (last - first), 7) << share;
    }
}

TEST(ColorMap, NoStepIsSeenAsAnEdge) {
    for (int i = 1; i < 256; ++i) {
        const Pixel one = ScaleColor((i - 1) / 255.0);
        const Pixel other = ScaleColor(i / 255.0);
        EXPECT_LE(std::abs(one.red - other.red), 4) << i;
        EXPECT_LE(std::abs(one.green - other.green), 4) << i;
        EXPECT_LE(std::abs(one.blue - other.blue), 4) << i;
    }
}

TEST(ColorMap, RunsFromDarkVioletToLightYellow) {
    const Pixel dark = ScaleColor(0);
    EXPECT_LT(Lightness(dark), 25);
    EXPECT_GT(dark.blue, dark.green);
    EXPECT_GT(dark.red, dark.green);
    const Pixel light = ScaleColor(1);
    EXPECT_GT(Lightness(light), 85);
    EXPECT_GT(light.red, light.blue);
    EXPECT_GT(light.green, light.blue);
}

TEST(ColorMap, SharesOutsideTheScaleTakeItsEnds) {
    EXPECT_EQ(ScaleColor(-3), ScaleColor(0));
    EXPECT_EQ(ScaleColor(7), ScaleColor(1));
    EXPECT_EQ(ScaleColor(std::numeric_limits<double>::quiet_NaN()), ScaleColor(0));
    EXPECT_EQ(ScaleColor(0.5).alpha, 255);
}

}  // namespace
}  // namespace qsn
