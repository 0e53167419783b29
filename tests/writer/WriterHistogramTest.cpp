// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <numeric>

#include "WriterSupport.h"

namespace {

using namespace support;
using walker::Walk;

constexpr uint64_t kClass = 0xac8391a3fbed04c7, kSegment = 0x947643b5f86b1820,
                   kLuminance8 = 0x913a4f40ca422a2f, kLuminance16 = 0xa62815c019d63650;

using Counts = std::map<uint64_t, uint64_t>;

TEST(WriterHistogram, LastPatchColumnCountsItsColumnsInsideTheGridOnly) {
    // 1000 = 15 x 64 + 40.
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(1000, 64, 64, 64));
    std::vector<uint16_t> values(64 * 64);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<uint16_t>(1000 + i % 64);
    Flat<uint16_t> grey(kxbase::Luminance16, values, &Snappy());
    writer.AddPatch({&grey}, 0, 15);
    writer.EndCreation();
    const auto histogram = walker::ReadHistogram(*Walk(stream.GetBytes()).OfType(kLuminance16).at(0));
    ASSERT_EQ(histogram.size(), 1U);
    Counts expected;
    for (uint64_t column = 0; column < 40; ++column)
        expected[1000 + column] = 64;
    EXPECT_EQ(histogram.at(15), expected);
}

TEST(WriterHistogram, DisabledBeforeTheFirstPatchLeavesNoRecordAndNoKey) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.DisableHistogramComputation(true);
    writer.CreateNew(&stream, MakeGrid(2, 2, 2, 2));
    Flat<uint8_t> a(kxbase::Luminance8, {1, 2, 3, 4}, &Snappy());
    Flat<uint16_t> b(kxbase::Luminance16, {1, 2, 3, 4}, &Snappy());
    Flat<uint32_t> c(kxbase::Class, {1, 2, 3, 4}, &Snappy());
    Flat<uint64_t> d(kxbase::Segment, {1, 2, 3, 4}, &Snappy());
    writer.AddPatch({&a, &b, &c, &d}, 0, 0);
    const auto statistics = writer.EndCreation();
    EXPECT_EQ(Walk(stream.GetBytes()).extended.size(), 4U);
    for (const char* key : {"ClassHistogramHeader", "SegmentHistogramHeader", "Luminance8HistogramHeader",
                            "Luminance16HistogramHeader"}) {
        EXPECT_EQ(statistics.count(key), 0U) << key;
    }
}

TEST(WriterHistogram, WhatWasCountedBeforeDisablingIsWritten) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 2, 2, 2));
    Flat<uint8_t> grey(kxbase::Luminance8, {1, 1, 1, 4}, &Snappy());
    writer.AddPatch({&grey}, 0, 0);
    writer.DisableHistogramComputation(true);
    writer.AddPatch({&grey}, 0, 1);
    writer.EndCreation();
    const auto histogram = walker::ReadHistogram(*Walk(stream.GetBytes()).OfType(kLuminance8).at(0));
    EXPECT_EQ(histogram, (walker::Histogram{{0, {{1, 3}, {4, 1}}}}));
}

TEST(WriterHistogram, ClassPatchOfZerosHasOneEntryWithTheCellsInsideTheGrid) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(6, 7, 4, 4));
    Flat<uint32_t> zeros(kxbase::Class, std::vector<uint32_t>(16, 0), &Snappy());
    for (uint32_t index = 0; index < 4; ++index)
        writer.AddPatch({&zeros}, index);
    const auto statistics = writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    const walker::Extended& record = *file.OfType(kClass).at(0);
    const walker::Histogram expected = {{0, {{0, 16}}}, {1, {{0, 8}}}, {2, {{0, 12}}}, {3, {{0, 6}}}};
    EXPECT_EQ(walker::ReadHistogram(record), expected);
    EXPECT_EQ(statistics.at("ClassHistogramHeader"), record.size);
}

TEST(WriterHistogram, SegmentKeysKeepAllTheirBits) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(2, 2, 2, 2));
    Flat<uint64_t> segments(kxbase::Segment, {0x100000001, 1, 0xffffffffffffffff, 0x100000001}, &Snappy());
    writer.AddPatch({&segments}, 0, 0);
    writer.EndCreation();
    const auto histogram = walker::ReadHistogram(*Walk(stream.GetBytes()).OfType(kSegment).at(0));
    EXPECT_EQ(histogram.at(0), (Counts{{1, 1}, {0x100000001, 2}, {0xffffffffffffffff, 1}}));
}

TEST(WriterHistogram, TransposedValuesAreCountedRowByRow) {
    // Two of four columns are inside. Row by row those are values 0, 1, 4, 5, ...
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(2, 4, 4, 4));
    std::vector<uint8_t> values(16);
    std::iota(values.begin(), values.end(), uint8_t{0});
    Flat<uint8_t> grey(kxbase::Luminance8, values, &Snappy());
    grey.orientation = kxio::Transposed;
    writer.AddPatch({&grey}, 0, 0);
    writer.EndCreation();
    const auto histogram = walker::ReadHistogram(*Walk(stream.GetBytes()).OfType(kLuminance8).at(0));
    EXPECT_EQ(histogram.at(0), (Counts{{0, 1}, {1, 1}, {4, 1}, {5, 1}, {8, 1}, {9, 1}, {12, 1}, {13, 1}}));
}

TEST(WriterHistogram, WithoutTopologyOnlyTheFirstValueOfAPatchCounts) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    Flat<uint8_t> grey(kxbase::Luminance8, {7, 8, 9}, &Snappy());
    writer.AddPatch({&grey}, 0);
    writer.AddPatch({&grey}, 5);
    writer.EndCreation();
    const auto histogram = walker::ReadHistogram(*Walk(stream.GetBytes()).OfType(kLuminance8).at(0));
    EXPECT_EQ(histogram, (walker::Histogram{{0, {{7, 1}}}, {5, {{7, 1}}}}));
}

TEST(WriterHistogram, PatchOutsideTheKnownRowsHasAnEmptyEntry) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(4, 0, 4, 4));
    Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(16, 1), &Snappy());
    writer.AddPatch({&grey}, 2, 0);
    writer.EndCreation();
    const auto histogram = walker::ReadHistogram(*Walk(stream.GetBytes()).OfType(kLuminance8).at(0));
    EXPECT_EQ(histogram, (walker::Histogram{{2, {}}}));
}

TEST(WriterHistogram, HeightThatGrowsWithTheCallCounts) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeCylinder(4, 0, 4, 4));
    Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(16, 1), &Snappy());
    writer.AddPatch({&grey}, 2, 0);
    writer.EndCreation();
    const auto histogram = walker::ReadHistogram(*Walk(stream.GetBytes()).OfType(kLuminance8).at(0));
    EXPECT_EQ(histogram, (walker::Histogram{{2, {{1, 16}}}}));
}

TEST(WriterHistogram, ValuesOfAnotherSizeAndOtherKindsOfPatchesAreNotCounted) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(6, 2, 2, 2));
    Flat<uint64_t> wide(kxbase::Class, {1, 2, 3, 4}, &Snappy());
    Flat<float> range(kxbase::Range, {1, 2, 3, 4}, &Snappy());
    writer.AddPatch({&wide, &range}, 0, 0);
    Bytes chunk;
    Snappy().Encode("abcd", 2, 2, 4, 1.0F, chunk);
    kxio::EncodedPatchDescriptor encoded(kxbase::Luminance8, 1);
    encoded.data = chunk.data();
    encoded.size = chunk.size();
    kxio::EmptyPatchDescriptor empty(kxbase::Luminance8, 1);
    writer.AddPatch({&encoded}, 0, 1);
    writer.AddPatch({&empty}, 0, 2);
    const auto statistics = writer.EndCreation();
    EXPECT_EQ(Walk(stream.GetBytes()).extended.size(), 4U);
    EXPECT_EQ(statistics.count("Luminance8HistogramHeader"), 0U);
    EXPECT_EQ(statistics.count("ClassHistogramHeader"), 0U);
}

TEST(WriterHistogram, SamePositionTwiceAddsUp) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(2, 2, 2, 2));
    Flat<uint32_t> first(kxbase::Class, {5, 1, 5, 9}, &Snappy());
    Flat<uint32_t> second(kxbase::Class, {0, 5, 7, 12}, &Snappy());
    writer.AddPatch({&first, &second}, 0, 0);
    writer.EndCreation();
    const auto histogram = walker::ReadHistogram(*Walk(stream.GetBytes()).OfType(kClass).at(0));
    EXPECT_EQ(histogram.at(0), (Counts{{0, 1}, {1, 1}, {5, 3}, {7, 1}, {9, 1}, {12, 1}}));
}

}  // namespace
