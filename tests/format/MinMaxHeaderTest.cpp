// SPDX-License-Identifier: MIT
#include "kxio/MinMaxHeader.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>

#include "support/AllocationWatch.h"
#include "support/RecordBytes.h"

namespace {

using kxio::MinMaxHeader;
using kxio::MinMaxPair;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::GoldenHex;

constexpr uint32_t kStartMinimum = 0x7f7fffffU;
constexpr uint32_t kStartMaximum = 0x80800000U;

std::pair<uint32_t, uint32_t> OverallBits(std::vector<MinMaxPair> pairs) {
    MinMaxHeader header(&pairs);
    const Bytes bytes = kxtest::Written(header);
    kxbase::ByteReader in(bytes);
    in.Skip(16, "frame");
    const uint32_t minimum = in.U32("minimum");
    const uint32_t maximum = in.U32("maximum");
    EXPECT_EQ(std::bit_cast<uint32_t>(header.minimum), minimum);
    EXPECT_EQ(std::bit_cast<uint32_t>(header.maximum), maximum);
    return {minimum, maximum};
}

std::pair<uint32_t, uint32_t> Bits(float minimum, float maximum) {
    return {std::bit_cast<uint32_t>(minimum), std::bit_cast<uint32_t>(maximum)};
}

TEST(MinMaxPair, StartsWithItsStartValues) {
    const MinMaxPair pair;
    EXPECT_EQ(std::bit_cast<uint32_t>(pair.minimum), kStartMinimum);
    EXPECT_EQ(std::bit_cast<uint32_t>(pair.maximum), kStartMaximum);
}

TEST(MinMaxHeader, ReadsItsGoldenRecord) {
    std::vector<MinMaxPair> pairs(17, {1.0F, 2.0F});
    MinMaxHeader header(&pairs);
    EXPECT_EQ(kxtest::ReadFrom(header, GoldenHex("records/minmax-200.hex")), 52U);
    EXPECT_EQ(header.minimum, 2.0F);
    EXPECT_EQ(header.maximum, 8.5F);
    EXPECT_EQ(pairs, (std::vector<MinMaxPair>{{0, 0}, {2.0F, 5.0F}, {2.5F, 8.5F}}));
}

TEST(MinMaxHeader, IsWrittenByteForByte) {
    std::vector<MinMaxPair> pairs{{0, 0}, {2.0F, 5.0F}, {2.5F, 8.5F}};
    MinMaxHeader header(&pairs);
    EXPECT_EQ(header.DataSize(200), 12U + 24U);
    EXPECT_EQ(kxtest::ToHex(kxtest::Written(header)), kxtest::ToHex(GoldenHex("records/minmax-200.hex")));
}

TEST(MinMaxHeader, PairsThatAreAllZeroLeaveTheStartValues) {
    EXPECT_EQ(OverallBits({{0, 0}, {0, 0}}), std::pair(kStartMinimum, kStartMaximum));
}

TEST(MinMaxHeader, NoPairsLeaveTheStartValues) {
    EXPECT_EQ(OverallBits({}), std::pair(kStartMinimum, kStartMaximum));
}

TEST(MinMaxHeader, OnlyValuesAboveZeroCount) {
    EXPECT_EQ(OverallBits({{0, 0}, {2, 5}}), Bits(2, 5));
    EXPECT_EQ(OverallBits({{3, 4}, {2, 9}, {1, 2}}), Bits(1, 9));
    EXPECT_EQ(OverallBits({{-3, -1}}), std::pair(kStartMinimum, kStartMaximum));
    EXPECT_EQ(OverallBits({{-3, 2}}), std::pair(kStartMinimum, std::bit_cast<uint32_t>(2.0F)));
    EXPECT_EQ(OverallBits({MinMaxPair(), {1, 1}}), Bits(1, 1));
}

TEST(MinMaxHeader, NotANumberNeverCounts) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(OverallBits({{nan, nan}, {2, 5}}), Bits(2, 5));
}

TEST(MinMaxHeader, WithoutPairsWritesNoneAndReadsPastThem) {
    MinMaxHeader header;
    EXPECT_EQ(kxtest::Written(header),
              kxtest::Record(kxtest::kMinMaxRecord, ByteList().U32(kStartMinimum).U32(kStartMaximum).U32(0)));
    EXPECT_EQ(kxtest::ReadFrom(header, GoldenHex("records/minmax-200.hex")), 52U);
    EXPECT_EQ(header.minimum, 2.0F);
    EXPECT_EQ(header.maximum, 8.5F);
}

TEST(MinMaxHeader, StoredOverallValuesAreReadAsTheyAre) {
    const Bytes payload = ByteList().F32(7.0F).F32(-7.0F).U32(1).F32(1.0F).F32(2.0F);
    std::vector<MinMaxPair> pairs;
    MinMaxHeader header(&pairs);
    kxtest::ReadFrom(header, kxtest::Record(kxtest::kMinMaxRecord, payload));
    EXPECT_EQ(header.minimum, 7.0F);
    EXPECT_EQ(header.maximum, -7.0F);
}

TEST(MinMaxHeader, CountBeyondThePayloadIsRefusedWithoutTakingMemory) {
    for (const uint32_t count : {0xffffffffU, 0x20000000U, 10U}) {
        const Bytes payload = ByteList().F32(1).F32(2).U32(count).Fill(72, 0);
        std::vector<MinMaxPair> pairs{{3, 4}};
        MinMaxHeader header(&pairs);
        kxbase::InMemoryStream in(kxtest::Record(kxtest::kMinMaxRecord, payload));
        const kxtest::AllocationWatch watch;
        EXPECT_EQ(header.Read(&in), 0U) << count;
        EXPECT_LT(watch.Largest(), 4096U);
        EXPECT_EQ(pairs, (std::vector<MinMaxPair>{{3, 4}}));
        EXPECT_EQ(std::bit_cast<uint32_t>(header.minimum), kStartMinimum);
    }
}

TEST(MinMaxHeader, ManyPairsRoundTrip) {
    std::vector<MinMaxPair> pairs;
    for (int i = 0; i < 1000; ++i)
        pairs.push_back({static_cast<float>(i), static_cast<float>(i * 2)});
    MinMaxHeader header(&pairs);
    const Bytes bytes = kxtest::Written(header);
    std::vector<MinMaxPair> read;
    MinMaxHeader reading(&read);
    EXPECT_EQ(kxtest::ReadFrom(reading, bytes), 28U + 8000U);
    EXPECT_EQ(read, pairs);
    EXPECT_EQ(reading.minimum, 1.0F);
    EXPECT_EQ(reading.maximum, 1998.0F);
}

}  // namespace
