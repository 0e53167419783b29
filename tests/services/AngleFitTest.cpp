// SPDX-License-Identifier: MIT
#include "services/AngleFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

namespace {

using kxio::AngleFit;
constexpr double kPi = std::numbers::pi;

TEST(AngleFit, FindsStartAndStep) {
    AngleFit fit;
    for (uint32_t i = 0; i < 1000; ++i) {
        for (int k = 0; k < 5; ++k)
            fit.Add(i, static_cast<float>(0.5 + 0.001 * i));
    }
    const auto line = fit.Fit();
    ASSERT_TRUE(line);
    EXPECT_NEAR(line->start, 0.5, 1e-6);
    EXPECT_NEAR(line->step, 0.001, 1e-9);
    EXPECT_EQ(line->used, 1000U);
    EXPECT_LT(line->spread, 1e-6);
}

TEST(AngleFit, FullTurnsAndJumpsOfHalfATurnDoNotMatter) {
    // A sweep of more than a turn, falling, whose columns passed over the zenith: four cells in ten lie half
    // a turn away.
    std::mt19937 random(1);
    AngleFit fit;
    const double step = -2 * kPi / 5000;
    for (uint32_t i = 0; i < 6000; ++i) {
        for (int k = 0; k < 15; ++k) {
            double angle =
                3.0 + step * i + (k % 5 < 2 ? kPi : 0) + 1e-5 * static_cast<double>(random() % 100);
            angle -= 2 * kPi * std::floor((angle + kPi) / (2 * kPi));
            fit.Add(i, static_cast<float>(angle));
        }
    }
    const auto line = fit.Fit();
    ASSERT_TRUE(line);
    EXPECT_NEAR(line->start, 3.0, 2e-3);
    EXPECT_NEAR(line->step, step, 1e-6);
}

TEST(AngleFit, ZerosNonsenseAndStrayAnglesArePassedOver) {
    std::mt19937 random(2);
    AngleFit fit;
    for (uint32_t i = 10; i < 500; ++i) {
        if (i % 7 == 0) continue;
        fit.Add(i, 0.0F);
        fit.Add(i, NAN);
        fit.Add(i, INFINITY);
        fit.Add(i, 1e9F);
        const bool stray = i % 5 == 0;
        fit.Add(i, stray ? static_cast<float>(random() % 3) : static_cast<float>(1.0 + 0.002 * i));
    }
    const auto line = fit.Fit();
    ASSERT_TRUE(line);
    EXPECT_NEAR(line->start, 1.0, 1e-5);
    EXPECT_NEAR(line->step, 0.002, 1e-7);
    EXPECT_LT(line->used, line->given);
}

TEST(AngleFit, TooLittleOrNoLineGivesNothing) {
    EXPECT_FALSE(AngleFit().Fit());
    AngleFit one;
    one.Add(3, 1.0F);
    EXPECT_FALSE(one.Fit());
    AngleFit constant;
    constant.Add(1, 1.0F);
    constant.Add(2, 1.0F);
    EXPECT_FALSE(constant.Fit());
    AngleFit noise;
    std::mt19937 random(3);
    for (uint32_t i = 0; i < 2000; ++i)
        noise.Add(i, static_cast<float>(random() % 100000) * 1e-4F + 0.01F);
    const auto line = noise.Fit();
    EXPECT_TRUE(!line || line->spread > 0.1);
}

}  // namespace
