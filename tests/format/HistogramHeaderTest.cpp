// SPDX-License-Identifier: MIT
#include "kxio/HistogramHeader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "format/HistogramLimit.h"
#include "kxcodecs/ElementOrder.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "support/AllocationWatch.h"
#include "support/RecordBytes.h"

namespace {

using kxbase::QSNIndex;
using kxio::ExtendedHeader;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::GoldenHex;

ExtendedHeader AsRead(const Bytes& record) {
    ExtendedHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, record), record.size());
    return header;
}

// A histogram record's data around the given chunk.
ExtendedHeader WithChunk(const Bytes& chunk) {
    return AsRead(
        kxtest::ExtendedRecord(kxio::ClassHistogramHeader::Type, ByteList().U64(chunk.size()).Raw(chunk)));
}

// As codecs take and give them.
Bytes NumberBytes(const std::vector<uint64_t>& numbers) {
    Bytes bytes(numbers.size() * sizeof(uint64_t));
    if (!numbers.empty()) std::memcpy(bytes.data(), numbers.data(), bytes.size());
    return bytes;
}

// The same around a zlib chunk of these numbers.
ExtendedHeader WithNumbers(const std::vector<uint64_t>& numbers) {
    const Bytes bytes = NumberBytes(numbers);
    Bytes chunk;
    kxcodecs::ZLibChunkCodec().Encode(bytes.data(), static_cast<uint32_t>(numbers.size()), 1, bytes.size(),
                                      1.0F, chunk);
    return WithChunk(chunk);
}

template <class Header = kxio::ClassHistogramHeader>
void ExpectUndecodable(const ExtendedHeader& record) {
    const Header header(record);
    try {
        static_cast<void>(header.GetHistogram());
        ADD_FAILURE() << "nothing thrown";
    } catch (const kxbase::KXUnreadablePatchException& e) {
        EXPECT_STREQ(e.what(), "Patch cannot be decoded");
        EXPECT_EQ(e.Context().record, header.GetRecordName());
        EXPECT_FALSE(e.Context().detail.empty());
    }
}

const kxio::ClassHistogram kSmall{{QSNIndex(0), {{2, 10}, {5, 1}}}, {QSNIndex(3), {{5, 7}}}};

TEST(HistogramHeader, EachKindHasItsTypeTagAndComponent) {
    EXPECT_EQ(kxio::ClassHistogramHeader::Type, 0xac8391a3fbed04c7ULL);
    EXPECT_EQ(kxio::ClassHistogramHeader::Component, 18U);
    EXPECT_EQ(kxio::SegmentHistogramHeader::Type, 0x947643b5f86b1820ULL);
    EXPECT_EQ(kxio::SegmentHistogramHeader::Component, 19U);
    EXPECT_EQ(kxio::Luminance8HistogramHeader::Type, 0x913a4f40ca422a2fULL);
    EXPECT_EQ(kxio::Luminance8HistogramHeader::Component, 4U);
    EXPECT_EQ(kxio::Luminance16HistogramHeader::Type, 0xa62815c019d63650ULL);
    EXPECT_EQ(kxio::Luminance16HistogramHeader::Component, 5U);
}

TEST(HistogramHeader, SevenTagsNameAComponent) {
    using kxbase::ComponentType;
    EXPECT_EQ(kxio::HistogramComponent(0xb22bb13068c1b1a7ULL), ComponentType::Range);
    EXPECT_EQ(kxio::HistogramComponent(0x97ff05470e6123c5ULL), ComponentType::VerticalAngle);
    EXPECT_EQ(kxio::HistogramComponent(0xb0293a2fd2a7dc74ULL), ComponentType::HorizontalAngle);
    EXPECT_EQ(kxio::HistogramComponent(0x913a4f40ca422a2fULL), ComponentType::Luminance8);
    EXPECT_EQ(kxio::HistogramComponent(0xa62815c019d63650ULL), ComponentType::Luminance16);
    EXPECT_EQ(kxio::HistogramComponent(0xac8391a3fbed04c7ULL), ComponentType::Class);
    EXPECT_EQ(kxio::HistogramComponent(0x947643b5f86b1820ULL), ComponentType::Segment);
    EXPECT_FALSE(kxio::HistogramComponent(0xac14e2e7714a591eULL));
    EXPECT_FALSE(kxio::HistogramComponent(0));
}

TEST(HistogramHeader, GoldenRecordsDecode) {
    EXPECT_EQ(
        kxio::ClassHistogramHeader(AsRead(GoldenHex("records/extended-histogram-class.hex"))).GetHistogram(),
        kSmall);
    const kxio::Luminance8Histogram expected8{{QSNIndex(0), {{2, 10}, {5, 1}}}, {QSNIndex(3), {{5, 7}}}};
    EXPECT_EQ(kxio::Luminance8HistogramHeader(AsRead(GoldenHex("records/extended-histogram-luminance8.hex")))
                  .GetHistogram(),
              expected8);
    const kxio::Luminance16Histogram expected16{{QSNIndex(0), {{2, 10}, {5, 1}}}, {QSNIndex(3), {{5, 7}}}};
    EXPECT_EQ(
        kxio::Luminance16HistogramHeader(AsRead(GoldenHex("records/extended-histogram-luminance16.hex")))
            .GetHistogram(),
        expected16);
}

TEST(HistogramHeader, SegmentKeysAbove32BitsAndPositionsInThePatchSurvive) {
    const kxio::SegmentHistogram expected{{QSNIndex(0), {{2, 10}, {0x100000001ULL, 1}}},
                                          {QSNIndex(3, 7), {{5, 7}}}};
    EXPECT_EQ(kxio::SegmentHistogramHeader(AsRead(GoldenHex("records/extended-histogram-segment.hex")))
                  .GetHistogram(),
              expected);
    EXPECT_EQ(kxio::SegmentHistogramHeader(expected).GetHistogram(), expected);
}

TEST(HistogramHeader, IsWrittenAsOneZlibChunkOfNumbersInKeyOrder) {
    kxio::ClassHistogramHeader header(kSmall);
    const Bytes bytes = kxtest::Written(header);
    kxbase::ByteReader in(bytes);
    in.Skip(16, "frame");
    EXPECT_EQ(in.U64("link"), 0U);
    EXPECT_EQ(in.U64("type tag"), 0xac8391a3fbed04c7ULL);
    const uint32_t length = in.U32("data length");
    EXPECT_EQ(length, bytes.size() - 36);
    const uint64_t chunkSize = in.U64("chunk size");
    EXPECT_EQ(chunkSize + 8, length);
    EXPECT_EQ(in.U64("codec identifier"), 0x000042494c5a584bULL);
    EXPECT_EQ(in.U32("width"), 11U);
    EXPECT_EQ(in.U32("height"), 1U);
    EXPECT_EQ(in.U32("decoded bytes"), 88U);
    EXPECT_EQ(in.F32("step"), 1.0F);
    EXPECT_EQ(in.U32("uncompressed bytes"), 88U);
    kxcodecs::ChunkHeaderInfo info;
    Bytes numbers;
    ASSERT_EQ(kxcodecs::QKXChunkCodec::DecodeChunk(std::span(bytes).subspan(44), info, numbers),
              kxcodecs::DecodeStatus::Decoded);
    EXPECT_EQ(numbers, NumberBytes({2, 0, 2, 2, 10, 5, 1, 3, 1, 5, 7}));
}

TEST(HistogramHeader, RoundTripsThroughARecord) {
    kxio::Luminance16Histogram histogram;
    for (uint32_t patch = 0; patch < 40; ++patch) {
        for (uint32_t value = patch; value < 65536; value += 1000)
            histogram[QSNIndex(patch)][static_cast<uint16_t>(value)] = uint64_t{value} << 30;
    }
    kxio::Luminance16HistogramHeader header(histogram);
    const kxio::Luminance16HistogramHeader read(AsRead(kxtest::Written(header)));
    EXPECT_EQ(read.GetHistogram(), histogram);
    EXPECT_STREQ(read.GetRecordName(), "Luminance16HistogramHeader");
}

TEST(HistogramHeader, EmptyMapAndEmptyInnerMapRoundTrip) {
    EXPECT_TRUE(kxio::ClassHistogramHeader(kxio::ClassHistogram()).GetHistogram().empty());
    const kxio::ClassHistogram inner{{QSNIndex(1), {}}};
    EXPECT_EQ(kxio::ClassHistogramHeader(inner).GetHistogram(), inner);
}

TEST(HistogramHeader, FewerThanTwoNumbersOrAFirstOneBelowOneIsEmpty) {
    EXPECT_TRUE(kxio::ClassHistogramHeader(WithNumbers({5})).GetHistogram().empty());
    EXPECT_TRUE(kxio::ClassHistogramHeader(WithNumbers({0})).GetHistogram().empty());
    EXPECT_TRUE(kxio::ClassHistogramHeader(WithNumbers({0, 1, 1, 2, 3})).GetHistogram().empty());
}

TEST(HistogramHeader, NumbersBehindTheLastEntryAreIgnored) {
    EXPECT_EQ(
        kxio::ClassHistogramHeader(WithNumbers({2, 0, 2, 2, 10, 5, 1, 3, 1, 5, 7, 99, 98})).GetHistogram(),
        kSmall);
}

TEST(HistogramHeader, CountsPastTheEndAreRefusedWithoutTakingMemory) {
    const std::vector<std::vector<uint64_t>> sequences = {
        {1, 0, uint64_t{1} << 60, 2, 3},      // inner count
        {1, 0, 0x1000000000000001ULL, 2, 3},  // inner count whose 16-fold wraps around
        {uint64_t{1} << 60, 0, 1, 2, 3},      // entry count
        {~uint64_t{0}, 0, 1, 2, 3},           // entry count
        {1, 0, 2, 2, 10, 5},                  // second pair cut
        {2, 0, 1, 2, 10},                     // second entry missing
        {2, 0, 1, 2, 10, 3},                  // second entry without its count
    };
    for (const std::vector<uint64_t>& numbers : sequences) {
        const ExtendedHeader record = WithNumbers(numbers);
        const kxtest::AllocationWatch watch;
        ExpectUndecodable(record);
        EXPECT_LT(watch.Largest(), size_t{1} << 20);
    }
}

TEST(HistogramHeader, ChunkSizeBeyondTheDataIsRefused) {
    for (const uint64_t size : {uint64_t{29}, ~uint64_t{0}, uint64_t{1} << 63, ~uint64_t{0} - 7}) {
        ExpectUndecodable(AsRead(
            kxtest::ExtendedRecord(kxio::ClassHistogramHeader::Type, ByteList().U64(size).Fill(28, 0))));
    }
}

TEST(HistogramHeader, DataWithoutAChunkIsRefused) {
    for (size_t size = 0; size < 8 + 28; ++size)
        ExpectUndecodable(AsRead(kxtest::ExtendedRecord(kxio::ClassHistogramHeader::Type, Bytes(size, 0))));
}

TEST(HistogramHeader, DamagedChunksAreRefused) {
    const Bytes golden = GoldenHex("records/extended-histogram-class.hex");
    const Bytes chunk(golden.begin() + 44, golden.end());
    Bytes checksum = chunk;
    checksum.back() ^= 1;
    Bytes codec = chunk;
    codec[0] ^= 1;
    Bytes bomb = chunk;
    for (size_t i = 8; i < 28; ++i)
        bomb[i] = 0xff;
    for (const Bytes& damaged : {checksum, codec, bomb}) {
        const kxtest::AllocationWatch watch;
        ExpectUndecodable(WithChunk(damaged));
        EXPECT_LT(watch.Largest(), size_t{1} << 20);
    }
}

TEST(HistogramHeader, MoreThanOneGibibyteMustBeCredibleByTheBytesThatAreThere) {
    constexpr uint64_t kMiB = uint64_t{1} << 20;
    EXPECT_EQ(kxio::MaxDecodedHistogramBytes(0), 1024 * kMiB);
    EXPECT_EQ(kxio::MaxDecodedHistogramBytes(16 * kMiB), 1024 * kMiB);
    EXPECT_EQ(kxio::MaxDecodedHistogramBytes(50 * kMiB), 3200 * kMiB);
}

TEST(HistogramHeader, EveryCutOfTheChunkIsRefused) {
    const Bytes golden = GoldenHex("records/extended-histogram-class.hex");
    const Bytes chunk(golden.begin() + 44, golden.end());
    for (size_t size = 0; size < chunk.size(); ++size)
        ExpectUndecodable(WithChunk(Bytes(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(size))));
}

TEST(HistogramHeader, KeyThatDoesNotFitItsTypeIsRefused) {
    ExpectUndecodable<kxio::Luminance8HistogramHeader>(WithNumbers({1, 0, 1, 256, 3}));
    ExpectUndecodable<kxio::Luminance16HistogramHeader>(WithNumbers({1, 0, 1, 65536, 3}));
    ExpectUndecodable<kxio::ClassHistogramHeader>(WithNumbers({1, 0, 1, 0x100000000ULL, 3}));
    const kxio::SegmentHistogram expected{{QSNIndex(0), {{~uint64_t{0}, 3}}}};
    EXPECT_EQ(kxio::SegmentHistogramHeader(WithNumbers({1, 0, 1, ~uint64_t{0}, 3})).GetHistogram(), expected);
}

TEST(HistogramHeader, ChunkOfAnotherKnownCodecDecodes) {
    const Bytes bytes = NumberBytes({2, 0, 2, 2, 10, 5, 1, 3, 1, 5, 7});
    Bytes chunk;
    kxcodecs::SnappyChunkCodec().Encode(bytes.data(), 11, 1, bytes.size(), 1.0F, chunk);
    EXPECT_EQ(kxio::ClassHistogramHeader(WithChunk(chunk)).GetHistogram(), kSmall);
}

TEST(HistogramHeader, ScaledNumbersAreScaledBackAndCutToWholeOnes) {
    // Stored integers are number x 4; 11 and 10 are 2.75 and 2.5 and become 2.
    const Bytes bytes = NumberBytes({11, 0, 8, 8, 40, 20, 4, 12, 4, 20, 28});
    Bytes chunk;
    kxcodecs::ZLibChunkCodec().Encode(bytes.data(), 11, 1, bytes.size(), 1.0F, chunk);
    const Bytes step = ByteList().F32(4.0F);
    std::copy(step.begin(), step.end(), chunk.begin() + 20);
    EXPECT_EQ(kxio::ClassHistogramHeader(WithChunk(chunk)).GetHistogram(), kSmall);
}

TEST(HistogramHeader, NonsensicalStepsEndInAHistogramOrAnError) {
    const Bytes bytes = NumberBytes({1, 0, 1, 5, 7});
    for (const float step :
         {0.0F, -1.0F, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(),
          std::numeric_limits<float>::denorm_min()}) {
        Bytes chunk;
        kxcodecs::ZLibChunkCodec().Encode(bytes.data(), 5, 1, bytes.size(), 1.0F, chunk);
        const Bytes stepBytes = ByteList().F32(step);
        std::copy(stepBytes.begin(), stepBytes.end(), chunk.begin() + 20);
        const kxio::ClassHistogramHeader header(WithChunk(chunk));
        try {
            EXPECT_TRUE(header.GetHistogram().empty()) << step;
        } catch (const kxbase::KXUnreadablePatchException& e) {
            EXPECT_STREQ(e.what(), "Patch cannot be decoded");
        }
    }
}

TEST(HistogramHeader, RecordOfAnotherTypeIsTakenOver) {
    const kxio::ClassHistogramHeader header(AsRead(GoldenHex("records/extended-histogram-luminance8.hex")));
    EXPECT_EQ(header.GetHistogram(), kSmall);
    EXPECT_EQ(header.GetType(), kxio::ClassHistogramHeader::Type);
}

}  // namespace
