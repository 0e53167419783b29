// SPDX-License-Identifier: MIT
#include "kxio/Tilt.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <limits>

namespace {

using kxbase::Frame3D;
using kxbase::RegistrationInformation;
using kxio::ScanProperties;
using kxmath::Vector3;
using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

constexpr double kPi = 3.14159265358979323846;

ScanProperties::TiltInfo Tilt(uint32_t kind, double first, double second) {
    return {kind, {first, second}};
}

RegistrationInformation SomeRegistration(double a, double b, double c, const Vector3& origin) {
    kxmath::Frame frame;
    frame.Rotate({}, {0, 0, 1}, a);
    frame.Rotate({}, {1, 0, 0}, b);
    frame.Rotate({}, {0, 1, 0}, c);
    return {Frame3D(frame.GetXAxis(), frame.GetYAxis(), frame.GetZAxis()), origin};
}

double LargestDifference(const RegistrationInformation& a, const RegistrationInformation& b) {
    double largest = 0;
    for (unsigned i = 0; i < RegistrationInformation::ValueCount; ++i)
        largest = std::max(largest, std::fabs(a.Values()[i] - b.Values()[i]));
    return largest;
}

class TiltWithoutEffect : public testing::TestWithParam<uint32_t> {};

TEST_P(TiltWithoutEffect, LeavesRegistrationPointsAndTransformUnchanged) {
    const auto tilt = Tilt(GetParam(), 0.3, -0.2);
    const auto registration = SomeRegistration(1, 2, 3, {4, 5, 6});
    EXPECT_EQ(kxio::ApplyTilt(tilt, registration), registration);
    EXPECT_EQ(kxio::RemoveTilt(tilt, registration), registration);
    EXPECT_EQ(RegistrationInformation(kxio::GetTiltTransform(tilt)), RegistrationInformation());
    EXPECT_EQ(kxio::ApplyTiltToPoint(tilt, PolarPoint(5, 1, 2)), PolarPoint(5, 1, 2));
    EXPECT_EQ(kxio::ApplyTiltToPoint(tilt, XYZPoint(5, 1, 2)), XYZPoint(5, 1, 2));
}
INSTANTIATE_TEST_SUITE_P(Kinds, TiltWithoutEffect, testing::Values(0, 1, 2, 5, 0xffffffffU));

TEST(Tilt, AnglesOfZeroGiveTheIdentity) {
    EXPECT_EQ(kxio::Frame3DFromTiltAngles({0, 0}), Frame3D());
    EXPECT_EQ(RegistrationInformation(kxio::GetTiltTransform(Tilt(3, 0, 0))), RegistrationInformation());
}

TEST(Tilt, FirstAngleTurnsAboutTheYAxisAgainstItsSign) {
    // Right-handed about Y by -0.5: X goes to (cos 0.5, 0, sin 0.5).
    const Frame3D frame = kxio::Frame3DFromTiltAngles({0.5, 0});
    EXPECT_NEAR(frame.xAxis.x, std::cos(0.5), 1e-15);
    EXPECT_NEAR(frame.xAxis.z, std::sin(0.5), 1e-15);
    EXPECT_NEAR(frame.yAxis.y, 1, 1e-15);
    EXPECT_NEAR(frame.zAxis.x, -std::sin(0.5), 1e-15);
}

TEST(Tilt, SecondAngleTurnsAboutTheTurnedXAxis) {
    const Frame3D frame = kxio::Frame3DFromTiltAngles({0.5, 0.25});
    // X is the axis of the second turn and stays where the first one put it.
    EXPECT_NEAR(frame.xAxis.x, std::cos(0.5), 1e-15);
    EXPECT_NEAR(frame.xAxis.z, std::sin(0.5), 1e-15);
    // Y goes by -0.25 towards minus the once-turned Z, which is (-sin 0.5, 0, cos 0.5).
    EXPECT_NEAR(frame.yAxis.x, std::sin(0.25) * std::sin(0.5), 1e-15);
    EXPECT_NEAR(frame.yAxis.y, std::cos(0.25), 1e-15);
    EXPECT_NEAR(frame.yAxis.z, -std::sin(0.25) * std::cos(0.5), 1e-15);
}

TEST(Tilt, FirstAngleBeyondARightAngleKeepsBothSigns) {
    const Frame3D frame = kxio::Frame3DFromTiltAngles({2.0, 0.05});
    // About Y by +2: X goes to (cos 2, 0, -sin 2).
    EXPECT_NEAR(frame.xAxis.x, std::cos(2.0), 1e-15);
    EXPECT_NEAR(frame.xAxis.z, -std::sin(2.0), 1e-15);
    EXPECT_NEAR(frame.yAxis.y, std::cos(0.05), 1e-15);
}

TEST(Tilt, FirstAngleOfExactlyARightAngleIsNegated) {
    const double rightAngle = kPi / 2;
    EXPECT_NEAR(kxio::Frame3DFromTiltAngles({rightAngle, 0}).xAxis.z, 1, 1e-15);
    EXPECT_NEAR(kxio::Frame3DFromTiltAngles({std::nextafter(rightAngle, 2), 0}).xAxis.z, -1, 1e-15);
}

class TiltRoundTrip : public testing::TestWithParam<std::pair<double, double>> {};

TEST_P(TiltRoundTrip, RemovingGivesTheRegistrationBack) {
    for (const uint32_t kind : {3U, 4U}) {
        const auto tilt = Tilt(kind, GetParam().first, GetParam().second);
        const auto registration = SomeRegistration(0.7, -1.1, 2.2, {10, -20, 30});
        const auto tilted = kxio::ApplyTilt(tilt, registration);
        EXPECT_GT(LargestDifference(tilted, registration), 0.01);
        EXPECT_LT(LargestDifference(kxio::RemoveTilt(tilt, tilted), registration), 1e-12);
        EXPECT_EQ(tilted.GetTranslation(), registration.GetTranslation());
    }
}
INSTANTIATE_TEST_SUITE_P(Angles, TiltRoundTrip,
                         testing::Values(std::pair(0.1, 0.05), std::pair(2.0, 0.05), std::pair(-2.5, -1.0),
                                         std::pair(kPi / 2, 0.3)));

RC_GTEST_PROP(TiltProperties, RemovingGivesAnyRegistrationBack, ()) {
    const auto angle = rc::gen::map(rc::gen::inRange(-31400, 31401), [](int v) { return v / 10000.0; });
    const auto registration = SomeRegistration(*angle, *angle, *angle, {*angle, *angle, *angle});
    const auto tilt = Tilt(3, *angle, *angle);
    const auto back = kxio::RemoveTilt(tilt, kxio::ApplyTilt(tilt, registration));
    RC_ASSERT(LargestDifference(back, registration) < 1e-12);
}

TEST(Tilt, TransformIsTheTiltAppliedToTheIdentity) {
    const auto tilt = Tilt(4, 0.2, -0.4);
    const kxmath::Frame frame = kxio::GetTiltTransform(tilt);
    const Frame3D axes = kxio::Frame3DFromTiltAngles(tilt.angles);
    EXPECT_EQ(frame.GetXAxis(), axes.xAxis);
    EXPECT_EQ(frame.GetYAxis(), axes.yAxis);
    EXPECT_EQ(frame.GetZAxis(), axes.zAxis);
    EXPECT_EQ(frame.GetOrigin(), Vector3());
}

TEST(Tilt, PointIsMappedByTheRotation) {
    const auto tilt = Tilt(3, 0.5, 0);
    const XYZPoint x = kxio::ApplyTiltToPoint(tilt, XYZPoint(2, 0, 0));
    EXPECT_FLOAT_EQ(x.x, static_cast<float>(2 * std::cos(0.5)));
    EXPECT_FLOAT_EQ(x.y, 0);
    EXPECT_FLOAT_EQ(x.z, static_cast<float>(2 * std::sin(0.5)));
}

TEST(Tilt, PolarPointAgreesWithItsCartesianForm) {
    const auto tilt = Tilt(3, 0.1, 0.2);
    const PolarPoint polar(7, 0.4F, 1.3F);
    const PolarPoint tilted = kxio::ApplyTiltToPoint(tilt, polar);
    const PolarPoint expected(kxio::ApplyTiltToPoint(tilt, XYZPoint(polar)));
    EXPECT_EQ(tilted, expected);
    EXPECT_NEAR(tilted.range, 7, 1e-5);
}

TEST(Tilt, PolarPointWithoutRangeKeepsItAndTurnsItsDirection) {
    const auto tilt = Tilt(3, 0.1, 0.2);
    const PolarPoint withRange = kxio::ApplyTiltToPoint(tilt, PolarPoint(1, 0.4F, 1.3F));
    for (const float range : {0.0F, -3.0F}) {
        const PolarPoint without = kxio::ApplyTiltToPoint(tilt, PolarPoint(range, 0.4F, 1.3F));
        EXPECT_EQ(without.range, 0);
        EXPECT_EQ(without.horizontal, withRange.horizontal);
        EXPECT_EQ(without.vertical, withRange.vertical);
        EXPECT_NE(without.horizontal, 0.4F);
    }
}

TEST(Tilt, AnglesThatAreNoNumbersGiveNoNumbers) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(kxio::Frame3DFromTiltAngles({nan, 0}).xAxis.x));
    EXPECT_TRUE(std::isnan(kxio::ApplyTilt(Tilt(3, nan, nan), RegistrationInformation()).Values()[0]));
}

}  // namespace
