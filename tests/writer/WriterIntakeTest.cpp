// SPDX-License-Identifier: MIT
// Patches on their way in: positions, kinds, limits, points, quantisation.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "WriterSupport.h"

namespace {

using namespace support;
using kxbase::KXWritingException;
using walker::Walk;

TEST(WriterIntake, ComponentsOfOneCallBecomeChunksOfOnePlace) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(12, 8, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    Flat<uint8_t> grey(kxbase::Luminance8, std::vector<uint8_t>(16, 7), &Snappy());
    s.writer.AddPatch({&range, &grey}, 1, 2);
    const uint64_t end = s.stream.GetBytes().size();
    const walker::File file = s.End();
    ASSERT_GE(file.chunks.size(), 2U);
    std::vector<uint32_t> components;
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(file.chunks[i].row, 1U);
        EXPECT_EQ(file.chunks[i].column, 2U);
        components.push_back(file.chunks[i].component);
    }
    std::sort(components.begin(), components.end());
    EXPECT_EQ(components, (std::vector<uint32_t>{1, 4}));
    EXPECT_EQ(file.chunks[1].position + file.chunks[1].bytes, end);
}

TEST(WriterIntake, RangePatchWithoutPointsHasLimitsZeroAndNoPoints) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(4, 4, 4, 4));
    std::vector<float> values(16, 0.0F);
    values[3] = -5.0F;
    values[4] = std::numeric_limits<float>::quiet_NaN();
    values[5] = -0.0F;
    Flat<float> range(kxbase::Range, values, &Snappy());
    s.writer.AddPatch({&range}, 0, 0);
    const walker::File file = s.End();
    EXPECT_EQ(file.scan.points, 0U);
    ASSERT_EQ(file.limits.pairs.size(), 1U);
    EXPECT_EQ(file.limits.pairs[0], std::make_pair(0.0F, 0.0F));
    EXPECT_EQ(file.limits.minimumBits, 0x7f7fffffU);
    EXPECT_EQ(file.limits.maximumBits, 0x80800000U);
}

TEST(WriterIntake, LimitsTakeEveryPositiveValueAlsoTheExtremeOnes) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(12, 4, 4, 4));
    const float tiny = std::numeric_limits<float>::denorm_min();
    const float infinity = std::numeric_limits<float>::infinity();
    std::vector<float> values(16, 3.0F);
    values[7] = tiny;
    Flat<float> first(kxbase::Range, values, &Snappy());
    s.writer.AddPatch({&first}, 0, 0);
    Flat<float> second(kxbase::Range, std::vector<float>(16, infinity), &Snappy());
    s.writer.AddPatch({&second}, 0, 1);
    values.assign(16, 5.0F);
    values[0] = -infinity;
    values[15] = 9.0F;
    Flat<float> third(kxbase::Range, values, &Snappy());
    s.writer.AddPatch({&third}, 0, 2);
    const walker::File file = s.End();
    EXPECT_EQ(file.limits.pairs[0], std::make_pair(tiny, 3.0F));
    // No finite minimum was seen, so the start value stays.
    EXPECT_EQ(file.limits.pairs[1], std::make_pair(std::numeric_limits<float>::max(), infinity));
    EXPECT_EQ(file.limits.pairs[2], std::make_pair(5.0F, 9.0F));
    EXPECT_EQ(file.scan.points, 16U + 16U + 15U);
}

TEST(WriterIntake, ValueBeyondTheGridMovesTheLimitsAndIsNotCounted) {
    // Width 10, patches of 4: offset 3 in patch column 2 is column 11.
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(10, 4, 4, 4));
    std::vector<float> values(16, 0.0F);
    values[3] = 99.0F;
    Flat<float> range(kxbase::Range, values, &Snappy());
    s.writer.AddPatch({&range}, 0, 2);
    values[1] = 50.0F;  // column 9
    Flat<float> other(kxbase::Range, values, &Snappy());
    const walker::File file = s.End();
    EXPECT_EQ(file.limits.pairs[2], std::make_pair(99.0F, 99.0F));
    EXPECT_EQ(file.scan.points, 0U);

    Session t;
    t.writer.CreateNew(&t.stream, MakeGrid(10, 4, 4, 4));
    t.writer.AddPatch({&other}, 0, 2);
    EXPECT_EQ(t.End().scan.points, 1U);
}

TEST(WriterIntake, TransposedPatchIsCountedByItsOwnOrder) {
    // Columns 8 and 9 are inside: in a transposed patch those are its first two lines.
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(10, 3, 4, 4));
    std::vector<float> values(16, 1.0F);
    Flat<float> range(kxbase::Range, values, &Snappy());
    range.orientation = kxio::Transposed;
    s.writer.AddPatch({&range}, 0, 2);
    EXPECT_EQ(s.End().scan.points, 2U * 3U);
}

TEST(WriterIntake, OrientationsOtherThanOneAreRowByRow) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(10, 3, 4, 4));
    std::vector<float> values(16, 0.0F);
    values[1] = values[2] = values[4] = 1.0F;  // (0,1), (0,2), (1,0) row by row; column 10 is outside
    Flat<float> range(kxbase::Range, values, &Snappy());
    range.orientation = static_cast<kxio::PreviewPatchOrientation>(2);
    s.writer.AddPatch({&range}, 0, 2);
    const walker::File file = s.End();
    EXPECT_EQ(file.scan.points, 2U);
    const auto preview = ValuesOf<float>(walker::Decode(file.Slice(file.previews.at(1)[0])));
    EXPECT_EQ(preview[8], 0.0F);
    EXPECT_EQ(preview[9], 1.0F);
    EXPECT_EQ(preview[10 + 8], 1.0F);
}

TEST(WriterIntake, PointCountAddsToWhatWasSet) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(8, 4, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    s.writer.AddPatch({&range}, 0, 0);
    s.writer.SetPointcount(1000);
    s.writer.AddPatch({&range}, 0, 1);
    s.writer.AddPatch({&range}, 0, 1);  // a second time counts again
    const walker::File file = s.End();
    EXPECT_EQ(file.scan.points, 1032U);
    EXPECT_EQ(s.statistics.at("PointCount"), 1032U);
}

TEST(WriterIntake, CreationSetsThePointCountToZero) {
    Session s;
    s.writer.SetPointcount(5);
    s.writer.CreateNew(&s.stream, MakeGrid(4, 4, 4, 4));
    EXPECT_EQ(s.End().scan.points, 0U);
}

TEST(WriterIntake, WithoutTopologyEveryPositiveValueCounts) {
    Session s;
    s.writer.CreateNew(&s.stream);
    Flat<float> range(kxbase::Range, {1.0F, 0.0F, 2.0F, 3.0F, -1.0F}, &Snappy());
    s.writer.AddPatch({&range}, 3);
    const walker::File file = s.End();
    EXPECT_EQ(file.scan.points, 3U);
    EXPECT_EQ(file.scan.columns, 4U);
    EXPECT_EQ(file.scan.rows, 1U);
}

TEST(WriterIntake, RangeOfAnotherValueSizeHasNoLimitsAndNoPoints) {
    for (const uint64_t length : {1U, 2U, 8U}) {
        Session s;
        s.writer.CreateNew(&s.stream, MakeGrid(4, 4, 4, 4));
        Bytes values(16 * length, 1);
        kxio::FlatPatchDescriptor range(kxbase::Range, length, kxio::RowMajor, 1.0, &Snappy());
        range.data = values.data();
        range.size = 16;
        s.writer.AddPatch({&range}, 0, 0);
        const walker::File file = s.End();
        EXPECT_EQ(file.scan.points, 0U);
        EXPECT_EQ(file.limits.pairs[0], std::make_pair(0.0F, 0.0F));
    }
}

TEST(WriterIntake, EncodedPatchIsStoredAsGivenWithItsLimits) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(8, 4, 4, 4));
    Bytes chunk;
    kxcodecs::ZLibChunkCodec().Encode(std::vector<float>(16, 2.0F).data(), 4, 4, 64, 1.0F, chunk);
    kxio::EncodedPatchDescriptor encoded(kxbase::Range, 4);
    encoded.data = chunk.data();
    encoded.size = chunk.size();
    encoded.min = 1.5F;
    encoded.max = 2.5F;
    s.writer.AddPatch({&encoded}, 0, 1);
    const walker::File file = s.End();
    EXPECT_EQ(file.Slice(file.lookup.at(1)[1]), chunk);
    EXPECT_EQ(file.limits.pairs[1], std::make_pair(1.5F, 2.5F));
    EXPECT_EQ(file.scan.points, 0U);
    EXPECT_TRUE(file.previews.empty());
    EXPECT_EQ(s.statistics.at("Range"), chunk.size());
}

TEST(WriterIntake, EncodedPatchOfSizeZeroLeavesAZeroEntry) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(12, 4, 4, 4));
    kxio::EncodedPatchDescriptor nothing(kxbase::Range, 4);
    nothing.min = nothing.max = 3.0F;
    kxio::EncodedPatchDescriptor alone(kxbase::Class, 4);
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    s.writer.AddPatch({&nothing, &alone}, 0, 1);
    s.writer.AddPatch({&range}, 0, 0);
    const walker::File file = s.End();
    ASSERT_EQ(file.lookup.at(1).size(), 3U);
    EXPECT_EQ(file.lookup.at(1)[1], (walker::Entry{0, 0}));
    EXPECT_NE(file.lookup.at(1)[2].position, 0U) << "a position that nobody gave is filled";
    EXPECT_EQ(file.limits.pairs[1], std::make_pair(0.0F, 0.0F));
    // The other positions of a component that only ever came with size 0 are filled, its own are not.
    EXPECT_EQ(file.lookup.at(18)[1], (walker::Entry{0, 0}));

    Session t;
    t.writer.CreateNew(&t.stream, MakeGrid(4, 4, 4, 4));
    t.writer.AddPatch({&alone}, 0, 0);
    EXPECT_EQ(t.End().lookup.count(18), 0U);
    EXPECT_EQ(t.statistics.count("Class"), 0U);
}

TEST(WriterIntake, WithoutTopologyPatchesMayComeInAnyOrder) {
    std::vector<uint32_t> ascending(100), descending(100);
    std::iota(ascending.begin(), ascending.end(), 0U);
    std::iota(descending.rbegin(), descending.rend(), 0U);
    for (const auto& order : {ascending, descending}) {
        Session s;
        s.writer.CreateNew(&s.stream);
        for (const uint32_t index : order) {
            if (index == 50) continue;
            Flat<float> range(kxbase::Range, {static_cast<float>(index)}, &Snappy());
            s.writer.AddPatch({&range}, index);
        }
        const walker::File file = s.End();
        ASSERT_EQ(file.lookup.at(1).size(), 100U);
        for (uint32_t index = 0; index < 100; ++index) {
            const auto values = ValuesOf<float>(walker::Decode(file.Slice(file.lookup.at(1)[index])));
            EXPECT_EQ(values, std::vector<float>{index == 50 ? 0.0F : static_cast<float>(index)});
        }
    }
}

TEST(WriterIntake, IndexMeansRowAndColumnOfTheGrid) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(12, 8, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    s.writer.AddPatch({&range}, 5);
    const walker::File file = s.End();
    EXPECT_EQ(file.chunks[0].row, 1U);
    EXPECT_EQ(file.chunks[0].column, 2U);
    EXPECT_EQ(file.lookup.at(1)[5].position, file.chunks[0].position);
}

TEST(WriterIntake, SamePositionTwiceKeepsTheLaterPatch) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(4, 4, 4, 4));
    Flat<float> first(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    Flat<float> second(kxbase::Range, std::vector<float>(16, 2.0F), &Snappy());
    s.writer.AddPatch({&first}, 0, 0);
    s.writer.AddPatch({&second}, 0, 0);
    const walker::File file = s.End();
    EXPECT_EQ(file.chunks.size(), 2U);
    EXPECT_EQ(file.lookup.at(1)[0].position, file.chunks[1].position);
    EXPECT_EQ(file.limits.pairs[0], std::make_pair(2.0F, 2.0F));
    EXPECT_EQ(file.scan.points, 32U);
}

TEST(WriterIntake, OneComponentTwiceInACallKeepsTheLaterInTheList) {
    for (int round = 0; round < 20; ++round) {
        Session s;
        s.writer.CreateNew(&s.stream, MakeGrid(64, 64, 64, 64));
        Flat<float> first(kxbase::Range, std::vector<float>(4096, 1.0F), &Snappy());
        Flat<double> second(kxbase::Range, std::vector<double>(4096, 2.0), &Snappy());
        Flat<float> third(kxbase::Range, std::vector<float>(4096, 3.0F), &Snappy());
        s.writer.AddPatch({&first, &second, &third}, 0, 0);
        const walker::File file = s.End();
        EXPECT_EQ(ValuesOf<float>(walker::Decode(file.Slice(file.lookup.at(1)[0])))[0], 3.0F);
        EXPECT_EQ(ValuesOf<float>(walker::Decode(file.Slice(file.previews.at(1)[0])))[4095], 3.0F);
    }
}

TEST(WriterIntake, PatchesOfAnotherSizeBecomeOneRow) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(4, 4, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(10, 1.0F), &Snappy());
    s.writer.AddPatch({&range}, 0, 0);
    const walker::File file = s.End();
    const walker::Decoded chunk = walker::Decode(file.Slice(file.lookup.at(1)[0]));
    EXPECT_EQ(chunk.width, 10U);
    EXPECT_EQ(chunk.height, 1U);
    EXPECT_EQ(file.scan.points, 10U);
    const auto preview = ValuesOf<float>(walker::Decode(file.Slice(file.previews.at(1)[0])));
    for (size_t i = 0; i < 16; ++i)
        EXPECT_EQ(preview[i], i < 10 ? 1.0F : 0.0F);
}

TEST(WriterIntake, ScaleBecomesTheReciprocalStepOfTheChunk) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(2, 2, 2, 2));
    Flat<float> range(kxbase::Range, {1.5F, 2.0004F, 0.0F, 1234.5678F}, &Snappy(), 0.001);
    Flat<float> angle(kxbase::VerticalAngle, {0.5F, 0.25F, 1.0F, 2.0F}, &Snappy());
    s.writer.AddPatch({&range, &angle}, 0, 0);
    const walker::File file = s.End();
    const Bytes chunk = file.Slice(file.lookup.at(1)[0]);
    kxcodecs::ChunkHeaderInfo header;
    Bytes stored;
    ASSERT_EQ(kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, stored), kxcodecs::DecodeStatus::Decoded);
    EXPECT_EQ(header.step, 1000.0F);
    int32_t integers[4];
    std::memcpy(integers, stored.data(), 16);
    EXPECT_EQ(integers[0], 1500);
    EXPECT_EQ(integers[1], 2000);
    EXPECT_EQ(integers[2], 0);
    EXPECT_EQ(integers[3], 1234568);
    EXPECT_NEAR(ValuesOf<float>(walker::Decode(chunk))[0], 1.5F, 1.5e-6F);
    EXPECT_EQ(walker::Decode(file.Slice(file.lookup.at(2)[0])).step, 1.0F);
    // The preview keeps the values as they were given.
    const walker::Decoded preview = walker::Decode(file.Slice(file.previews.at(1)[0]));
    EXPECT_EQ(preview.step, 1.0F);
    EXPECT_EQ(ValuesOf<float>(preview)[1], 2.0004F);
}

TEST(WriterIntake, NumbersBeyondTheNamedComponentsHaveNamesOfTheirOwn) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(2, 2, 2, 2));
    Flat<uint8_t> odd(static_cast<kxbase::ComponentType>(4000000000U), {1, 2, 3, 4}, &Snappy());
    s.writer.AddPatch({&odd}, 0, 0);
    s.End();
    EXPECT_EQ(s.statistics.count("Component4000000000"), 1U);
    EXPECT_EQ(s.statistics.count("Component4000000000_Preview"), 1U);
}

TEST(WriterIntake, PositionsOutsideTheGridAreRefusedBeforeAnythingIsDone) {
    constexpr uint32_t kMax = 0xffffffff;
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(8, 8, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    const auto refusal = [&](uint32_t row, uint32_t column) {
        return TextOf<KXWritingException>([&] { s.writer.AddPatch({&range}, row, column); });
    };
    EXPECT_EQ(refusal(2, 0), "AddPatch (2,0)");
    EXPECT_EQ(refusal(0, 2), "AddPatch (0,2)");
    EXPECT_EQ(refusal(3, 17), "AddPatch (3,17)");
    EXPECT_EQ(refusal(kMax, 0), "AddPatch (4294967295,0)");
    EXPECT_EQ(refusal(0, kMax), "AddPatch (0,4294967295)");
    EXPECT_EQ(refusal(0x80000000, 1), "AddPatch (2147483648,1)");
    EXPECT_EQ(TextOf<KXWritingException>([&] { s.writer.AddPatch({&range}, 4); }), "AddPatch (2,0)");
    EXPECT_EQ(s.stream.GetBytes().size(), 92U);
    const walker::File file = s.End();
    EXPECT_TRUE(file.lookup.empty());
    EXPECT_EQ(file.scan.points, 0U);
}

TEST(WriterIntake, OpenEndedScansRefuseWhatNoGridCanHold) {
    constexpr uint32_t kMax = 0xffffffff;
    Flat<float> range(kxbase::Range, {1.0F}, &Snappy());
    Session none;
    none.writer.CreateNew(&none.stream);
    EXPECT_EQ(TextOf<KXWritingException>([&] { none.writer.AddPatch({&range}, kMax); }),
              "AddPatch (0,4294967295)");
    EXPECT_EQ(TextOf<KXWritingException>([&] { none.writer.AddPatch({&range}, 357913940); }),
              "AddPatch (0,357913940)");
    EXPECT_EQ(TextOf<KXWritingException>([&] { none.writer.AddPatch({&range}, 1, 0); }), "AddPatch (1,0)");
    EXPECT_EQ(none.End().scan.columns, 0U);

    Session open;
    open.writer.CreateNew(&open.stream, MakeCylinder(8, 0, 4, 4));
    EXPECT_EQ(TextOf<KXWritingException>([&] { open.writer.AddPatch({&range}, kMax, 0); }),
              "AddPatch (4294967295,0)");
    EXPECT_EQ(TextOf<KXWritingException>([&] { open.writer.AddPatch({&range}, 0, 2); }), "AddPatch (0,2)");
    EXPECT_EQ(open.End().scan.rows, 0U);
}

TEST(WriterIntake, GridBeyondWhatATableCanListTakesNoPatches) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(100000, 100000, 1, 1));
    Flat<float> range(kxbase::Range, {1.0F}, &Snappy());
    EXPECT_EQ(TextOf<KXWritingException>([&] { s.writer.AddPatch({&range}, 0, 0); }), "AddPatch (0,0)");
    EXPECT_EQ(s.End().limits.pairs.size(), 0U);
}

TEST(WriterIntake, PatchesWithoutCellsAreRefusedAndTheFileIsCompleted) {
    for (const auto& [width, height] : {std::pair{0U, 4U}, {4U, 0U}, {0U, 0U}}) {
        Session s;
        s.writer.CreateNew(&s.stream, MakeGrid(8, 8, width, height));
        Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
        EXPECT_EQ(TextOf<KXWritingException>([&] { s.writer.AddPatch({&range}, 0, 0); }), "AddPatch (0,0)");
        if (width == 0) {
            EXPECT_EQ(TextOf<KXWritingException>([&] { s.writer.AddPatch({&range}, 9); }), "AddPatch (0,9)");
        }
        const walker::File file = s.End();
        EXPECT_TRUE(file.chunks.empty());
        EXPECT_TRUE(file.HasPreviews());
    }
}

TEST(WriterIntake, EncodedAndEmptyPatchesWithoutKnownHeightLeaveTheLimitsAlone) {
    Session s;
    s.writer.CreateNew(&s.stream);
    Bytes chunk;
    Snappy().Encode("abcd", 1, 1, 4, 1.0F, chunk);
    kxio::EncodedPatchDescriptor encoded(kxbase::Range, 4);
    encoded.data = chunk.data();
    encoded.size = chunk.size();
    kxio::EmptyPatchDescriptor empty(kxbase::Range, 4);
    s.writer.AddPatch({&encoded}, 1000);
    s.writer.AddPatch({&empty}, 2000);
    const walker::File file = s.End();
    EXPECT_EQ(file.lookup.at(1).size(), 2001U);
    EXPECT_EQ(file.Slice(file.lookup.at(1)[1000]), chunk);
}

}  // namespace
