// SPDX-License-Identifier: MIT
// XYZ and PTS in.
#include <gtest/gtest.h>

#include <cmath>

#include "PointFiles.h"

namespace kxexchange::testing {
namespace {

TEST(XyzSource, TheNumberOfValuesTellsWhatThePointsHave) {
    struct Form {
        const char* line;
        bool intensity, color;
    };
    for (const Form& form : {Form{"1 2 3", false, false}, Form{"1 2 3 0.5", true, false},
                             Form{"1 2 3 9 8 7", false, true}, Form{"1\t2  3 -4 9 8 7\r", true, true}}) {
        const auto source =
            SourceOf(std::string("# a remark\n\n") + form.line + "\n" + form.line + "\n\n", "a.xyz");
        const ScanDescription description = source->OpenScan(0);
        EXPECT_EQ(description.intensity.present, form.intensity);
        EXPECT_EQ(description.color.present, form.color);
        const auto points = ReadPoints(*source);
        ASSERT_EQ(points.size(), 2u) << form.line;
        EXPECT_EQ(points[1].y, 2);
        EXPECT_EQ(points[1].blue, form.color ? 7 : 0);
        EXPECT_EQ(source->ScanCount(), 1u);
    }
}

TEST(XyzSource, RefusesWhatIsNoPoint) {
    ExpectRefused("1 2\n", "a.xyz", "3, 4, 6 or 7 values");
    ExpectRefused("1 2 3\n1 2 x\n", "a.xyz", "a number");
    ExpectRefused("1 2 3\n1 2 3 4\n", "a.xyz", "no more than 3 values");
    ExpectRefused("1 2 3\n\n1 2 3\n", "a.xyz", "3 values");
    ExpectRefused("1 2 3 4 5 256\n", "a.xyz", "0 to 255");
    ExpectRefused("", "a.xyz", "a point");
    ExpectTotal("1 2 3 0.5 6 7 8\n4 5 6 7 8 9 0\n", "a.xyz");
}

TEST(PtsSource, BlocksAreScans) {
    const auto source = SourceOf("2\n1 2 3 -2048 1 2 3\n4 5 6 2047 4 5 6\n1\n7 8 9\n\n0\n", "a.pts");
    EXPECT_EQ(source->ScanCount(), 3u);
    EXPECT_EQ(ReadPoints(*source, 0).size(), 2u);
    EXPECT_EQ(ReadPoints(*source, 0)[0].intensity, -2048);
    EXPECT_EQ(ReadPoints(*source, 1)[0].z, 9);
    EXPECT_TRUE(ReadPoints(*source, 2).empty());
    EXPECT_THROW(source->OpenScan(3), kxbase::KXIndexOutOfBoundsException);
    ExpectRefused("2\n1 2 3\n", "a.pts", "1 more points");
    ExpectRefused("two\n1 2 3\n", "a.pts", "number of points");
    ExpectTotal("2\n1 2 3 -2048 1 2 3\n4 5 6 2047 4 5 6\n1\n7 8 9\n", "a.pts");
}

}  // namespace
}  // namespace kxexchange::testing
