// SPDX-License-Identifier: MIT
#include "kxbase/PolarConversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "VectorTargets.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Points.h"
#include "support/Thrown.h"

namespace kxbase {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

struct Polar {
    std::vector<float> range, horizontal, vertical;
    void Add(float r, float h, float v) {
        range.push_back(r);
        horizontal.push_back(h);
        vertical.push_back(v);
    }
    size_t Count() const { return range.size(); }
};

template <class T>
std::vector<T> Converted(const Polar& polar) {
    std::vector<T> xyz(3 * polar.Count());
    PolarToCartesian(polar.range, polar.horizontal, polar.vertical, xyz);
    return xyz;
}

// Exact enough to judge double precision by.
std::array<long double, 3> Exact(const Polar& polar, size_t i) {
    const auto r = static_cast<long double>(polar.range[i]);
    const auto h = static_cast<long double>(polar.horizontal[i]);
    const auto v = static_cast<long double>(polar.vertical[i]);
    return {r * std::sin(v) * std::cos(h), r * std::sin(v) * std::sin(h), r * std::cos(v)};
}

// Angles of a scan and beyond, ranges of 0 to 100 m in millimetres; the corners of every quarter turn.
Polar SamplePolars(size_t count) {
    Polar polar;
    std::mt19937 random(20261121);
    std::uniform_real_distribution<float> range(0, 100'000), horizontal(-10, 10), vertical(-1, 4);
    for (int quarter = -40; quarter <= 40; ++quarter) {
        for (const int eighth : {0, 1}) {
            const float middle = static_cast<float>((2 * quarter + eighth) * std::acos(-1.0) / 4);
            for (const float angle :
                 {std::nextafter(middle, -kInfinity), middle, std::nextafter(middle, kInfinity)}) {
                polar.Add(100'000, angle, 1.5F);
                polar.Add(100'000, 0.7F, angle);
            }
        }
    }
    for (const float angle : {0.0F, -0.0F, 1e-30F, 999.9F, -999.9F, 1000.0F, 1000.1F, 1e6F, -1e30F})
        polar.Add(12.5F, angle, -angle);
    while (polar.Count() < count)
        polar.Add(range(random), horizontal(random), vertical(random));
    return polar;
}

TEST(PolarToCartesian, PointsByHand) {
    const float half = std::acos(-1.0F) / 2;
    Polar polar;
    polar.Add(5, 0, half);
    polar.Add(5, half, half);
    polar.Add(5, 1, 0);
    polar.Add(0, 1, 1);
    const std::vector<float> xyz = Converted<float>(polar);
    constexpr float kNear = 1e-6F;
    EXPECT_FLOAT_EQ(xyz[0], 5);
    EXPECT_NEAR(xyz[1], 0, kNear);
    EXPECT_NEAR(xyz[2], 0, kNear);
    EXPECT_NEAR(xyz[3], 0, kNear);
    EXPECT_FLOAT_EQ(xyz[4], 5);
    EXPECT_EQ(xyz[6], 0);
    EXPECT_EQ(xyz[8], 5);
    EXPECT_EQ(std::vector<float>(xyz.begin() + 9, xyz.end()), (std::vector<float>{0, 0, 0}));
}

TEST(PolarToCartesian, DoublesAreWithinOneHundredBillionthOfTheRange) {
    const Polar polar = SamplePolars(200'000);
    const std::vector<double> xyz = Converted<double>(polar);
    long double worst = 0;
    for (size_t i = 0; i < polar.Count(); ++i) {
        const auto exact = Exact(polar, i);
        for (size_t k = 0; k < 3; ++k) {
            const long double error = std::abs(exact[k] - static_cast<long double>(xyz[3 * i + k]));
            if (polar.range[i] > 0) worst = std::max(worst, error / static_cast<long double>(polar.range[i]));
        }
    }
    EXPECT_LT(worst, 1e-11L);
    EXPECT_GT(worst, 0);
}

TEST(PolarToCartesian, FloatsAreWithinALittleMoreThanHalfAnUlpOfTheRange) {
    const Polar polar = SamplePolars(200'000);
    const std::vector<float> xyz = Converted<float>(polar);
    long double worst = 0;
    size_t notNearest = 0;
    for (size_t i = 0; i < polar.Count(); ++i) {
        const float range = polar.range[i];
        if (!(range > 0)) continue;
        const float ulp = std::nextafter(range, kInfinity) - range;
        const auto exact = Exact(polar, i);
        for (size_t k = 0; k < 3; ++k) {
            const float given = xyz[3 * i + k];
            const long double error = std::abs(exact[k] - static_cast<long double>(given));
            worst = std::max(worst, error / static_cast<long double>(ulp));
            notNearest += given != static_cast<float>(exact[k]);
        }
    }
    EXPECT_LE(worst, 0.501L);
    EXPECT_LT(notNearest, 3 * polar.Count() / 10'000);
}

TEST(PolarToCartesian, EveryVectorUnitGivesTheSameBits) {
    const Polar polar = SamplePolars(10'007);
    const std::vector<float> floats = Converted<float>(polar);
    const std::vector<double> doubles = Converted<double>(polar);
    ASSERT_FALSE(VectorTargets().empty());
    for (const std::string& target : VectorTargets()) {
        UseVectorTarget(target);
        const std::vector<float> otherFloats = Converted<float>(polar);
        const std::vector<double> otherDoubles = Converted<double>(polar);
        UseVectorTarget({});
        const auto sameBits = [](auto a, auto b) {
            if constexpr (sizeof a == 4)
                return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b);
            else
                return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
        };
        EXPECT_TRUE(std::equal(floats.begin(), floats.end(), otherFloats.begin(), sameBits)) << target;
        EXPECT_TRUE(std::equal(doubles.begin(), doubles.end(), otherDoubles.begin(), sameBits)) << target;
    }
}

TEST(PolarToCartesian, CutAnywhereGivesTheSameBits) {
    const Polar polar = SamplePolars(600);
    const std::vector<double> whole = Converted<double>(polar);
    for (const size_t piece : std::vector<size_t>{1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 33}) {
        std::vector<double> cut(whole.size());
        for (size_t at = 0; at < polar.Count(); at += piece) {
            const size_t count = std::min(piece, polar.Count() - at);
            PolarToCartesian(
                std::span(polar.range).subspan(at, count), std::span(polar.horizontal).subspan(at, count),
                std::span(polar.vertical).subspan(at, count), std::span(cut).subspan(3 * at, 3 * count));
        }
        EXPECT_EQ(cut, whole) << piece;
    }
}

TEST(PolarToCartesian, HugeAnglesAreThoseOfTheStandardLibraryAndSpoilNoNeighbour) {
    Polar polar = SamplePolars(64);
    const std::vector<double> before = Converted<double>(polar);
    polar.horizontal[20] = 1e20F;
    polar.vertical[41] = -5000.5F;
    const std::vector<double> after = Converted<double>(polar);
    for (size_t i = 0; i < 64; ++i) {
        const tBaseXYZPoint<double> point{
            tBasePolarPoint<double>(polar.range[i], polar.horizontal[i], polar.vertical[i])};
        const bool huge = i == 20 || i == 41;
        EXPECT_EQ(after[3 * i], huge ? point.x : before[3 * i]) << i;
        EXPECT_EQ(after[3 * i + 1], huge ? point.y : before[3 * i + 1]) << i;
        EXPECT_EQ(after[3 * i + 2], huge ? point.z : before[3 * i + 2]) << i;
    }
}

TEST(PolarToCartesian, WhatIsNoNumberGivesNoNumber) {
    for (const auto& [r, h, v] : {std::array{kNaN, 1.0F, 1.0F}, std::array{1.0F, kNaN, 1.0F},
                                  std::array{1.0F, kInfinity, 1.0F}, std::array{1.0F, -kInfinity, 1.0F}}) {
        Polar polar;
        polar.Add(r, h, v);
        EXPECT_TRUE(std::isnan(Converted<float>(polar)[0]));
        EXPECT_TRUE(std::isnan(Converted<double>(polar)[1]));
    }
    Polar polar;
    polar.Add(1, 1, kNaN);
    EXPECT_TRUE(std::isnan(Converted<float>(polar)[2]));
}

TEST(PolarToCartesian, SizesThatDoNotAgreeAreRefused) {
    const std::vector<float> two(2), three(3);
    std::vector<float> xyz(6, 7), more(7);
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>(
                  [&] { static_cast<void>(PolarToCartesian(two, three, two, xyz)); }),
              "Points cannot be converted");
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>(
                  [&] { static_cast<void>(PolarToCartesian(two, two, three, xyz)); }),
              "Points cannot be converted");
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>(
                  [&] { static_cast<void>(PolarToCartesian(three, three, three, xyz)); }),
              "Points cannot be converted");
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>(
                  [&] { static_cast<void>(PolarToCartesian(two, two, two, more)); }),
              "Points cannot be converted");
    EXPECT_EQ(xyz, std::vector<float>(6, 7));
    EXPECT_NO_THROW(PolarToCartesian({}, {}, {}, std::span<float>()));
}

}  // namespace
}  // namespace kxbase
