// SPDX-License-Identifier: MIT
// Patches that were never handed over, or hold nothing: their entries and the chunks that they share.
#include <gtest/gtest.h>

#include "WriterSupport.h"

namespace {

using namespace support;

TEST(WriterIntake, TableOfAKnownGridListsEveryPatchAlsoTheLastHoles) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(12, 4, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    kxio::EncodedPatchDescriptor nothing(kxbase::Range, 4);
    s.writer.AddPatch({&range}, 0);
    s.writer.AddPatch({&nothing}, 1);
    s.writer.AddPatch({&nothing}, 2);
    const auto entries = s.End().lookup.at(1);
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[1], (walker::Entry{0, 0}));
    EXPECT_EQ(entries[2], (walker::Entry{0, 0}));
}

TEST(WriterIntake, EmptyPatchWithoutValueSizeHasValuesOfOneByte) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(8, 4, 4, 4));
    kxio::EmptyPatchDescriptor empty(kxbase::Component12, 0);
    s.writer.AddPatch({&empty}, 0, 0);
    // The same for a component of which only empty chunks of no known size are to be made at the end.
    kxio::EncodedPatchDescriptor nothing(kxbase::Component13, 0);
    s.writer.AddPatch({&nothing}, 0, 0);
    const walker::File file = s.End();
    for (const auto& [component, index] : {std::pair{12U, 0U}, {12U, 1U}, {13U, 1U}}) {
        const walker::Decoded zeros = walker::Decode(file.Slice(file.lookup.at(component).at(index)));
        EXPECT_EQ(zeros.elementBytes, 1U);
        EXPECT_EQ(zeros.values, Bytes(16, 0));
    }
}

TEST(WriterIntake, ThousandsOfMissingPatchesShareOneChunkPerComponent) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(400, 200, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    Flat<uint16_t> grey(kxbase::Luminance16, std::vector<uint16_t>(16, 1), &Snappy());
    s.writer.AddPatch({&range}, 7, 7);
    s.writer.AddPatch({&grey}, 0, 0);
    const walker::File file = s.End();
    ASSERT_EQ(file.chunks.size(), 4U);
    EXPECT_TRUE(file.chunks[2].IsSharedEmpty());
    EXPECT_TRUE(file.chunks[3].IsSharedEmpty());
    for (const uint32_t component : {1U, 5U}) {
        const auto& entries = file.lookup.at(component);
        ASSERT_EQ(entries.size(), 5000U);
        const walker::Entry& shared = entries[4999];
        EXPECT_EQ(std::count(entries.begin(), entries.end(), shared), 4999);
        const walker::Decoded zeros = walker::Decode(file.Slice(shared));
        EXPECT_EQ(zeros.elementBytes, component == 1 ? 4U : 2U);
        EXPECT_EQ(zeros.values, Bytes(16 * zeros.elementBytes, 0));
    }
    // The shared chunk's bytes are not counted, its record is.
    EXPECT_EQ(s.statistics.at("Range"), file.chunks[0].bytes);
    EXPECT_EQ(s.statistics.at("Headers"), 92 + file.scanHeaderSize + 4 * 32);
}

TEST(WriterIntake, ComponentWithSharedEmptyChunkOnlyIsReportedWithZeroBytes) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeGrid(4, 4, 4, 4));
    kxio::EmptyPatchDescriptor empty(kxbase::Range, 4);
    empty.min = 1;
    empty.max = 2;
    s.writer.AddPatch({&empty}, 0, 0);
    const walker::File file = s.End();
    ASSERT_EQ(s.statistics.count("Range"), 1U);
    EXPECT_EQ(s.statistics.at("Range"), 0U);
    EXPECT_EQ(file.limits.pairs[0], std::make_pair(0.0F, 0.0F));
    // Row and column of the record's payload: bytes 8 to 15.
    const auto payload = file.bytes.begin() + static_cast<std::ptrdiff_t>(file.chunks.at(0).record) + 16;
    EXPECT_EQ(Bytes(payload + 8, payload + 16), Bytes(8, 0xff));
}

TEST(WriterIntake, SharedEmptyChunkKeepsTheFirstValueSizeAndTheComponentsCodec) {
    Session s;
    kxcodecs::ZLibChunkCodec zlib;
    s.writer.CreateNew(&s.stream, MakeGrid(12, 4, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &zlib, 0.001);
    s.writer.AddPatch({&range}, 0, 0);
    kxio::EmptyPatchDescriptor first(kxbase::Range, 8), second(kxbase::Range, 2);
    s.writer.AddPatch({&first}, 0, 1);
    s.writer.AddPatch({&second}, 0, 2);
    const walker::File file = s.End();
    ASSERT_EQ(file.chunks.size(), 2U);
    const Bytes chunk = file.Slice(file.lookup.at(1)[2]);
    EXPECT_EQ(kxcodecs::QKXChunkCodec::GetName(chunk), "ZLib");
    const walker::Decoded zeros = walker::Decode(chunk);
    EXPECT_EQ(zeros.elementBytes, 8U);
    EXPECT_EQ(zeros.step, 1.0F);
}

TEST(WriterIntake, OutsideGridModeEmptyPatchesAreSnappy) {
    Session s;
    kxcodecs::ZLibChunkCodec zlib;
    s.writer.CreateNew(&s.stream, MakeCylinder(8, 0, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &zlib);
    s.writer.AddPatch({&range}, 0, 0);
    const walker::File file = s.End();
    EXPECT_EQ(kxcodecs::QKXChunkCodec::GetName(file.Slice(file.lookup.at(1)[1])), "Snappy");
}

TEST(WriterIntake, GapOfAnOpenEndedScanIsFilledWithTheComponentsValueSize) {
    Session s;
    s.writer.CreateNew(&s.stream, MakeCylinder(8, 0, 4, 4));
    Flat<float> range(kxbase::Range, std::vector<float>(16, 1.0F), &Snappy());
    s.writer.AddPatch({&range}, 2, 0);
    const walker::File file = s.End();
    EXPECT_EQ(file.scan.rows, 12U);
    ASSERT_EQ(file.lookup.at(1).size(), 6U);
    for (const size_t gap : {0U, 1U, 2U, 3U, 5U}) {
        EXPECT_EQ(ValuesOf<float>(walker::Decode(file.Slice(file.lookup.at(1)[gap]))),
                  std::vector<float>(16, 0.0F));
    }
}

}  // namespace
