// SPDX-License-Identifier: MIT
#include "JsonOutput.h"

#include <gtest/gtest.h>

#include <limits>

namespace qsn {
namespace {

TEST(JsonOutput, FloatsHaveTheirOwnDigits) {
    EXPECT_EQ(ShortNumber(0.1F).dump(), "0.1");
    EXPECT_EQ(ShortNumber(-1.51985F).dump(), "-1.51985");
    EXPECT_EQ(ShortNumber(16777216.0F).dump(), "16777216.0");
    EXPECT_EQ(ShortMetres(3995.7F).dump(), "3.9957");
    EXPECT_EQ(ShortMetres(-0.5F).dump(), "-0.0005");
}

TEST(JsonOutput, ZeroHasNoSignAndWhatIsNoNumberIsNull) {
    EXPECT_EQ(ShortNumber(-0.0F).dump(), "0.0");
    EXPECT_EQ(ShortMetres(-0.0F).dump(), "0.0");
    EXPECT_EQ(RoundedMetres(-1e-9).dump(), "0.0");
    EXPECT_EQ(RoundedDegrees(-1e-13).dump(), "0.0");
    EXPECT_TRUE(ShortNumber(std::numeric_limits<float>::quiet_NaN()).is_null());
    EXPECT_TRUE(ShortMetres(std::numeric_limits<float>::infinity()).is_null());
    EXPECT_TRUE(RoundedMetres(std::numeric_limits<double>::infinity()).is_null());
}

TEST(JsonOutput, MetresAndDegreesAreRoundedBeyondWhatMatters) {
    EXPECT_EQ(RoundedMetres(5334321.09876543).get<double>(), 5334321.0987654);
    EXPECT_EQ(RoundedDegrees(1.5707963267948966).dump(), "90.0");
    EXPECT_EQ(RoundedMetres(1e305).get<double>(), 1e305);
}

TEST(JsonOutput, DocumentsBeginAlike) {
    const Json json = JsonDocument("qsn.test", 3, "a.qsn");
    EXPECT_EQ(json.dump(), R"({"schema":"qsn.test","version":3,"file":"a.qsn"})");
    EXPECT_EQ(JsonText(Json::object()), "{}\n");
}

}  // namespace
}  // namespace qsn
