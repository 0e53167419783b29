// SPDX-License-Identifier: MIT
#include "RoundTrip.h"

#include <gtest/gtest.h>

namespace kxexchange::testing {
namespace {

constexpr double kDegree = 0.017453292519943295;

void CheckShared(const std::string& name) {
    const auto path = SharedData(name);
    if (path.empty()) GTEST_SKIP() << "the folder ../shared/data with " << name << " is not there";
    CheckRoundTrip(path);
}

TEST(RealScans, PumpRoomComesBackCellByCell) {
    const RoundTripResult result = CheckRoundTrip(TestData("pump_345x1074.ptx.gz"));
    EXPECT_EQ(result.imported.returns, 155201U);
    EXPECT_EQ(result.imported.grid.columns, 345U);
    EXPECT_EQ(result.imported.grid.rows, 1074U);
    EXPECT_NEAR(result.imported.grid.columnAngularStep, 0.25 * kDegree, 0.0005 * kDegree);
    EXPECT_NEAR(result.imported.grid.rowAngularStep, 0.0676 * kDegree, 0.0005 * kDegree);
    EXPECT_FALSE(result.imported.layout.columnsReversed);
    EXPECT_TRUE(result.imported.layout.RowsReversed());
    EXPECT_FALSE(result.imported.layout.Folded());
    EXPECT_TRUE(result.imported.warnings.empty());
    EXPECT_LT(result.greatestShift, 0.00006);
}

TEST(RealScans, StreetComesBackCellByCell) {
    const RoundTripResult result = CheckRoundTrip(TestData("street_a_1024x128.ptx.gz"));
    EXPECT_EQ(result.imported.returns, 107647U);
    EXPECT_NEAR(result.imported.grid.columnAngularStep, 0.3516 * kDegree, 0.0005 * kDegree);
    EXPECT_FALSE(result.imported.layout.Folded());
}

TEST(RealScans, ForestComesBackCellByCell) {
    CheckShared("forest_a_290x2103.ptx.gz");
}
TEST(RealScans, TiltedCorridorComesBackCellByCell) {
    CheckShared("tilt_226x360.ptx.gz");
}
TEST(RealScans, AirborneGridComesBackCellByCell) {
    CheckShared("1.2-with-color.ptx");
}
TEST(RealScans, AirborneRowComesBackCellByCell) {
    CheckShared("no-color.ptx");
}

}  // namespace
}  // namespace kxexchange::testing
