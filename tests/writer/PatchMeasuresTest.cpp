// SPDX-License-Identifier: MIT
// Limits, point count and histograms of single patches against the plainest way to compute them.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <random>

#include "format/HistogramNumbers.h"
#include "kxbase/ByteReader.h"
#include "kxbase/InMemoryStream.h"
#include "kxio/HistogramHeader.h"
#include "writer/HistogramRecords.h"
#include "writer/PatchHistograms.h"
#include "writer/PatchLimits.h"

namespace {

using namespace kxio;

PatchPlace RandomPlace(std::mt19937& random) {
    const auto upTo = [&](uint32_t limit) { return 1 + static_cast<uint32_t>(random() % limit); };
    PatchPlace place;
    place.grid.columns = upTo(50);
    place.grid.rows = upTo(50);
    place.grid.patchWidth = upTo(12);
    place.grid.patchHeight = upTo(12);
    place.row = static_cast<uint32_t>(random() % place.grid.PatchesPerColumn());
    place.column = static_cast<uint32_t>(random() % place.grid.PatchesPerRow());
    place.index = place.row * place.grid.PatchesPerRow() + place.column;
    return place;
}

bool Inside(const PatchPlace& place, uint64_t i, bool transposed) {
    const uint64_t a = i / place.grid.patchWidth, b = i % place.grid.patchWidth;
    const uint64_t x = uint64_t{place.column} * place.grid.patchWidth + (transposed ? a : b);
    const uint64_t y = uint64_t{place.row} * place.grid.patchHeight + (transposed ? b : a);
    return x < place.grid.columns && y < place.grid.rows;
}

template <class T>
std::span<const unsigned char> BytesOf(const std::vector<T>& values) {
    return {reinterpret_cast<const unsigned char*>(values.data()), values.size() * sizeof(T)};
}

TEST(PatchMeasures, LimitsAndPointsOfAnyBitPatternsAreThoseOfAPlainLoop) {
    std::mt19937 random(4711);
    for (int round = 0; round < 2000; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const PatchPlace place = RandomPlace(random);
        const bool transposed = random() % 2 == 0;
        std::vector<float> values(random() % 200);
        for (float& value : values) {
            static constexpr uint32_t kEdges[] = {0,          0x80000000, 1,          0x80000001, 0x7f7fffff,
                                                  0x7f800000, 0xff800000, 0x7f800001, 0x7fc00000, 0xffc00000};
            const auto bits =
                random() % 3 == 0 ? kEdges[random() % std::size(kEdges)] : static_cast<uint32_t>(random());
            value = std::bit_cast<float>(bits);
        }
        MinMaxPair expected;  // the start values
        bool seen = false;
        uint64_t inside = 0, all = 0;
        for (size_t i = 0; i < values.size(); ++i) {
            if (!(values[i] > 0)) continue;
            seen = true;
            if (values[i] < expected.minimum) expected.minimum = values[i];
            if (values[i] > expected.maximum) expected.maximum = values[i];
            ++all;
            inside += Inside(place, i, transposed) ? 1 : 0;
        }
        if (!seen) expected = {0.0F, 0.0F};
        const PatchLimits grid = MeasurePatch(BytesOf(values), place, transposed, CountedValues::InsideGrid);
        EXPECT_EQ(grid.pair, expected);
        EXPECT_EQ(grid.points, inside);
        const PatchLimits free = MeasurePatch(BytesOf(values), place, transposed, CountedValues::All);
        EXPECT_EQ(free.pair, expected);
        EXPECT_EQ(free.points, all);
    }
}

template <class Key>
void CompareHistograms(kxbase::ComponentType component, unsigned bits) {
    std::mt19937_64 numbers(bits);
    std::mt19937 random(bits + 1);
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const PatchPlace place = RandomPlace(random);
        PatchHistograms histograms;
        std::map<Key, uint64_t> expected;
        // Twice into one patch: counts add up.
        for (int repeat = 0; repeat < 2; ++repeat) {
            std::vector<Key> values(random() % 200);
            for (Key& value : values)
                value = static_cast<Key>(random() % 2 == 0 ? numbers() : numbers() % 4);
            histograms.Count(component, sizeof(Key), BytesOf(values), place);
            for (size_t i = 0; i < values.size(); ++i) {
                if (Inside(place, i, false)) ++expected[values[i]];
            }
        }
        const auto counts = histograms.All(component);
        ASSERT_EQ(counts.size(), 1U);
        EXPECT_EQ(counts.begin()->first, kxbase::QSNIndex(place.index));
        const ValueCounts list(expected.begin(), expected.end());
        EXPECT_EQ(counts.begin()->second, list);
        // The same as eight-byte numbers, and then they are gone.
        std::vector<uint64_t> numbersOfRecord{1, place.index, list.size()};
        for (const auto& [value, count] : list)
            numbersOfRecord.insert(numbersOfRecord.end(), {value, count});
        EXPECT_EQ(histograms.NumberBytes(component), 8 * numbersOfRecord.size());
        const PackedPatches packed = histograms.Take(component);
        ASSERT_EQ(packed.size(), 1U);
        const std::vector<unsigned char> bytes = kxcodecs::Unpacked(packed.begin()->second);
        ASSERT_EQ(8 + bytes.size(), 8 * numbersOfRecord.size());
        kxbase::ByteReader in(bytes);
        for (size_t i = 1; i < numbersOfRecord.size(); ++i)
            ASSERT_EQ(in.U64("number"), numbersOfRecord[i]);
        EXPECT_EQ(histograms.NumberBytes(component), 0U);
    }
}

TEST(PatchMeasures, HistogramsAreThoseOfAPlainLoop) {
    CompareHistograms<uint8_t>(kxbase::Luminance8, 8);
    CompareHistograms<uint16_t>(kxbase::Luminance16, 16);
    CompareHistograms<uint32_t>(kxbase::Class, 32);
    CompareHistograms<uint64_t>(kxbase::Segment, 64);
}

TEST(HistogramRecords, OneTooLargeForARecordIsLeftOutWithAWarning) {
    PatchPlace place;
    place.grid.columns = place.grid.patchWidth = 4;
    place.grid.rows = place.grid.patchHeight = 1;
    const auto records = [&](uint64_t maxBytes) {
        PatchHistograms histograms;
        // Three, two and four different values: 8 x (1 + 2 + 2 n) bytes.
        histograms.Count(kxbase::Class, 4, BytesOf(std::vector<uint32_t>{1, 2, 3, 3}), place);
        histograms.Count(kxbase::Luminance8, 1, BytesOf(std::vector<uint8_t>{7, 7, 7, 9}), place);
        histograms.Count(kxbase::Luminance16, 2, BytesOf(std::vector<uint16_t>{1, 2, 3, 4}), place);
        return MakeHistogramRecords(histograms, maxBytes);
    };
    const auto types = [](const HistogramRecords& made) {
        std::vector<uint64_t> list;
        for (const auto& record : made.records)
            list.push_back(record.GetType());
        return list;
    };

    const HistogramRecords all = records(kMaxHistogramBytes);
    EXPECT_EQ(types(all), (std::vector<uint64_t>{ClassHistogramHeader::Type, Luminance8HistogramHeader::Type,
                                                 Luminance16HistogramHeader::Type}));
    EXPECT_TRUE(all.warnings.empty());

    const HistogramRecords some = records(72);
    EXPECT_EQ(types(some),
              (std::vector<uint64_t>{ClassHistogramHeader::Type, Luminance8HistogramHeader::Type}));
    EXPECT_EQ(some.warnings, (std::vector<std::wstring>{L"The histogram of Luminance16 is too large for the "
                                                        L"file (88 bytes) and was left out"}));

    const HistogramRecords one = records(71);
    EXPECT_EQ(types(one), (std::vector<uint64_t>{Luminance8HistogramHeader::Type}));
    EXPECT_EQ(one.warnings.size(), 2U);
}

// The record as a file has it.
template <class Map>
HistogramHeader<Map> AsWritten(PackedHistogram& histogram, uint64_t link) {
    const uint64_t bytes = histogram.RecordBytes();
    std::vector<unsigned char> record;
    histogram.Write(link, [&](std::span<const unsigned char> more) {
        record.insert(record.end(), more.begin(), more.end());
    });
    EXPECT_EQ(record.size(), bytes);
    kxbase::InMemoryStream stream(record);
    ExtendedHeader read;
    EXPECT_EQ(read.Read(&stream), bytes);
    EXPECT_EQ(read.GetVersion(), ExtendedHeader::CurrentVersion);
    EXPECT_EQ(read.GetType(), histogram.GetType());
    EXPECT_EQ(read.GetLink(), link);
    EXPECT_EQ(read.GetDataSize(), ExtendedHeader::FixedSize + read.GetDataBufferSize());
    return HistogramHeader<Map>(read);
}

TEST(HistogramRecords, NumbersAndChunkHeaderAreThoseOfARecordMadeAtOnce) {
    std::mt19937 random(3);
    PatchPlace place;
    place.grid.patchWidth = 40;
    place.grid.patchHeight = 50;
    place.grid.columns = 8 * place.grid.patchWidth - 5;
    place.grid.rows = place.grid.patchHeight;
    PatchHistograms histograms;
    // Not by ascending index, and one of them twice.
    for (const uint32_t column : {3U, 7U, 0U, 1U, 3U, 2U}) {
        place.column = place.index = column;
        std::vector<uint16_t> values(2000);
        for (uint16_t& value : values)
            value = static_cast<uint16_t>(column == 1 ? random() : random() % 300);
        histograms.Count(kxbase::Luminance16, 2, BytesOf(values), place);
    }
    place.column = place.index = 8;  // wholly outside: an entry without values
    histograms.Count(kxbase::Luminance16, 2, BytesOf(std::vector<uint16_t>(2000, 1)), place);

    Luminance16Histogram expected;
    for (const auto& [index, counts] : histograms.All(kxbase::Luminance16)) {
        auto& values = expected[index];
        for (const auto& [value, count] : counts)
            values[static_cast<uint16_t>(value)] = count;
    }
    ASSERT_EQ(expected.size(), 7U - 1U);
    EXPECT_TRUE(expected.at(kxbase::QSNIndex(8)).empty());
    const Luminance16HistogramHeader atOnce(expected);

    HistogramRecords made = MakeHistogramRecords(histograms);
    ASSERT_EQ(made.records.size(), 1U);
    EXPECT_EQ(made.records[0].Name(), "Luminance16HistogramHeader");
    const auto written = AsWritten<Luminance16Histogram>(made.records[0], 4711);
    EXPECT_EQ(written.GetHistogram(), expected);
    const auto numbers = [](const ExtendedHeader& record) {
        return DecodeHistogramNumbers({record.GetDataBuffer(), record.GetDataBufferSize()}, "histogram");
    };
    EXPECT_EQ(numbers(written), numbers(atOnce));
    // Size of the chunk apart, the first 36 bytes are equal: so is the chunk's header.
    EXPECT_TRUE(
        std::equal(written.GetDataBuffer() + 8, written.GetDataBuffer() + 36, atOnce.GetDataBuffer() + 8));
}

TEST(HistogramRecords, WithoutPatchesThereAreNone) {
    PatchHistograms histograms;
    EXPECT_EQ(histograms.NumberBytes(kxbase::Luminance16), 0U);
    EXPECT_TRUE(histograms.Take(kxbase::Luminance16).empty());
    EXPECT_TRUE(histograms.Take(kxbase::Range).empty());
    const HistogramRecords made = MakeHistogramRecords(histograms);
    EXPECT_TRUE(made.records.empty());
    EXPECT_TRUE(made.warnings.empty());
}

TEST(HistogramRecords, WhatIsNotLeftOutFitsARecord) {
    // Bytes that do not pack grow by less than a thousandth; 64 bytes are for the frame and the headers.
    EXPECT_LT(kMaxHistogramBytes + kMaxHistogramBytes / 1000 + 64, uint64_t{1} << 32);
}

}  // namespace
