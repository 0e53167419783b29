// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "VectorTargets.h"
#include "kxbase/Exceptions.h"
#include "kxbase/PolarConversion.h"
#include "support/Thrown.h"

namespace kxbase {
namespace {

constexpr double kBeyond = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
const double kPi = std::acos(-1.0);

struct Cloud {
    std::vector<double> x, y, z;
    void Add(double px, double py, double pz) {
        x.push_back(px);
        y.push_back(py);
        z.push_back(pz);
    }
    size_t Count() const { return x.size(); }
};

struct Angles {
    std::vector<double> range, vertical, horizontal;
    bool operator==(const Angles&) const = default;
};

Angles AnglesOf(const Cloud& points) {
    const size_t count = points.Count();
    Angles polar{std::vector<double>(count), std::vector<double>(count), std::vector<double>(count)};
    CartesianToPolar(points.x, points.y, points.z, polar.range, polar.vertical, polar.horizontal);
    return polar;
}

Angles AnglesOfOne(double x, double y, double z) {
    Cloud points;
    points.Add(x, y, z);
    return AnglesOf(points);
}

// In all directions, at all distances; the seams of the octants and what lies next to them.
Cloud SampleCloud(size_t count) {
    Cloud points;
    for (int eighth = -8; eighth <= 8; ++eighth) {
        for (const double besides : {-1e-15, -1e-9, 0.0, 1e-9, 1e-15}) {
            const double angle = eighth * kPi / 8 + besides;
            points.Add(std::cos(angle), std::sin(angle), 0.3);
            points.Add(std::sin(std::abs(angle)), 0, std::cos(angle));
        }
    }
    for (const double one : {-1.0, 1.0}) {
        for (const double zero : {-0.0, 0.0, 1e-300, -1e-300}) {
            points.Add(one, zero, 2);
            points.Add(zero, one, 2);
            points.Add(zero, one, zero);
            points.Add(one, one, zero);
        }
    }
    std::mt19937_64 random(20261122);
    std::uniform_real_distribution<double> coordinate(-1, 1), decade(-12, 12);
    while (points.Count() < count) {
        const double scale = std::pow(10.0, decade(random));
        points.Add(scale * coordinate(random), scale * coordinate(random), scale * coordinate(random));
    }
    return points;
}

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](double one, double other) {
        return std::bit_cast<uint64_t>(one) == std::bit_cast<uint64_t>(other);
    });
}

TEST(CartesianToPolar, PointsByHand) {
    const Angles polar = AnglesOfOne(0, 5, 0);
    EXPECT_EQ(polar.range[0], 5);
    EXPECT_DOUBLE_EQ(polar.vertical[0], kPi / 2);
    EXPECT_DOUBLE_EQ(polar.horizontal[0], kPi / 2);
    const Angles behind = AnglesOfOne(-3, -3, -std::sqrt(18.0));
    EXPECT_DOUBLE_EQ(behind.range[0], 6);
    EXPECT_DOUBLE_EQ(behind.vertical[0], kPi * 3 / 4);
    EXPECT_DOUBLE_EQ(behind.horizontal[0], -kPi * 3 / 4);
}

TEST(CartesianToPolar, AnglesAreThoseOfTheStandardLibraryToAFewLastPlaces) {
    const Cloud points = SampleCloud(200'000);
    const Angles polar = AnglesOf(points);
    for (size_t i = 0; i < points.Count(); ++i) {
        const double x = points.x[i], y = points.y[i], z = points.z[i];
        const double vertical = std::atan2(std::hypot(x, y), z), horizontal = std::atan2(y, x);
        ASSERT_NEAR(polar.vertical[i], vertical, 1e-15 * (1 + vertical)) << x << ' ' << y << ' ' << z;
        ASSERT_NEAR(polar.horizontal[i], horizontal, 1e-15 * (1 + std::abs(horizontal))) << x << ' ' << y;
        ASSERT_EQ(std::signbit(polar.horizontal[i]), std::signbit(horizontal)) << x << ' ' << y;
        const double range = std::hypot(std::hypot(x, y), z);
        ASSERT_NEAR(polar.range[i], range, 1e-15 * range);  // hypot, twice, is rounded too
    }
}

TEST(CartesianToPolar, EveryVectorUnitGivesTheSameBits) {
    const Cloud points = SampleCloud(10'007);
    const Angles polar = AnglesOf(points);
    ASSERT_FALSE(VectorTargets().empty());
    for (const std::string& target : VectorTargets()) {
        UseVectorTarget(target);
        const Angles other = AnglesOf(points);
        UseVectorTarget({});
        EXPECT_TRUE(SameBits(other.range, polar.range)) << target;
        EXPECT_TRUE(SameBits(other.vertical, polar.vertical)) << target;
        EXPECT_TRUE(SameBits(other.horizontal, polar.horizontal)) << target;
    }
}

TEST(CartesianToPolar, CutAnywhereGivesTheSameBits) {
    const Cloud points = SampleCloud(600);
    const Angles whole = AnglesOf(points);
    for (const size_t piece : std::vector<size_t>{1, 2, 3, 5, 7, 8, 9, 17, 33}) {
        Angles cut{whole.range, whole.range, whole.range};
        for (size_t at = 0; at < points.Count(); at += piece) {
            const size_t count = std::min(piece, points.Count() - at);
            const auto part = [&](auto& values) { return std::span(values).subspan(at, count); };
            CartesianToPolar(part(points.x), part(points.y), part(points.z), part(cut.range),
                             part(cut.vertical), part(cut.horizontal));
        }
        EXPECT_TRUE(SameBits(cut.range, whole.range) && SameBits(cut.vertical, whole.vertical) &&
                    SameBits(cut.horizontal, whole.horizontal))
            << piece;
    }
}

TEST(CartesianToPolar, TheAxisAndTheOriginHaveAngles) {
    EXPECT_EQ(AnglesOfOne(0, 0, 4), (Angles{{4}, {0}, {0}}));
    EXPECT_EQ(AnglesOfOne(0, 0, -4), (Angles{{4}, {kPi}, {0}}));
    EXPECT_EQ(AnglesOfOne(0, 0, 0), (Angles{{0}, {0}, {0}}));
    EXPECT_EQ(AnglesOfOne(-0.0, 0, 1).horizontal[0], kPi);
}

TEST(CartesianToPolar, TheVeryLargeAndSmallLoseNothingAndSpoilNoNeighbour) {
    Cloud points = SampleCloud(64);
    const Angles before = AnglesOf(points);
    const auto put = [&](size_t i, double x, double y, double z) {
        points.x[i] = x;
        points.y[i] = y;
        points.z[i] = z;
    };
    put(20, 3e200, 4e200, 0);
    put(21, 3e-200, 4e-200, 0);
    put(41, 1, 1, 1e300);
    const Angles after = AnglesOf(points);
    EXPECT_DOUBLE_EQ(after.range[20], 5e200);
    EXPECT_DOUBLE_EQ(after.range[21], 5e-200);
    EXPECT_DOUBLE_EQ(after.range[41], 1e300);
    EXPECT_EQ(after.horizontal[20], std::atan2(4.0, 3.0));
    EXPECT_EQ(after.horizontal[21], std::atan2(4.0, 3.0));
    for (size_t i = 0; i < 64; ++i) {
        if (i == 20 || i == 21 || i == 41) continue;
        EXPECT_EQ(after.range[i], before.range[i]);
        EXPECT_EQ(after.vertical[i], before.vertical[i]);
        EXPECT_EQ(after.horizontal[i], before.horizontal[i]);
    }
}

TEST(CartesianToPolar, WhatIsNoNumberGivesNoNumberAndInfinityADirection) {
    EXPECT_TRUE(std::isnan(AnglesOfOne(kNoNumber, 1, 1).range[0]));
    EXPECT_TRUE(std::isnan(AnglesOfOne(1, kNoNumber, 1).horizontal[0]));
    EXPECT_TRUE(std::isnan(AnglesOfOne(1, 1, kNoNumber).vertical[0]));
    const Angles far = AnglesOfOne(kBeyond, kBeyond, 1);
    EXPECT_EQ(far.range[0], kBeyond);
    EXPECT_DOUBLE_EQ(far.horizontal[0], kPi / 4);
}

TEST(CartesianToPolar, SizesThatDoNotAgreeAreRefused) {
    const std::vector<double> two(2), three(3);
    std::vector<double> a(2, 7), b(2, 7), c(3, 7);
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>([&] { CartesianToPolar(two, three, two, a, b, b); }),
              "Points cannot be converted");
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>([&] { CartesianToPolar(two, two, two, a, b, c); }),
              "Points cannot be converted");
    EXPECT_EQ(a, std::vector<double>(2, 7));
    EXPECT_NO_THROW(CartesianToPolar({}, {}, {}, {}, {}, {}));
}

}  // namespace
}  // namespace kxbase
