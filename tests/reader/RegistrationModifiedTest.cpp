// SPDX-License-Identifier: MIT
// When a registration counts as made by hand.
#include <gtest/gtest.h>

#include <limits>

#include "SampleScans.h"
#include "kxio/Tilt.h"

namespace {

using kxio::ScanProperties;
using namespace kxtest;

bool Modified(uint32_t tiltKind, const kxbase::RegistrationInformation& registration,
              ScanProperties::TiltAngles angles = {}) {
    ScanFileBuilder file = SmallScan();
    file.properties.registration = registration;
    file.properties.tilt = {tiltKind, angles};
    return MemoryScan(file.Build()).reader.HasRegistrationBeenModified();
}

kxbase::RegistrationInformation WithElement(double value) {
    return {kxbase::Frame3D({1, value, 0}, {0, 1, 0}, {0, 0, 1}), {}};
}

TEST(RegistrationModified, IdentityIsNot) {
    for (const uint32_t kind : {0U, 1U, 2U, 3U, 4U})
        EXPECT_FALSE(Modified(kind, {})) << kind;
}

TEST(RegistrationModified, AnyTranslationIs) {
    EXPECT_TRUE(Modified(0, {kxbase::Frame3D(), {0, 0, 1e-12}}));
    EXPECT_TRUE(Modified(3, {kxbase::Frame3D(), {1e-300, 0, 0}}));
    EXPECT_FALSE(Modified(0, {kxbase::Frame3D(), {-0.0, 0, 0}}));
}

TEST(RegistrationModified, UnknownTiltKindIs) {
    EXPECT_TRUE(Modified(5, {}));
}

TEST(RegistrationModified, TheTwoTestsPartAtExactlyTheTolerance) {
    EXPECT_FALSE(Modified(0, WithElement(1e-6)));
    EXPECT_TRUE(Modified(3, WithElement(1e-6)));
    EXPECT_TRUE(Modified(0, WithElement(1.1e-6)));
    EXPECT_FALSE(Modified(3, WithElement(0.9e-6)));
    EXPECT_TRUE(Modified(2, WithElement(-1.1e-6)));
}

TEST(RegistrationModified, TheTwoTestsPartWhereAValueIsNoNumber) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(Modified(0, WithElement(nan)));
    EXPECT_TRUE(Modified(3, WithElement(nan)));
}

TEST(RegistrationModified, ScannersOwnTiltIsNot) {
    const ScanProperties::TiltAngles angles{0.1, -0.2};
    const kxbase::RegistrationInformation tilted(kxio::Frame3DFromTiltAngles(angles), {});
    EXPECT_FALSE(Modified(3, tilted, angles));
    EXPECT_FALSE(Modified(4, tilted, angles));
    EXPECT_TRUE(Modified(2, tilted, angles));
    EXPECT_TRUE(Modified(3, {}, angles));
}

}  // namespace
