// SPDX-License-Identifier: MIT
#include "kxbase/ComponentType.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <set>

namespace kxbase {
namespace {

TEST(ComponentType, NumbersAreTheFormats) {
    EXPECT_EQ(static_cast<uint32_t>(Range), 1u);
    EXPECT_EQ(static_cast<uint32_t>(VerticalAngle), 2u);
    EXPECT_EQ(static_cast<uint32_t>(HorizontalAngle), 3u);
    EXPECT_EQ(static_cast<uint32_t>(Luminance8), 4u);
    EXPECT_EQ(static_cast<uint32_t>(Luminance16), 5u);
    EXPECT_EQ(static_cast<uint32_t>(Color), 6u);
    EXPECT_EQ(static_cast<uint32_t>(Component7), 7u);
    EXPECT_EQ(static_cast<uint32_t>(Component17), 17u);
    EXPECT_EQ(static_cast<uint32_t>(Class), 18u);
    EXPECT_EQ(static_cast<uint32_t>(Segment), 19u);
    EXPECT_EQ(sizeof(ComponentType), 4u);
    EXPECT_EQ(sizeof(ClassId), 4u);
    EXPECT_EQ(sizeof(SegmentId), 8u);
}

TEST(ComponentType, NamesAreTheEnumerators) {
    const struct {
        uint32_t number;
        const char* name;
    } rows[] = {{1, "Range"},           {2, "VerticalAngle"},
                {3, "HorizontalAngle"}, {4, "Luminance8"},
                {5, "Luminance16"},     {6, "Color"},
                {7, "Component7"},      {12, "Component12"},
                {17, "Component17"},    {18, "Class"},
                {19, "Segment"},        {0, "Component0"},
                {20, "Component20"},    {0xffffffffu, "Component4294967295"}};
    for (const auto& row : rows)
        EXPECT_EQ(ComponentToString(static_cast<ComponentType>(row.number)), row.name);
}

TEST(ComponentType, NamesDifferAndAreNoStatisticsKey) {
    const std::set<std::string> keys = {"Headers",
                                        "LookupTables",
                                        "Thumbnail",
                                        "Limits",
                                        "PointCount",
                                        "ClassHistogramHeader",
                                        "SegmentHistogramHeader",
                                        "Luminance8HistogramHeader",
                                        "Luminance16HistogramHeader"};
    std::set<std::string> names;
    for (uint32_t number = 0; number < 1000; ++number) {
        const std::string name = ComponentToString(static_cast<ComponentType>(number));
        EXPECT_TRUE(names.insert(name).second) << name;
        EXPECT_TRUE(names.insert(name + "_Preview").second) << name;
        EXPECT_EQ(keys.count(name), 0u) << name;
    }
}

TEST(ComponentType, ElementSizes) {
    const uint32_t bytes[] = {0, 4, 4, 4, 1, 2, 3, 16, 8, 12, 0, 0, 0, 20, 12, 16, 16, 24, 4, 8, 0, 0};
    for (uint32_t number = 0; number < std::size(bytes); ++number)
        EXPECT_EQ(ComponentElementBytes(static_cast<ComponentType>(number)), bytes[number]) << number;
    EXPECT_EQ(ComponentElementBytes(static_cast<ComponentType>(0xffffffffu)), 0u);
}

RC_GTEST_PROP(ComponentType, DifferentNumbersHaveDifferentNames, (uint32_t a, uint32_t b)) {
    const bool same =
        ComponentToString(static_cast<ComponentType>(a)) == ComponentToString(static_cast<ComponentType>(b));
    RC_ASSERT(same == (a == b));
}

}  // namespace
}  // namespace kxbase
