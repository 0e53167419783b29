// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <numeric>

#include "PlainE57.h"
#include "e57/E57Checksum.h"
#include "e57/E57Header.h"
#include "e57/E57PageWriter.h"
#include "kxbase/InMemoryStream.h"
#include "kxexchange/Errors.h"
#include "support/Thrown.h"

namespace {

using namespace kxexchange;
using kxexchange::plain::Bytes;

Bytes Count(size_t bytes) {
    Bytes content(bytes);
    for (size_t i = 0; i < bytes; ++i)
        content[i] = static_cast<unsigned char>(i * 7 + i / 251);
    return content;
}

template <class Action>
kxbase::ErrorContext Refusal(Action action) {
    try {
        action();
    } catch (const SourceFormatException& e) {
        EXPECT_STREQ(e.what(), "E57 file cannot be read");
        return e.Context();
    }
    ADD_FAILURE() << "was not refused";
    return {};
}

// The check value of the published parameters: the digits 1 to 9.
TEST(E57Checksum, DigitsGiveThePublishedCheckValue) {
    const Bytes digits{'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(Crc32c(digits), 0xe3069283U);
    EXPECT_EQ(plain::BitwiseCrc32c(digits.data(), digits.size()), 0xe3069283U);
}

TEST(E57Pages, OffsetsSkipTheChecksums) {
    EXPECT_EQ(E57Physical(0), 0U);
    EXPECT_EQ(E57Physical(1019), 1019U);
    EXPECT_EQ(E57Physical(1020), 1024U);
    EXPECT_EQ(E57Physical(2041), 2049U);
    EXPECT_EQ(E57Logical(1019), 1019U);
    EXPECT_EQ(E57Logical(1020), std::nullopt);
    EXPECT_EQ(E57Logical(1023), std::nullopt);
    EXPECT_EQ(E57Logical(1024), 1020U);
}

TEST(E57Pages, ContentIsReadAcrossPagesFromAnyPlace) {
    const Bytes content = Count(300 * 1020);
    kxbase::InMemoryStream stream(plain::PlainPages(content));
    E57PageReader reader(stream, "a.e57");
    EXPECT_EQ(reader.LogicalBytes(), content.size());
    for (const size_t at : std::vector<size_t>{0, 1, 1019, 1020, 1021, 130 * 1020 - 3, 299 * 1020}) {
        for (const size_t count : std::vector<size_t>{1, 2, 5, 1020}) {
            Bytes out(count);
            reader.Read(at, out, "piece");
            EXPECT_TRUE(std::equal(out.begin(), out.end(), content.begin() + static_cast<ptrdiff_t>(at)));
        }
    }
    Bytes all(content.size());
    reader.Read(0, all, "all");
    EXPECT_EQ(all, content);
}

TEST(E57Pages, DamagedPageIsNamedWithFileAndByte) {
    Bytes file = plain::PlainPages(Count(5 * 1020));
    file[3 * 1024 + 77] ^= 0x20;
    kxbase::InMemoryStream stream(file);
    E57PageReader reader(stream, "b.e57");
    Bytes out(3 * 1020);
    reader.Read(0, out, "piece");  // the pages in front are fine
    const auto context = Refusal([&] { reader.Read(3 * 1020 - 1, std::span(out).first(2), "piece"); });
    EXPECT_EQ(context.file, "b.e57");
    EXPECT_EQ(context.record, "page 3");
    EXPECT_EQ(context.offset, 3072U);
    EXPECT_NE(context.detail.find("bytes 3072 to 4095"), std::string::npos) << context.detail;
    reader.Read(4 * 1020, std::span(out).first(1020), "piece");  // and so is the one behind
}

TEST(E57Pages, EveryBitOfAPageIsChecked) {
    const Bytes good = plain::PlainPages(Count(1020));
    for (size_t bit = 0; bit < 1024 * 8; bit += 5) {
        Bytes file = good;
        file[bit / 8] ^= static_cast<unsigned char>(1 << (bit % 8));
        kxbase::InMemoryStream stream(file);
        E57PageReader reader(stream, "c.e57");
        Bytes out(1);
        EXPECT_THROW(reader.Read(0, out, "piece"), SourceFormatException) << bit;
    }
}

TEST(E57Pages, ReadingBehindTheEndIsRefused) {
    Bytes file = plain::PlainPages(Count(2 * 1020));
    file.resize(file.size() - 1);  // the second page is not whole
    kxbase::InMemoryStream stream(file);
    E57PageReader reader(stream, "d.e57");
    Bytes out(2);
    EXPECT_THROW(reader.Read(1019, out, "piece"), SourceFormatException);
    EXPECT_THROW(reader.Read(~uint64_t{0}, out, "piece"), SourceFormatException);
    EXPECT_THROW(reader.Read(5000, out, "piece"), SourceFormatException);
}

TEST(E57Pages, WrittenPagesAreWhatTheyShouldBe) {
    for (const size_t bytes : std::vector<size_t>{1, 1019, 1020, 1021, 600 * 1020, 1300 * 1020 + 17}) {
        Bytes content = Count(bytes);
        kxbase::InMemoryStream stream;
        E57PageWriter writer(stream);
        const std::span<const unsigned char> all(content);
        for (size_t at = 0; at < bytes; at += 777)
            writer.Append(all.subspan(at, std::min<size_t>(777, bytes - at)));
        EXPECT_EQ(writer.Position(), bytes);
        const uint64_t finished = writer.Finish();
        EXPECT_EQ(finished, stream.GetBytes().size());
        EXPECT_EQ(stream.GetBytes(), plain::PlainPages(content));
    }
}

TEST(E57Pages, ReservedPlacesAreFilledBeforeAndAfterTheirPagesAreWritten) {
    Bytes content = Count(2000 * 1020);
    kxbase::InMemoryStream stream;
    E57PageWriter writer(stream);
    const std::span<const unsigned char> all(content);
    writer.Append(all.first(1000));
    const uint64_t first = writer.Reserve(48);  // over a page's end
    EXPECT_EQ(first, 1000U);
    writer.Append(all.subspan(1048, 1'500'000));
    const uint64_t second = writer.Reserve(8);
    const auto fill = [&](uint64_t at, size_t count) {
        writer.Fill(at, all.subspan(static_cast<size_t>(at), count));
    };
    fill(first + 8, 40);
    fill(first, 8);
    fill(second, 8);
    writer.Append(all.subspan(static_cast<size_t>(second) + 8));
    fill(second, 8);
    const auto context =
        kxtest::ContextOf<kxbase::KXWrongDataSizeofException>("Wrong data size", [&] { fill(second, 9); });
    EXPECT_EQ(context.detail, "no reserved place at content byte " + std::to_string(second));
    writer.Finish();
    EXPECT_EQ(plain::PlainContent(stream.GetBytes()), content);
}

// Refuses the n-th seek, as a stream may that ends early.
class UnseekableStream final : public kxbase::IOutFileStream {
public:
    explicit UnseekableStream(int failing) : m_failing(failing) {}
    bool IsOpen() const override { return true; }
    bool Seek(uint64_t position) override { return m_seeks++ != m_failing && m_out.Seek(position); }
    bool SeekForward(uint64_t bytes) override { return m_out.SeekForward(bytes); }
    bool SeekBackward(uint64_t bytes) override { return m_out.SeekBackward(bytes); }
    bool SeekEnd(uint64_t offset) override { return m_out.SeekEnd(offset); }
    uint64_t Tell() const override { return m_out.Tell(); }
    uint64_t Write(const void* data, uint64_t bytes) override { return m_out.Write(data, bytes); }
    void Close() override {}
    std::wstring GetName() const override { return {}; }
    int Seeks() const { return m_seeks; }

private:
    int m_failing;
    int m_seeks = 0;
    kxbase::InMemoryStream m_out;
};

TEST(E57Pages, ASeekThatFailsIsReported) {
    const Bytes content = Count(600 * 1020);
    const auto write = [&](kxbase::IOutFileStream& stream) {
        E57PageWriter writer(stream);
        const uint64_t place = writer.Reserve(8);
        writer.Append(content);
        writer.Finish();
        writer.Fill(place, std::span<const unsigned char>(content).first(8));
    };
    UnseekableStream whole(-1);
    write(whole);
    ASSERT_GE(whole.Seeks(), 2);
    for (int failing = 0; failing < whole.Seeks(); ++failing) {
        UnseekableStream stream(failing);
        EXPECT_THROW(write(stream), kxbase::KXWritingException) << failing;
    }
}

// 48 bytes, field by field.
Bytes HeaderBytes() {
    return {'A', 'S', 'T', 'M', '-', 'E', '5', '7',  // signature
            1,   0,   0,   0,                        // major version
            0,   0,   0,   0,                        // minor version
            0,   8,   0,   0,   0,   0,   0,   0,    // 2048 bytes
            16,  4,   0,   0,   0,   0,   0,   0,    // XML at 1040
            100, 0,   0,   0,   0,   0,   0,   0,    // of 100 bytes
            0,   4,   0,   0,   0,   0,   0,   0};   // pages of 1024
}

E57Header ReadHeader(Bytes content) {
    content.resize(2040);
    kxbase::InMemoryStream stream(plain::PlainPages(content));
    E57PageReader reader(stream, "h.e57");
    return ReadE57Header(reader, stream);
}

TEST(E57Header, BytesBecomeFieldsAndBack) {
    const E57Header header = ReadHeader(HeaderBytes());
    EXPECT_EQ(header.major, 1U);
    EXPECT_EQ(header.minor, 0U);
    EXPECT_EQ(header.physicalLength, 2048U);
    EXPECT_EQ(header.xmlOffset, 1040U);
    EXPECT_EQ(header.xmlLength, 100U);
    const auto bytes = header.Encode();
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), HeaderBytes());
}

TEST(E57Header, WhatCannotBeIsRefusedByField) {
    struct Case {
        size_t at;
        std::vector<unsigned char> bytes;
        const char* field;
        uint64_t offset;
    };
    const Case cases[] = {
        {0, {'a'}, "signature", 0},           {8, {2}, "major version", 8},
        {16, {1}, "physical length", 16},      // no whole pages
        {17, {12}, "physical length", 16},     // longer than the file
        {24, {0xfd, 3}, "XML offset", 24},     // inside a checksum
        {24, {47, 0}, "XML offset", 24},       // inside the header
        {31, {0xff}, "XML offset", 24},        // far away
        {39, {0xff}, "XML offset", 24},        // without end
        {32, {0xff, 0xff}, "XML offset", 24},  // longer than the file
        {41, {8}, "page size", 40},           {40, {1}, "page size", 40},
    };
    for (const Case& c : cases) {
        Bytes header = HeaderBytes();
        std::copy(c.bytes.begin(), c.bytes.end(), header.begin() + static_cast<ptrdiff_t>(c.at));
        const auto context = Refusal([&] { ReadHeader(header); });
        EXPECT_EQ(context.record, "header");
        EXPECT_EQ(context.field, c.field) << c.at;
        EXPECT_EQ(context.offset, c.offset);
    }
}

TEST(E57Header, AFileCutAnywhereIsRefused) {
    Bytes content = HeaderBytes();
    content.resize(2040);
    const Bytes file = plain::PlainPages(content);
    for (size_t size = 0; size < file.size(); size += size < 60 ? 1 : 97) {
        kxbase::InMemoryStream stream(file.data(), size);
        E57PageReader reader(stream, "cut.e57");
        EXPECT_THROW(ReadE57Header(reader, stream), SourceFormatException) << size;
    }
}

}  // namespace
