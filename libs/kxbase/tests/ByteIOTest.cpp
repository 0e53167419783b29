// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <bit>
#include <limits>
#include <string>
#include <vector>

#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "support/Thrown.h"

namespace kxbase {
namespace {

using Bytes = std::vector<unsigned char>;

TEST(ByteReader, IntegersAreLittleEndian) {
    const Bytes bytes = {
        0x01,                                            // u8
        0x02, 0x03,                                      // u16
        0x04, 0x05, 0x06, 0x87,                          // u32, top bit set
        0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0xff,  // u64, top bit set
    };
    ByteReader in(bytes);
    EXPECT_EQ(in.U8("a"), 0x01u);
    EXPECT_EQ(in.U16("b"), 0x0302u);
    EXPECT_EQ(in.U32("c"), 0x87060504u);
    EXPECT_EQ(in.U64("d"), 0xff0e0d0c0b0a0908u);
    EXPECT_EQ(in.Remaining(), 0u);
}

TEST(ByteReader, FloatsKeepTheirBits) {
    const Bytes bytes = {
        0x00, 0x00, 0x80, 0x3f,                          // 1.0f
        0x01, 0x00, 0xc0, 0x7f,                          // a NaN with a payload
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xc0,  // -2.5
    };
    ByteReader in(bytes);
    EXPECT_EQ(in.F32("one"), 1.0f);
    EXPECT_EQ(std::bit_cast<uint32_t>(in.F32("nan")), 0x7fc00001u);
    EXPECT_EQ(in.F64("double"), -2.5);
}

TEST(ByteReader, EveryFixedSizeFieldThatDoesNotFitThrowsAndDoesNotMove) {
    const Bytes bytes(8, 0xee);
    struct Row {
        const char* name;
        uint64_t size;
        void (*read)(ByteReader&);
    };
    const Row rows[] = {
        {"u8", 1, [](ByteReader& in) { in.U8("f"); }},
        {"u16", 2, [](ByteReader& in) { in.U16("f"); }},
        {"u32", 4, [](ByteReader& in) { in.U32("f"); }},
        {"u64", 8, [](ByteReader& in) { in.U64("f"); }},
        {"f32", 4, [](ByteReader& in) { in.F32("f"); }},
        {"f64", 8, [](ByteReader& in) { in.F64("f"); }},
        {"take", 5, [](ByteReader& in) { in.Take(5, "f"); }},
        {"skip", 5, [](ByteReader& in) { in.Skip(5, "f"); }},
        {"bytes", 3,
         [](ByteReader& in) {
             std::array<unsigned char, 3> out{};
             in.Bytes(out, "f");
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        for (uint64_t left = 0; left < row.size; ++left) {
            ByteReader in(bytes);
            in.Skip(bytes.size() - left, "lead");
            EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>([&] { static_cast<void>(row.read(in)); }),
                      "Record ends too early");
            EXPECT_EQ(in.Remaining(), left);
        }
        ByteReader exact(bytes);
        exact.Skip(bytes.size() - row.size, "lead");
        EXPECT_NO_THROW(row.read(exact));
        EXPECT_EQ(exact.Remaining(), 0u);
    }
}

TEST(ByteReader, FailureNamesRecordFieldAndAbsoluteOffset) {
    const Bytes bytes(6, 0);
    ByteReader in(bytes, 1000, "ScanHeader");
    in.U32("row count");
    EXPECT_EQ(in.Position(), 4u);
    EXPECT_EQ(in.Offset(), 1004u);
    try {
        in.U32("column count");
        FAIL() << "a read behind the end succeeded";
    } catch (const ByteRangeException& e) {
        EXPECT_EQ(e.Context().record, "ScanHeader");
        EXPECT_EQ(e.Context().field, "column count");
        ASSERT_TRUE(e.Context().offset.has_value());
        EXPECT_EQ(*e.Context().offset, 1004u);
        EXPECT_FALSE(e.Context().detail.empty());
    }
}

TEST(ByteReader, HugeCountsDoNotWrapAround) {
    const Bytes bytes(16, 0);
    const uint64_t huge = std::numeric_limits<uint64_t>::max();
    ByteReader in(bytes);
    in.Skip(8, "lead");
    EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>([&] { static_cast<void>(in.Skip(huge, "f")); }),
              "Record ends too early");
    EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>([&] { static_cast<void>(in.Skip(huge - 7, "f")); }),
              "Record ends too early");
    EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>([&] { static_cast<void>(in.Take(huge, "f")); }),
              "Record ends too early");
    EXPECT_EQ(in.Position(), 8u);
}

TEST(ByteReader, AClaimOfElementsIsCheckedWithoutOverflow) {
    const Bytes bytes(24, 0);
    const ByteReader in(bytes);
    EXPECT_NO_THROW(in.RequireElements(2, 12, "N"));
    EXPECT_NO_THROW(in.RequireElements(0, 12, "N"));
    EXPECT_EQ(
        kxtest::ThrownBy<ByteRangeException>([&] { static_cast<void>(in.RequireElements(3, 12, "N")); }),
        "Record ends too early");
    // 2^62 x 4 and 2^32 x 2^32 are 0 in 64 bits.
    EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>(
                  [&] { static_cast<void>(in.RequireElements(uint64_t{1} << 62, 4, "N")); }),
              "Record ends too early");
    EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>(
                  [&] { static_cast<void>(in.RequireElements(uint64_t{1} << 32, uint64_t{1} << 32, "N")); }),
              "Record ends too early");
    EXPECT_EQ(in.Position(), 0u);
}

TEST(ByteReader, TextEndsAtItsNul) {
    const Bytes bytes = {'A', 'B', 0, 0, 'C', 0};
    ByteReader in(bytes);
    EXPECT_EQ(in.TextToNul("first"), "AB");
    EXPECT_EQ(in.TextToNul("second"), "");
    EXPECT_EQ(in.TextToNul("third"), "C");
    EXPECT_EQ(in.Remaining(), 0u);
}

TEST(ByteReader, TextWithoutNulThrowsAndDoesNotMove) {
    const Bytes bytes = {0, 'A', 'B'};
    ByteReader in(bytes);
    EXPECT_EQ(in.TextToNul("empty"), "");
    EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>([&] { static_cast<void>(in.TextToNul("open")); }),
              "Record ends too early");
    EXPECT_EQ(in.Position(), 1u);
    const Bytes none;
    ByteReader nothing(none);
    EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>([&] { static_cast<void>(nothing.TextToNul("nothing")); }),
              "Record ends too early");
}

TEST(ByteReader, TakeIsAViewOfTheBytesThemselves) {
    const Bytes bytes = {1, 2, 3, 4};
    ByteReader in(bytes);
    in.Skip(1, "lead");
    const auto view = in.Take(2, "view");
    EXPECT_EQ(view.data(), bytes.data() + 1);
    EXPECT_EQ(view.size(), 2u);
    EXPECT_EQ(in.U8("after"), 4u);
}

TEST(ByteReader, EmptyViewAllowsEmptyReads) {
    ByteReader in(std::span<const unsigned char>{});
    EXPECT_NO_THROW(in.Skip(0, "f"));
    EXPECT_EQ(in.Take(0, "f").size(), 0u);
    EXPECT_NO_THROW(in.Bytes({}, "f"));
    EXPECT_EQ(kxtest::ThrownBy<ByteRangeException>([&] { static_cast<void>(in.U8("f")); }),
              "Record ends too early");
}

TEST(ByteWriter, FieldsAreLittleEndian) {
    Bytes buffer(34, 0xcc);
    ByteWriter out(buffer);
    out.U8(0x01);
    out.U16(0x0302);
    out.U32(0x07060504);
    out.U64(0xff0e0d0c0b0a0908u);
    out.F32(1.0f);
    out.F64(-2.5);
    const Bytes tail = {0xaa, 0xbb};
    out.Bytes(tail);
    out.Zeros(2);
    out.TextWithNul("Ab");
    const Bytes expected = {
        0x01,                                            //
        0x02, 0x03,                                      //
        0x04, 0x05, 0x06, 0x07,                          //
        0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0xff,  //
        0x00, 0x00, 0x80, 0x3f,                          //
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xc0,  //
        0xaa, 0xbb,                                      //
        0x00, 0x00,                                      //
        'A',  'b',  0x00,
    };
    EXPECT_EQ(out.Position(), 34u);
    EXPECT_EQ(out.Remaining(), 0u);
    EXPECT_EQ(buffer, expected);
}

TEST(ByteWriter, TextStopsAtAnEmbeddedNul) {
    Bytes buffer(4, 0xcc);
    ByteWriter out(buffer);
    out.TextWithNul(std::string_view("AB\0C", 4));
    EXPECT_EQ(out.Position(), 3u);
    EXPECT_EQ(buffer, (Bytes{'A', 'B', 0, 0xcc}));
}

TEST(ByteWriter, AWriteThatDoesNotFitThrowsAndWritesNothing) {
    struct Row {
        const char* name;
        size_t size;
        void (*write)(ByteWriter&);
    };
    const Row rows[] = {
        {"u8", 1, [](ByteWriter& out) { out.U8(1); }},
        {"u16", 2, [](ByteWriter& out) { out.U16(1); }},
        {"u32", 4, [](ByteWriter& out) { out.U32(1); }},
        {"u64", 8, [](ByteWriter& out) { out.U64(1); }},
        {"f32", 4, [](ByteWriter& out) { out.F32(1); }},
        {"f64", 8, [](ByteWriter& out) { out.F64(1); }},
        {"zeros", 3, [](ByteWriter& out) { out.Zeros(3); }},
        {"huge zeros", 9, [](ByteWriter& out) { out.Zeros(std::numeric_limits<uint64_t>::max()); }},
        {"text", 3, [](ByteWriter& out) { out.TextWithNul("ab"); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes buffer(row.size - 1, 0xcc);
        ByteWriter out(buffer);
        EXPECT_EQ(kxtest::ThrownBy<KXWrongDataSizeofException>([&] { static_cast<void>(row.write(out)); }),
                  "Record does not fit its size");
        EXPECT_EQ(out.Position(), 0u);
        EXPECT_EQ(buffer, Bytes(row.size - 1, 0xcc));
    }
}

RC_GTEST_PROP(ByteIO, WhatIsWrittenIsRead,
              (uint8_t a, uint16_t b, uint32_t c, uint64_t d, uint32_t e, uint64_t f, const Bytes& raw)) {
    const float single = std::bit_cast<float>(e);
    const double twice = std::bit_cast<double>(f);
    Bytes buffer(27 + raw.size());
    ByteWriter out(buffer);
    out.U8(a);
    out.U16(b);
    out.U32(c);
    out.U64(d);
    out.F32(single);
    out.F64(twice);
    out.Bytes(raw);
    RC_ASSERT(out.Remaining() == 0u);

    ByteReader in(buffer);
    RC_ASSERT(in.U8("a") == a);
    RC_ASSERT(in.U16("b") == b);
    RC_ASSERT(in.U32("c") == c);
    RC_ASSERT(in.U64("d") == d);
    RC_ASSERT(std::bit_cast<uint32_t>(in.F32("e")) == e);
    RC_ASSERT(std::bit_cast<uint64_t>(in.F64("f")) == f);
    Bytes back(raw.size());
    in.Bytes(back, "raw");
    RC_ASSERT(back == raw);
    RC_ASSERT(in.Remaining() == 0u);
}

/// Notes what it is told as "name kind @offset size".
class Notes : public kxbase::FieldSink {
public:
    void OnField(const char* field, kxbase::FieldKind kind, uint64_t offset,
                 std::span<const unsigned char> bytes) override {
        lines.push_back(std::string(field) + " " + "UFTB"[static_cast<int>(kind)] + " @" +
                        std::to_string(offset) + " " + std::to_string(bytes.size()));
    }
    std::vector<std::string> lines;
};

TEST(ByteReader, TellsEveryFieldThatItTakesAndNoneThatItCannot) {
    const std::vector<unsigned char> bytes = {1, 2, 0, 0, 0x80, 0x3f, 'a', 0, 7, 8, 9};
    Notes notes;
    kxbase::ByteReader in(bytes, 100, "record");
    in.ReportTo(&notes);
    in.U16("count");
    in.F32("value");
    in.TextToNul("text");
    EXPECT_EQ(kxtest::ThrownBy<kxbase::ByteRangeException>([&] { static_cast<void>(in.U64("too much")); }),
              "Record ends too early");
    in.Take(2, "two");
    in.ReportTo(nullptr);
    in.U8("unseen");
    EXPECT_EQ(notes.lines, (std::vector<std::string>{"count U @100 2", "value F @102 4", "text T @106 2",
                                                     "two B @108 2"}));
}

}  // namespace
}  // namespace kxbase
