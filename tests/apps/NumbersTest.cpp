// SPDX-License-Identifier: MIT
#include "Numbers.h"

#include <gtest/gtest.h>

#include <limits>

namespace qsn {
namespace {

TEST(Numbers, DigitsAreGroupedByThree) {
    EXPECT_EQ(Grouped(0), "0");
    EXPECT_EQ(Grouped(999), "999");
    EXPECT_EQ(Grouped(1000), "1,000");
    EXPECT_EQ(Grouped(370530), "370,530");
    EXPECT_EQ(Grouped(std::numeric_limits<uint64_t>::max()), "18,446,744,073,709,551,615");
}

TEST(Numbers, ShortFormsHaveThreeFigures) {
    EXPECT_EQ(ShortCount(0), "0");
    EXPECT_EQ(ShortCount(999), "999");
    EXPECT_EQ(ShortCount(999.6), "1.00 k");
    EXPECT_EQ(ShortCount(12345), "12.3 k");
    EXPECT_EQ(ShortCount(370530), "371 k");
    EXPECT_EQ(ShortCount(1.5e7), "15.0 M");
    EXPECT_EQ(ShortBytes(999), "999 bytes");
    EXPECT_EQ(ShortBytes(2684944), "2.68 MB");
    EXPECT_EQ(ShortBytes(50000000000), "50.0 GB");
}

TEST(Numbers, DurationsAreMinutesAndSeconds) {
    EXPECT_EQ(ShortDuration(0), "0:00");
    EXPECT_EQ(ShortDuration(6.2), "0:07");
    EXPECT_EQ(ShortDuration(754), "12:34");
    EXPECT_EQ(ShortDuration(10805), "3:00:05");
    EXPECT_EQ(ShortDuration(-5), "0:00");
    EXPECT_EQ(ShortDuration(1e300), "168:00:00");
}

TEST(Numbers, OnlyWholeTextsAreNumbers) {
    EXPECT_EQ(ParseNumber("0.1"), 0.1);
    EXPECT_EQ(ParseNumber("-2e-6"), -2e-6);
    EXPECT_EQ(ParseCount("256"), 256U);
    EXPECT_EQ(ParseCount("4294967295"), 4294967295U);
    for (const char* text : {"", " 1", "1 ", "1,5", "one", "0x10", "1.5.2"})
        EXPECT_FALSE(ParseNumber(text)) << text;
    for (const char* text : {"", "-1", "+1", "1.0", "4294967296", "1e3"})
        EXPECT_FALSE(ParseCount(text)) << text;
}

TEST(Numbers, ListsHaveExactlyTheirCountOfFiniteNumbers) {
    EXPECT_EQ(ParseNumbers("1,-2.5, 3e2 ", 3), (std::vector<double>{1, -2.5, 300}));
    EXPECT_EQ(ParseNumbers("7", 1), std::vector<double>{7});
    for (const char* text :
         {"", ",", "1,2", "1,2,3,4", "1,2,", ",1,2", "1,,3", "1,2,x", "1,2,nan", "inf,2,3", "1;2;3"})
        EXPECT_FALSE(ParseNumbers(text, 3)) << text;
}

TEST(Numbers, PlacesAreTwoCountsFromZero) {
    EXPECT_EQ(ParsePlace("0,17"), std::pair(0U, 17U));
    EXPECT_EQ(ParsePlace("3, 4"), std::pair(3U, 4U));
    for (const char* text : {"", "3", "3,", ",4", "-1,4", "1.5,2", "1,2,3"})
        EXPECT_FALSE(ParsePlace(text)) << text;
}

TEST(Numbers, FixedDecimalsAreNeverNegativeZero) {
    EXPECT_EQ(Fixed(1.23456, 4), "1.2346");
    EXPECT_EQ(Fixed(-1.23456, 2), "-1.23");
    EXPECT_EQ(Fixed(-0.0, 4), "0.0000");
    EXPECT_EQ(Fixed(-0.00001, 4), "0.0000");
    EXPECT_EQ(Fixed(-0.00006, 4), "-0.0001");
}

TEST(Numbers, SizesAreTwoCountsFromOne) {
    EXPECT_EQ(ParseSize("800x400"), std::pair(800U, 400U));
    for (const char* text : {"", "800", "800x", "x400", "0x400", "800x0", "800*400", "800x400x2", "-1x4"})
        EXPECT_FALSE(ParseSize(text)) << text;
}

}  // namespace
}  // namespace qsn
