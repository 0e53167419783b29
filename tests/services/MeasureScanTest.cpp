// SPDX-License-Identifier: MIT
// What MeasureScan counts and what it leaves out.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "InspectedScan.h"
#include "kxio/ScanStatistics.h"

namespace {

using namespace kxio;
using kxtest::Bytes;
using kxtest::MemoryScan;
using kxtest::OneRow;

ComponentStatistics Measured(const Bytes& bytes, const StatisticsOptions& options = {}) {
    const MemoryScan scan(bytes);
    const std::vector<ComponentStatistics> all = MeasureScan(scan.reader, options);
    EXPECT_EQ(all.size(), 1U);
    return all.at(0);
}

TEST(MeasureValues, OnlyReturnsCountAsRanges) {
    const ComponentStatistics range = Measured(
        OneRow<float>(1, {0, 4, -1, 2, std::nanf(""), std::numeric_limits<float>::infinity(), 6, 0}));
    EXPECT_EQ(range.cells, 8U);
    EXPECT_EQ(range.values, 3U);
    ASSERT_EQ(range.channels.size(), 1U);
    EXPECT_EQ(range.channels[0].minimum, 2.0);
    EXPECT_EQ(range.channels[0].maximum, 6.0);
    EXPECT_EQ(range.channels[0].mean, 4.0);
    EXPECT_EQ(range.noReturnShare, 0.625);
    EXPECT_EQ(range.distinctValues, 7U);  // the two zeros are one
}

TEST(MeasureValues, AnglesOfAnySignCountWhenTheyAreFinite) {
    const ComponentStatistics angle =
        Measured(OneRow<float>(3, {-3, 0, 1, -std::numeric_limits<float>::infinity()}));
    EXPECT_EQ(angle.values, 3U);
    EXPECT_EQ(angle.channels.at(0).minimum, -3.0);
    EXPECT_EQ(angle.channels.at(0).maximum, 1.0);
    EXPECT_DOUBLE_EQ(angle.channels.at(0).mean, -2.0 / 3);
    EXPECT_EQ(angle.noReturnShare, std::nullopt);
}

TEST(MeasureValues, ClassesAndSegmentsAreNumbersToo) {
    const ComponentStatistics classes = Measured(OneRow<uint32_t>(18, {70000, 2, 2, 2}));
    EXPECT_EQ(classes.channels.at(0).maximum, 70000.0);
    EXPECT_EQ(classes.distinctValues, 2U);
    EXPECT_NEAR(classes.entropyBits, 0.811278, 1e-6);  // of 1/4 and 3/4
    const ComponentStatistics segments = Measured(OneRow<uint64_t>(19, {uint64_t{1} << 40, 1}));
    EXPECT_EQ(segments.channels.at(0).maximum, 1099511627776.0);
    EXPECT_EQ(Measured(OneRow<uint16_t>(5, {7, 9})).channels.at(0).mean, 8.0);
}

TEST(MeasureValues, ComponentsOfUnknownMeaningHaveEntropyAndNoNumbers) {
    // 16 bytes to an element: two are the same, one differs in its last byte only.
    Bytes bytes(48, 5);
    bytes.back() = 6;
    kxtest::ScanFileBuilder file(3, 1, 3, 1);
    file.Chunk(7, 0, 0, kxtest::LiteralChunk(bytes, 3, 1));
    const ComponentStatistics unknown = Measured(file.Build());
    EXPECT_EQ(unknown.elementBytes, 16U);
    EXPECT_EQ(unknown.values, 3U);
    EXPECT_TRUE(unknown.channels.empty());
    EXPECT_EQ(unknown.distinctValues, 2U);
    EXPECT_NEAR(unknown.entropyBits, 0.918296, 1e-6);  // of 1/3 and 2/3
}

TEST(MeasureValues, PatchesThatAreAbsentOrDamagedDoNotCount) {
    kxtest::ScanFileBuilder file(6, 2, 2, 2);
    for (const uint32_t column : {0U, 2U})
        file.Chunk(1, 0, column, kxtest::SnappyChunk(std::vector<float>(4, 5.0F), 2, 2));
    Bytes bytes = file.Build();
    const ComponentStatistics whole = Measured(bytes);
    EXPECT_EQ(whole.cells, 8U);
    EXPECT_EQ(whole.notRead, 4U);
    EXPECT_EQ(whole.problem, "");
    EXPECT_EQ(whole.entropyBits, 0.0);
    bytes.at(92 + 32 + 28) ^= 0x40;
    for (const unsigned threads : {1U, 2U}) {
        StatisticsOptions options;
        options.threads = threads;
        const ComponentStatistics damaged = Measured(bytes, options);
        EXPECT_EQ(damaged.cells, 4U);
        EXPECT_EQ(damaged.notRead, 8U);
        EXPECT_TRUE(damaged.problem.starts_with("Patch cannot be decoded")) << damaged.problem;
        EXPECT_EQ(damaged.storedBytes, whole.storedBytes);
    }
}

TEST(MeasureValues, AComponentOfWhichNothingIsStoredHasNothingToTell) {
    kxtest::ScanFileBuilder file(4, 2, 2, 2);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>(4, 5.0F), 2, 2)).Component(10);
    const MemoryScan scan(file.Build());
    const std::vector<ComponentStatistics> all = MeasureScan(scan.reader);
    const ComponentStatistics& none = all.back();
    if (none.component != static_cast<kxbase::ComponentType>(10))
        GTEST_SKIP() << "the reader lists no such component";
    EXPECT_EQ(none.cells, 0U);
    EXPECT_EQ(none.distinctValues, 0U);
    EXPECT_EQ(none.entropyBits, 0.0);
}

TEST(MeasureValues, ListsWithoutAGridCountAsLongAsTheyAre) {
    kxtest::ScanFileBuilder file(2, 1, 1, 1);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>{1, 2, 3}, 3, 1));
    file.Chunk(1, 0, 1, kxtest::SnappyChunk(std::vector<float>{6}, 1, 1));
    const ComponentStatistics range = Measured(file.Build());
    EXPECT_EQ(range.cells, 4U);
    EXPECT_EQ(range.channels.at(0).mean, 3.0);
}

TEST(MeasureValues, ProgressGrowsToTheTotalAndWhatItThrowsEndsTheWork) {
    kxtest::ScanFileBuilder file(100, 2, 2, 2);
    kxtest::AddLayer<float>(file, 1, kxtest::RangeAt);
    const Bytes scan = file.Build();
    std::vector<uint64_t> told;
    StatisticsOptions options;
    options.mostDistinct = 64;  // of 200: read again and again
    options.progress = [&](uint64_t done, uint64_t total) {
        EXPECT_EQ(total, 50U);
        told.push_back(done);
    };
    EXPECT_EQ(Measured(scan, options).distinctValues, 200U);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), 50U);
    options.progress = [](uint64_t, uint64_t) { throw std::runtime_error("enough"); };
    EXPECT_THROW(Measured(scan, options), std::runtime_error);
}

}  // namespace
