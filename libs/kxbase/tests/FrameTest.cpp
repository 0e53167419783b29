// SPDX-License-Identifier: MIT
#include "kxmath/Frame.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

#include "kxbase/RegistrationInformation.h"

namespace kxbase {
namespace {

using kxmath::Frame;
using kxmath::Vector3;

constexpr double kHalfPi = std::numbers::pi / 2;

double Distance(const Vector3& a, const Vector3& b) {
    const Vector3 d = a - b;
    return std::sqrt(kxmath::Dot(d, d));
}

double Distance(const Frame& a, const Frame& b) {
    return std::max({Distance(a.GetXAxis(), b.GetXAxis()), Distance(a.GetYAxis(), b.GetYAxis()),
                     Distance(a.GetZAxis(), b.GetZAxis()), Distance(a.GetOrigin(), b.GetOrigin())});
}

TEST(Vector3, CrossProductIsRightHanded) {
    EXPECT_EQ(kxmath::Cross({1, 0, 0}, {0, 1, 0}), (Vector3{0, 0, 1}));
    EXPECT_EQ(kxmath::Cross({0, 1, 0}, {0, 0, 1}), (Vector3{1, 0, 0}));
    EXPECT_EQ(kxmath::Dot({1, 2, 3}, {4, 5, 6}), 32);
}

TEST(Frame, TheWayBackIsTheWayIntoTheFrame) {
    Frame frame({1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1000, -2000, 30});
    frame.Rotate({1, 2, 3}, {0.6, 0, 0.8}, 0.7);
    const Vector3 local{-12.5, 3.25, 100};
    EXPECT_LT(Distance(frame.InverseTransform(frame.Transform(local)), local), 1e-12);
    EXPECT_LT(Distance(frame.InverseTransform(frame.GetOrigin()), {}), 1e-15);
}

TEST(Frame, DefaultIsTheIdentity) {
    const Frame frame;
    EXPECT_EQ(frame.GetXAxis(), (Vector3{1, 0, 0}));
    EXPECT_EQ(frame.GetYAxis(), (Vector3{0, 1, 0}));
    EXPECT_EQ(frame.GetZAxis(), (Vector3{0, 0, 1}));
    EXPECT_EQ(frame.GetOrigin(), (Vector3{0, 0, 0}));
    EXPECT_EQ(frame.Transform({1, 2, 3}), (Vector3{1, 2, 3}));
}

TEST(Frame, QuarterTurnsAreRightHanded) {
    Frame aboutZ;
    aboutZ.Rotate({0, 0, 0}, {0, 0, 1}, kHalfPi);
    EXPECT_LT(Distance(aboutZ.GetXAxis(), {0, 1, 0}), 1e-15);
    EXPECT_LT(Distance(aboutZ.GetYAxis(), {-1, 0, 0}), 1e-15);
    EXPECT_LT(Distance(aboutZ.GetZAxis(), {0, 0, 1}), 1e-15);
    Frame aboutY;
    aboutY.Rotate({0, 0, 0}, {0, 1, 0}, kHalfPi);
    EXPECT_LT(Distance(aboutY.GetXAxis(), {0, 0, -1}), 1e-15);
    EXPECT_LT(Distance(aboutY.GetZAxis(), {1, 0, 0}), 1e-15);
}

TEST(Frame, TurnsAboutALineInSpaceMoveTheOrigin) {
    Frame frame({1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {2, 0, 5});
    frame.Rotate({1, 0, 0}, {0, 0, 1}, kHalfPi);
    EXPECT_LT(Distance(frame.GetOrigin(), {1, 1, 5}), 1e-15);
    EXPECT_LT(Distance(frame.GetXAxis(), {0, 1, 0}), 1e-15);
}

TEST(Frame, LengthOfTheAxisDoesNotMatter) {
    Frame one;
    one.Rotate({0, 0, 0}, {0, 1, 1}, 0.7);
    for (const double length : {1e-8, 1e8, 1e-200, 1e200}) {
        Frame other;
        other.Rotate({0, 0, 0}, {0, length, length}, 0.7);
        EXPECT_LT(Distance(one, other), 1e-15) << length;
    }
}

TEST(Frame, ZeroAxisLeavesTheFrame) {
    Frame frame({0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {1, 2, 3});
    const Frame before = frame;
    frame.Rotate({5, 5, 5}, {0, 0, 0}, 1.0);
    EXPECT_EQ(Distance(frame, before), 0);
}

TEST(Frame, MatrixHoldsTheAxesInItsColumns) {
    const Frame frame({1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12});
    const std::array<std::array<double, 4>, 4> expected = {
        {{1, 4, 7, 10}, {2, 5, 8, 11}, {3, 6, 9, 12}, {0, 0, 0, 1}}};
    EXPECT_EQ(frame.GetMatrix(), expected);
}

TEST(Frame, TransformIsOriginPlusAxes) {
    const Frame frame({0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {10, 20, 30});
    EXPECT_EQ(frame.Transform({1, 2, 3}), (Vector3{8, 21, 33}));
}

rc::Gen<double> Coordinate() {
    return rc::gen::map(rc::gen::inRange(-1000000, 1000001), [](int n) { return n * 1e-3; });
}

rc::Gen<Frame> AnyFrame() {
    return rc::gen::map(rc::gen::tuple(Coordinate(), Coordinate(), Coordinate(), Coordinate(), Coordinate(),
                                       Coordinate(), rc::gen::inRange(-4000, 4001)),
                        [](const auto& t) {
                            const auto& [x, y, z, ax, ay, az, angle] = t;
                            Frame frame({1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {x, y, z});
                            frame.Rotate({z, x, y}, {ax, ay, az}, angle * 1e-3);
                            return frame;
                        });
}

RC_GTEST_PROP(Frame, RotationsKeepAxesOrthonormalAndRightHanded, ()) {
    const Frame f = *AnyFrame();
    RC_ASSERT(std::abs(kxmath::Dot(f.GetXAxis(), f.GetXAxis()) - 1) < 1e-12);
    RC_ASSERT(std::abs(kxmath::Dot(f.GetXAxis(), f.GetYAxis())) < 1e-12);
    RC_ASSERT(Distance(kxmath::Cross(f.GetXAxis(), f.GetYAxis()), f.GetZAxis()) < 1e-12);
}

RC_GTEST_PROP(Frame, TurningBackRestores, ()) {
    const Frame before = *AnyFrame();
    const Vector3 line{*Coordinate(), *Coordinate(), *Coordinate()};
    const Vector3 axis{*Coordinate(), *Coordinate(), *Coordinate()};
    Frame frame = before;
    frame.Rotate(line, axis, 1.1);
    frame.Rotate(line, axis, -1.1);
    RC_ASSERT(Distance(frame, before) < 1e-8);
}

RC_GTEST_PROP(Frame, PropagationAppliesTheInnerFrameFirst, ()) {
    const Frame outer = *AnyFrame();
    const Frame inner = *AnyFrame();
    const Vector3 local{*Coordinate(), *Coordinate(), *Coordinate()};
    const Vector3 through = outer.Transform(inner.Transform(local));
    RC_ASSERT(Distance(outer.PropagateFrame(inner).Transform(local), through) < 1e-7);
}

TEST(RegistrationInformation, DefaultIsTheIdentity) {
    const RegistrationInformation registration;
    const double expected[] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    for (unsigned i = 0; i < RegistrationInformation::ValueCount; ++i)
        EXPECT_EQ(registration.Values()[i], expected[i]) << i;
}

TEST(RegistrationInformation, OrderIsAxesThenTranslation) {
    const RegistrationInformation registration(Frame3D({1, 2, 3}, {4, 5, 6}, {7, 8, 9}), {10, 11, 12});
    for (unsigned i = 0; i < RegistrationInformation::ValueCount; ++i)
        EXPECT_EQ(registration.Values()[i], i + 1.0) << i;
    EXPECT_EQ(registration.GetTranslation(), (Vector3{10, 11, 12}));
    EXPECT_EQ(registration.GetRotation(), Frame3D({1, 2, 3}, {4, 5, 6}, {7, 8, 9}));
    const Frame frame = registration.ToFrame();
    EXPECT_EQ(frame.GetYAxis(), (Vector3{4, 5, 6}));
    EXPECT_EQ(frame.GetOrigin(), (Vector3{10, 11, 12}));
    EXPECT_EQ(RegistrationInformation(frame), registration);
}

TEST(RegistrationInformation, ValuesBeginTheObject) {
    const RegistrationInformation registration(Frame3D(), {1, 2, 3});
    double first[12];
    static_assert(sizeof registration >= sizeof first);
    std::memcpy(first, static_cast<const void*>(&registration), sizeof first);
    EXPECT_EQ(first[9], 1);
    EXPECT_EQ(first[11], 3);
}

RC_GTEST_PROP(RegistrationInformation, AnyTwelveValuesComeBack, (const std::array<double, 12>& values)) {
    const auto registration = RegistrationInformation::FromValues(values.data());
    RC_ASSERT(std::memcmp(registration.Values(), values.data(), sizeof values) == 0);
    const RegistrationInformation again(registration.ToFrame());
    RC_ASSERT(std::memcmp(again.Values(), values.data(), sizeof values) == 0);
}

TEST(RegistrationInformation, ValuesThatAreNoNumbersSurvive) {
    std::array<double, 12> values{};
    values[4] = std::numeric_limits<double>::infinity();
    values[11] = std::numeric_limits<double>::quiet_NaN();
    const auto registration = RegistrationInformation::FromValues(values.data());
    EXPECT_EQ(std::memcmp(registration.Values(), values.data(), sizeof values), 0);
}

}  // namespace
}  // namespace kxbase
