// SPDX-License-Identifier: MIT
#include "kxbase/Points.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <numbers>

#include "kxbase/QSNIndex.h"

namespace kxbase {
namespace {

constexpr float kHalfPi = std::numbers::pi_v<float> / 2;

void ExpectNear(const tBaseXYZPoint<float>& p, float x, float y, float z, float tolerance) {
    EXPECT_NEAR(p.x, x, tolerance);
    EXPECT_NEAR(p.y, y, tolerance);
    EXPECT_NEAR(p.z, z, tolerance);
}

TEST(Points, VerticalAngleCountsFromTheZenith) {
    const float e = 1e-6f;
    ExpectNear(tBaseXYZPoint<float>(tBasePolarPoint<float>(2, 0, 0)), 0, 0, 2, e);
    ExpectNear(tBaseXYZPoint<float>(tBasePolarPoint<float>(2, 0, kHalfPi)), 2, 0, 0, e);
    ExpectNear(tBaseXYZPoint<float>(tBasePolarPoint<float>(2, kHalfPi, kHalfPi)), 0, 2, 0, e);
    ExpectNear(tBaseXYZPoint<float>(tBasePolarPoint<float>(2, 0, 2 * kHalfPi)), 0, 0, -2, e);
    ExpectNear(tBaseXYZPoint<float>(tBasePolarPoint<float>(1, kHalfPi / 2, kHalfPi / 2)), 0.5f, 0.5f,
               0.70710678f, e);
}

TEST(Points, CartesianToPolar) {
    const tBasePolarPoint<double> p(tBaseXYZPoint<double>(-1, -1, -std::numbers::sqrt2));
    EXPECT_DOUBLE_EQ(p.range, 2);
    EXPECT_DOUBLE_EQ(p.horizontal, -3 * std::numbers::pi / 4);
    EXPECT_DOUBLE_EQ(p.vertical, 3 * std::numbers::pi / 4);
}

TEST(Points, OriginHasRangeZero) {
    const tBasePolarPoint<float> p(tBaseXYZPoint<float>(0, 0, 0));
    EXPECT_EQ(p, (tBasePolarPoint<float>(0, 0, 0)));
}

TEST(Points, AssignmentConvertsToo) {
    tBaseXYZPoint<float> xyz;
    xyz = tBasePolarPoint<float>(3, 0, kHalfPi);
    ExpectNear(xyz, 3, 0, 0, 1e-6f);
    tBasePolarPoint<float> polar;
    polar = tBaseXYZPoint<float>(0, 5, 0);
    EXPECT_FLOAT_EQ(polar.range, 5);
    EXPECT_FLOAT_EQ(polar.horizontal, kHalfPi);
    EXPECT_FLOAT_EQ(polar.vertical, kHalfPi);
}

TEST(Points, ThreeNumbersInBracesAreAPointOfTheSameKind) {
    tBaseXYZPoint<float> xyz;
    xyz = {1, 2, 3};
    EXPECT_EQ(xyz, tBaseXYZPoint<float>(1, 2, 3));
    tBasePolarPoint<float> polar;
    polar = {1, 2, 3};
    EXPECT_EQ(polar, tBasePolarPoint<float>(1, 2, 3));
}

TEST(Points, SquaresOfLargeCoordinatesDoNotOverflowInSinglePrecision) {
    const tBasePolarPoint<float> p(tBaseXYZPoint<float>(3e30f, 4e30f, 0));
    EXPECT_FLOAT_EQ(p.range, 5e30f);
}

TEST(Points, InvalidPointIsMinusOneThrice) {
    EXPECT_EQ(tBasePolarPoint<float>::Invalid(), (tBasePolarPoint<float>(-1, -1, -1)));
}

RC_GTEST_PROP(Points, RoundTripKeepsTheDirectionToAMicroradian, ()) {
    // Away from the zenith and the nadir, where the horizontal angle is lost.
    const double v = *rc::gen::inRange(100000, 3041000) * 1e-6;
    const double h = *rc::gen::inRange(-3141000, 3141001) * 1e-6;
    const double r = *rc::gen::inRange(1, 10000000) * 0.1;
    const tBasePolarPoint<float> polar(static_cast<float>(r), static_cast<float>(h), static_cast<float>(v));
    const tBaseXYZPoint<float> xyz(polar);
    const tBasePolarPoint<float> back(xyz);
    RC_ASSERT(std::abs(back.vertical - polar.vertical) < 1e-6f);
    RC_ASSERT(std::abs(back.horizontal - polar.horizontal) * std::sin(polar.vertical) < 1e-6f);
    RC_ASSERT(std::abs(back.range - polar.range) <= polar.range * 1e-6f);
}

TEST(QSNIndex, PacksThePatchIntoTheLowHalf) {
    const QSNIndex index(0x11223344, 0x55667788);
    EXPECT_EQ(index.Pack(), 0x5566778811223344u);
    EXPECT_EQ(QSNIndex::Unpack(0x5566778811223344u), index);
    EXPECT_EQ(QSNIndex(), QSNIndex(0, 0));
}

TEST(QSNIndex, OrderIsPatchThenPosition) {
    EXPECT_LT(QSNIndex(1, 9), QSNIndex(2, 0));
    EXPECT_LT(QSNIndex(1, 0), QSNIndex(1, 1));
}

RC_GTEST_PROP(QSNIndex, UnpackUndoesPack, (uint64_t packed)) {
    RC_ASSERT(QSNIndex::Unpack(packed).Pack() == packed);
}

}  // namespace
}  // namespace kxbase
