// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <bit>
#include <random>

#include "PlainE57.h"
#include "e57/E57Packets.h"
#include "e57/E57VectorWriter.h"
#include "kxbase/InMemoryStream.h"
#include "kxexchange/Errors.h"
#include "support/Thrown.h"

namespace {

using namespace kxexchange;
using kxexchange::plain::Bytes;

// Records of random values for any fields; index [field][record]. Reals are bit patterns.
using Table = std::vector<std::vector<uint64_t>>;

Table RandomTable(const std::vector<E57Field>& fields, size_t records, std::mt19937_64& random) {
    Table table(fields.size());
    for (size_t f = 0; f < fields.size(); ++f) {
        for (size_t i = 0; i < records; ++i) {
            uint64_t value = random();
            if (random() % 4 == 0) value = random() % 2 == 0 ? 0 : ~uint64_t{0};  // the ends
            if (fields[f].kind == E57Field::Kind::Single) {
                value = std::bit_cast<uint64_t>(static_cast<double>(
                    std::bit_cast<float>(static_cast<uint32_t>(value & 0x7f7fffffU))));  // no NaN
            } else if (fields[f].IsWhole()) {
                const uint64_t span = fields[f].Span();
                value = value == ~uint64_t{0} ? span : span == ~uint64_t{0} ? value : value % (span + 1);
                value += static_cast<uint64_t>(fields[f].minimum);
            }
            table[f].push_back(value);
        }
    }
    return table;
}

struct Written {
    Bytes file;
    E57Node node;
};

Written WriteTable(const std::vector<E57Field>& fields, const Table& table, size_t records) {
    kxbase::InMemoryStream stream;
    E57PageWriter pages(stream);
    pages.Reserve(50);  // so that the section has to be aligned
    E57VectorWriter writer(pages, fields);
    for (size_t i = 0; i < records; ++i) {
        for (size_t f = 0; f < fields.size(); ++f) {
            if (fields[f].IsWhole()) {
                writer.PutWhole(f, static_cast<int64_t>(table[f][i]));
            } else {
                writer.PutReal(f, std::bit_cast<double>(table[f][i]));
            }
        }
        writer.EndRecord();
    }
    Written written{{}, writer.Finish()};
    pages.Finish();
    written.file = stream.GetBytes();
    return written;
}

// By the other decoder: bit after bit.
void CheckPlainly(const Written& written, const std::vector<E57Field>& fields, const Table& table,
                  size_t records) {
    const auto parts = plain::PlainStreams(plain::PlainContent(written.file), written.node.fileOffset);
    RC_ASSERT(written.node.count == records);
    if (records == 0) return;
    RC_ASSERT(parts.streams.size() == fields.size());
    for (size_t f = 0; f < fields.size(); ++f) {
        const unsigned bits = fields[f].Bits();
        RC_ASSERT(parts.streams[f].size() == (records * bits + 7) / 8);
        for (size_t i = 0; i < records; ++i) {
            const uint64_t stored = plain::PlainBits(parts.streams[f], i, bits);
            if (fields[f].IsWhole()) {
                RC_ASSERT(stored + static_cast<uint64_t>(fields[f].minimum) == table[f][i]);
            } else if (bits == 64) {
                RC_ASSERT(stored == table[f][i]);
            } else {
                const float single = std::bit_cast<float>(static_cast<uint32_t>(stored));
                RC_ASSERT(std::bit_cast<uint64_t>(static_cast<double>(single)) == table[f][i]);
            }
        }
    }
    RC_ASSERT(!parts.index.empty());
    RC_ASSERT(parts.index.front().record == 0U);
    RC_ASSERT(parts.index.front().physical == parts.packets.front());
    RC_ASSERT(parts.index.size() <= 2048U);
}

void CheckWithReader(const Bytes& file, const E57Node& node, const std::vector<E57Field>& fields,
                     const Table& table, std::mt19937_64& random) {
    kxbase::InMemoryStream stream(file);
    E57PageReader pages(stream, "t.e57");
    const E57Section section = ReadE57Section(pages, node, fields, "points of scan 1");
    for (size_t f = fields.size(); f-- > 0;) {
        E57FieldReader reader(pages, section, fields[f], f);
        const E57Scaling scaling(fields[f]);
        for (size_t at = 0; at < table[f].size();) {
            const size_t count = std::min<size_t>(1 + random() % 1500, table[f].size() - at);
            if (fields[f].IsWhole() && random() % 2 == 0) {
                std::vector<int64_t> out(count);
                reader.ReadWhole(out);
                for (size_t i = 0; i < count; ++i)
                    RC_ASSERT(static_cast<uint64_t>(out[i]) == table[f][at + i]);
            } else {
                std::vector<double> out(count);
                reader.ReadReal(out);
                for (size_t i = 0; i < count; ++i) {
                    const double expected = fields[f].IsWhole()
                                                ? scaling.Value(static_cast<int64_t>(table[f][at + i]))
                                                : std::bit_cast<double>(table[f][at + i]);
                    RC_ASSERT(std::bit_cast<uint64_t>(out[i]) == std::bit_cast<uint64_t>(expected));
                }
            }
            at += count;
        }
        double one = 0;
        if (fields[f].Bits() != 0) {
            // Padding may look like further values, never like more than the last byte.
            try {
                for (int i = 0; i < 8; ++i)
                    reader.ReadReal(std::span(&one, 1));
                RC_FAIL("read on behind the end");
            } catch (const SourceFormatException&) {
            }
        }
    }
}

E57Field RandomField(size_t number, unsigned width) {
    const std::string name = "f" + std::to_string(number);
    const uint64_t span = width == 0 ? 0 : ~uint64_t{0} >> (64 - width);
    // The span reaches into the uppermost bit but need not fill it.
    const uint64_t high = width == 0 ? 0 : uint64_t{1} << (width - 1);
    const uint64_t used = *rc::gen::inRange<uint64_t>(high, span == ~uint64_t{0} ? span : span + 1);
    const auto room = static_cast<uint64_t>(INT64_MAX) - used;  // may wrap; see below
    int64_t minimum = INT64_MIN;
    if (used <= static_cast<uint64_t>(INT64_MAX)) {
        minimum = *rc::gen::element<int64_t>(0, -static_cast<int64_t>(used / 2), INT64_MIN,
                                             static_cast<int64_t>(room));
    } else if (*rc::gen::arbitrary<bool>()) {
        minimum = static_cast<int64_t>(uint64_t{0} - (used / 2 + 1));
    }
    const auto maximum = static_cast<int64_t>(static_cast<uint64_t>(minimum) + used);
    if (maximum < minimum) return E57Field::Whole(name, INT64_MIN, INT64_MAX);
    if (*rc::gen::arbitrary<bool>()) return E57Field::Whole(name, minimum, maximum);
    return E57Field::Scaled(name, minimum, maximum, *rc::gen::element(1e-6, 0.5, 3.05e-5, 1e-4),
                            *rc::gen::element(0.0, 0.0, -7.25));
}

RC_GTEST_PROP(E57PacketsProperty, EveryWidthAndKindComesBackByBothDecoders, ()) {
    const auto count = *rc::gen::inRange<size_t>(1, 9);
    std::vector<E57Field> fields;
    for (size_t f = 0; f < count; ++f) {
        switch (*rc::gen::inRange(0, 6)) {
            case 0:
                fields.push_back(E57Field::Real("f" + std::to_string(f), true));
                break;
            case 1:
                fields.push_back(E57Field::Real("f" + std::to_string(f), false));
                break;
            default:
                fields.push_back(RandomField(f, *rc::gen::inRange<unsigned>(0, 65)));
        }
    }
    const auto records = *rc::gen::element<size_t>(0, 1, 2, 63, 64, 65, 1000, 20000);
    std::mt19937_64 random(*rc::gen::arbitrary<uint64_t>());
    const Table table = RandomTable(fields, records, random);
    const Written written = WriteTable(fields, table, records);
    CheckPlainly(written, fields, table, records);
    CheckWithReader(written.file, written.node, fields, table, random);
}

TEST(E57Packets, EachWidthFromNoneTo64ComesBack) {
    for (unsigned width = 0; width <= 64; ++width) {
        const uint64_t span = width == 0 ? 0 : ~uint64_t{0} >> (64 - width);
        const int64_t minimum = width == 64 ? INT64_MIN : -static_cast<int64_t>(span / 2);
        const std::vector<E57Field> fields{
            E57Field::Whole("a", minimum, static_cast<int64_t>(static_cast<uint64_t>(minimum) + span))};
        ASSERT_EQ(fields[0].Bits(), width);
        std::mt19937_64 random(width);
        const Table table = RandomTable(fields, 3000, random);
        const Written written = WriteTable(fields, table, 3000);
        const auto parts = plain::PlainStreams(plain::PlainContent(written.file), written.node.fileOffset);
        kxbase::InMemoryStream stream(written.file);
        E57PageReader pages(stream, "t.e57");
        const E57Section section = ReadE57Section(pages, written.node, fields, "points");
        E57FieldReader reader(pages, section, fields[0], 0);
        std::vector<int64_t> out(3000);
        reader.ReadWhole(out);
        for (size_t i = 0; i < out.size(); ++i) {
            ASSERT_EQ(static_cast<uint64_t>(out[i]), table[0][i]) << width;
            ASSERT_EQ(plain::PlainBits(parts.streams[0], i, width) + static_cast<uint64_t>(minimum),
                      table[0][i]);
        }
        reader.Rewind();
        std::vector<int64_t> again(3000);
        reader.ReadWhole(again);
        EXPECT_EQ(again, out);
    }
}

// A section built by hand, so that packets can be what the writer never makes.
struct HandMade {
    Bytes content = Bytes(48);
    E57Node node;
    HandMade() {
        node.type = E57Node::Type::CompressedVector;
        node.fileOffset = 48;
        content.resize(80);
        content[48] = 1;
        content[48 + 16] = 80;  // data offset
    }
    void Packet(unsigned char type, unsigned char flags, const Bytes& rest) {
        Bytes packet{type, flags, 0, 0};
        packet.insert(packet.end(), rest.begin(), rest.end());
        packet.resize((packet.size() + 3) / 4 * 4);
        packet[2] = static_cast<unsigned char>((packet.size() - 1) & 255);
        packet[3] = static_cast<unsigned char>((packet.size() - 1) >> 8);
        content.insert(content.end(), packet.begin(), packet.end());
    }
    void Data(const std::vector<Bytes>& streams, unsigned char flags = 0) {
        Bytes rest{static_cast<unsigned char>(streams.size()), 0};
        for (const Bytes& stream : streams) {
            rest.push_back(static_cast<unsigned char>(stream.size() & 255));
            rest.push_back(static_cast<unsigned char>(stream.size() >> 8));
        }
        for (const Bytes& stream : streams)
            rest.insert(rest.end(), stream.begin(), stream.end());
        Packet(1, flags, rest);
    }
    Bytes File(uint64_t length = 0) {
        if (length == 0) length = content.size() - 48;
        for (int i = 0; i < 8; ++i)
            content[48 + 8 + static_cast<size_t>(i)] = static_cast<unsigned char>(length >> (8 * i));
        return plain::PlainPages(content);
    }
};

std::vector<int64_t> ReadAll(const Bytes& file, const E57Node& node, const std::vector<E57Field>& fields,
                             size_t field) {
    kxbase::InMemoryStream stream(file);
    E57PageReader pages(stream, "hand.e57");
    const E57Section section = ReadE57Section(pages, node, fields, "points of scan 1");
    E57FieldReader reader(pages, section, fields[field], field);
    std::vector<int64_t> out(static_cast<size_t>(node.count));
    reader.ReadWhole(out);
    return out;
}

const std::vector<E57Field> kTwelveAndFour{E57Field::Whole("a", 0, 4095), E57Field::Whole("b", -8, 7)};

TEST(E57Packets, StreamsMayComeAtDifferentPaces) {
    HandMade made;
    made.node.count = 4;
    // a: 0x123 0x456 0x789 0xabc; b: 1 2 3 4 above -8. Values cross the packets' ends.
    made.Data({{0x23, 0x61, 0x45, 0x89}, {}});
    made.Packet(2, 0, {});                                    // ignored
    made.Packet(0, 0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});  // an index in between
    made.Data({{}, {0x21}});
    made.Data({{0xc7}, {}});
    made.Data({{0xab}, {0x43}});
    EXPECT_EQ(ReadAll(made.File(), made.node, kTwelveAndFour, 0),
              (std::vector<int64_t>{0x123, 0x456, 0x789, 0xabc}));
    EXPECT_EQ(ReadAll(made.File(), made.node, kTwelveAndFour, 1), (std::vector<int64_t>{-7, -6, -5, -4}));
}

TEST(E57Packets, ARestartedCompressorBeginsANewByte) {
    HandMade made;
    made.node.count = 2;
    made.Data({{0x23, 0xf1}, {0xf1}});  // 0x123 and four bits of filling
    made.Data({{0x56, 0x04}, {0x02}}, 1);
    EXPECT_EQ(ReadAll(made.File(), made.node, kTwelveAndFour, 0), (std::vector<int64_t>{0x123, 0x456}));
}

TEST(E57Packets, ConstantsTakeNoBits) {
    HandMade made;
    made.node.count = 3;
    const std::vector<E57Field> fields{E57Field::Whole("a", 0, 255), E57Field::Whole("c", -5, -5)};
    made.Data({{1, 2, 3}, {}});
    EXPECT_EQ(ReadAll(made.File(), made.node, fields, 1), (std::vector<int64_t>{-5, -5, -5}));
    EXPECT_EQ(ReadAll(made.File(), made.node, fields, 0), (std::vector<int64_t>{1, 2, 3}));
}

TEST(E57Packets, NumbersAboveTheMaximumAreNamedByRecord) {
    HandMade made;
    made.node.count = 3;
    const std::vector<E57Field> fields{E57Field::Whole("rowIndex", 10, 200)};
    made.Data({{0, 190, 191}});
    try {
        ReadAll(made.File(), made.node, fields, 0);
        FAIL() << "was not refused";
    } catch (const SourceFormatException& e) {
        EXPECT_EQ(e.Context().record, "points of scan 1");
        EXPECT_EQ(e.Context().field, "rowIndex");
        EXPECT_EQ(e.Context().detail, "record 2 holds a number above the maximum of 200");
    }
}

TEST(E57Packets, MalformedSectionsAreRefused) {
    const auto refusal = [](HandMade made, uint64_t length = 0) -> std::string {
        try {
            ReadAll(made.File(length), made.node, kTwelveAndFour, 0);
        } catch (const SourceFormatException& e) {
            EXPECT_TRUE(e.Context().offset.has_value());
            return e.Context().detail;
        }
        return "was not refused";
    };
    HandMade good;
    good.node.count = 2;
    good.Data({{0x23, 0x61, 0x45}, {0x21}});
    EXPECT_EQ(refusal(good), "was not refused");

    HandMade made = good;
    made.node.count = ~uint64_t{0};
    EXPECT_NE(refusal(made).find("the section can hold at most"), std::string::npos);
    made = good;
    made.node.count = 5;  // would fit the section, not the stream
    EXPECT_EQ(refusal(made), "the packets end after 2 of 5 records");
    made = good;
    made.node.fileOffset = 1022;
    EXPECT_NE(refusal(made).find("no checksum"), std::string::npos);
    made = good;
    made.node.fileOffset = uint64_t{1} << 60;
    EXPECT_NE(refusal(made).find("inside the file"), std::string::npos);
    made = good;
    made.content[48] = 0;
    EXPECT_EQ(refusal(made), "found 0, expected 1");
    EXPECT_NE(refusal(good, 31).find("found 31"), std::string::npos);
    EXPECT_NE(refusal(good, uint64_t{1} << 63).find("the file has"), std::string::npos);
    made = good;
    made.content[64] = 47;  // data in front of the section
    EXPECT_NE(refusal(made).find("inside the section"), std::string::npos);
    made = good;
    made.content[80] = 9;
    EXPECT_EQ(refusal(made), "found a packet of type 9, expected 0, 1 or 2");
    made = good;
    made.content[82] = 200;
    EXPECT_NE(refusal(made).find("found a packet of 201 bytes"), std::string::npos);
    made = good;
    made.content[82] = 7;
    EXPECT_NE(refusal(made).find("its header needs 10"), std::string::npos);
    made = good;
    made.content[84] = 3;
    EXPECT_EQ(refusal(made), "found 3 streams, expected 2");
    made = good;
    made.content[86] = 9;
    EXPECT_NE(refusal(made).find("the streams are"), std::string::npos);
}

TEST(E57Packets, RecordsOfNothingAreBelievedToALimitOnly) {
    HandMade made;
    const std::vector<E57Field> fields{E57Field::Whole("c", 3, 3)};
    made.Data({{}});
    made.node.count = 1000;
    EXPECT_EQ(ReadAll(made.File(), made.node, fields, 0), std::vector<int64_t>(1000, 3));
    made.node.count = uint64_t{1} << 40;
    EXPECT_THROW(ReadAll(made.File(), made.node, fields, 0), SourceFormatException);
}

TEST(E57Packets, RecordsThatFillAPacketAreWrittenAndWiderOnesRefused) {
    // 64 records of 127 doubles and the lengths of 127 streams fit 64 KiB; 64 of 128 do not.
    std::vector<E57Field> fields(127, E57Field::Real("x", false));
    const auto write = [&] {
        kxbase::InMemoryStream stream;
        E57PageWriter pages(stream);
        E57VectorWriter(pages, fields).Finish();
    };
    EXPECT_NO_THROW(write());
    fields.push_back(E57Field::Real("x", false));
    const auto context = kxtest::ContextOf<kxbase::KXBadInputException>("Scan cannot be written", write);
    EXPECT_EQ(context.detail, "the fields of a record need 8192 bits");
}

TEST(E57Packets, LongSectionsHaveAnIndexThatPointsAtTheirPackets) {
    const std::vector<E57Field> fields{E57Field::Whole("a", 0, 255), E57Field::Real("d", false)};
    constexpr size_t kRecords = 60000;
    std::mt19937_64 random(5);
    const Table table = RandomTable(fields, kRecords, random);
    const Written written = WriteTable(fields, table, kRecords);
    const auto parts = plain::PlainStreams(plain::PlainContent(written.file), written.node.fileOffset);
    EXPECT_GT(parts.packets.size(), 5U);
    ASSERT_EQ(parts.index.size(), parts.packets.size());
    for (size_t i = 0; i < parts.index.size(); ++i) {
        EXPECT_EQ(parts.index[i].physical, parts.packets[i]);
        EXPECT_EQ(parts.index[i].record % 64, 0U);
        EXPECT_TRUE(i == 0 || parts.index[i].record > parts.index[i - 1].record);
    }
}

}  // namespace
