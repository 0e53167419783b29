// SPDX-License-Identifier: MIT
#include "kxbase/IOHeader.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <vector>

#include "kxbase/ByteWriter.h"
#include "kxbase/InMemoryStream.h"
#include "support/StreamStub.h"

namespace kxbase {
namespace {

using Bytes = std::vector<unsigned char>;

/// A record of two numbers; from version 3 on, raw bytes follow.
class Sample : public IOHeader {
public:
    uint32_t first = 11;
    uint16_t second = 22;
    Bytes tail;
    uint32_t versionSeen = 0;
    bool growsWhileWriting = false;

    uint64_t GetMagic() const override { return 0x8877665544332211u; }
    uint32_t DataSize(uint32_t version) const override {
        return version < 3 ? 6u : 10u + static_cast<uint32_t>(tail.size());
    }
    uint32_t GetCurrentVersion() const override { return 5; }
    void _Read(const unsigned char* payload) override {
        RequireVersion(2, "Unsupported Sample version");
        versionSeen = GetVersion();
        ByteReader in = PayloadReader(payload);
        const uint32_t a = in.U32("first");
        const uint16_t b = in.U16("second");
        Bytes c;
        if (GetVersion() >= 3) {
            const uint32_t count = in.U32("tail count");
            in.RequireElements(count, 1, "tail count");
            c.resize(count);
            in.Bytes(c, "tail");
        }
        first = a;
        second = b;
        tail = c;
    }
    void _Write(unsigned char* payload, uint32_t size) override {
        ByteWriter out({payload, size});
        out.U32(first);
        out.U16(second);
        out.U32(static_cast<uint32_t>(tail.size()));
        out.Bytes(tail);
        if (growsWhileWriting) tail.push_back(0);
    }
    const char* GetRecordName() const override { return "Sample"; }
};

// Version 5, numbers 0x04030201 and 0x0605, two raw bytes.
const Bytes kRecord = {
    0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,  // tag
    0x05, 0x00, 0x00, 0x00,                          // version
    0x0c, 0x00, 0x00, 0x00,                          // payload size
    0x01, 0x02, 0x03, 0x04,                          // first
    0x05, 0x06,                                      // second
    0x02, 0x00, 0x00, 0x00,                          // tail count
    0xaa, 0xbb,                                      // tail
};

TEST(IOHeader, WritesFrameThenPayload) {
    Sample record;
    record.first = 0x04030201;
    record.second = 0x0605;
    record.tail = {0xaa, 0xbb};
    InMemoryStream stream;
    EXPECT_EQ(record.Write(&stream), 28u);
    EXPECT_EQ(stream.GetBytes(), kRecord);
    EXPECT_EQ(stream.Tell(), 28u);
    EXPECT_EQ(record.HeaderSize(), 28u);
}

TEST(IOHeader, EncodesWhatItWouldWrite) {
    Sample record;
    record.first = 0x04030201;
    record.second = 0x0605;
    record.tail = {0xaa, 0xbb};
    EXPECT_EQ(record.Encode(), kRecord);
    EXPECT_EQ(record.GetDataSize(), 12u);
    record.growsWhileWriting = true;
    record.tail.resize(100);
    EXPECT_THROW(record.Encode(), KXException);
    EXPECT_EQ(record.GetDataSize(), 12u) << "as before";
}

TEST(IOHeader, ValidityTellsOfReadingAlone) {
    InMemoryStream stream;
    Sample record;
    record.Write(&stream);
    EXPECT_FALSE(record.IsValid()) << "never read";
    stream.Seek(0);
    record.Read(&stream);
    EXPECT_TRUE(record.IsValid());
    record.Write(&stream);
    EXPECT_TRUE(record.IsValid());
    EXPECT_EQ(record.Read(&stream), 0u);  // at the end
    record.Write(&stream);
    EXPECT_FALSE(record.IsValid());
}

TEST(IOHeader, ReadsFrameThenPayload) {
    InMemoryStream stream(kRecord);
    Sample record;
    EXPECT_EQ(record.Read(&stream), 28u);
    EXPECT_TRUE(record.IsValid());
    EXPECT_EQ(record.first, 0x04030201u);
    EXPECT_EQ(record.second, 0x0605u);
    EXPECT_EQ(record.tail, (Bytes{0xaa, 0xbb}));
    EXPECT_EQ(record.versionSeen, 5u);
    EXPECT_EQ(record.GetVersion(), 5u);
    EXPECT_EQ(record.GetDataSize(), 12u);
    EXPECT_EQ(record.HeaderSize(), 28u);
    EXPECT_EQ(stream.Tell(), 28u);
    EXPECT_TRUE(record.GetReadProblem().Empty());
}

TEST(IOHeader, BeforeAnyReadItDescribesWhatItWouldWrite) {
    Sample record;
    EXPECT_FALSE(record.IsValid());
    EXPECT_EQ(record.HeaderSize(), 26u);
    EXPECT_EQ(record.GetVersion(), 5u);
    record.tail.resize(100);
    EXPECT_EQ(record.HeaderSize(), 126u);
}

TEST(IOHeader, AnotherTagIsNoRecord) {
    for (size_t position = 0; position < 8; ++position) {
        SCOPED_TRACE(position);
        Bytes bytes = kRecord;
        bytes[position] = static_cast<unsigned char>(bytes[position] ^ 1);
        InMemoryStream stream(bytes);
        Sample record;
        EXPECT_EQ(record.Read(&stream), 0u);
        EXPECT_FALSE(record.IsValid());
        EXPECT_EQ(stream.Tell(), 0u);
        EXPECT_EQ(record.first, 11u);
        EXPECT_EQ(record.GetReadProblem().record, "Sample");
        EXPECT_EQ(record.GetReadProblem().offset, 0u);
        EXPECT_FALSE(record.GetReadProblem().detail.empty());
    }
}

TEST(IOHeader, CutAnywhereItIsNoRecordAndThePositionStays) {
    const Bytes lead = {9, 9, 9};
    for (size_t length = 0; length < kRecord.size(); ++length) {
        SCOPED_TRACE(length);
        Bytes bytes = lead;
        bytes.insert(bytes.end(), kRecord.begin(), kRecord.begin() + static_cast<std::ptrdiff_t>(length));
        InMemoryStream stream(bytes);
        stream.Seek(3);
        Sample record;
        EXPECT_EQ(record.Read(&stream), 0u);
        EXPECT_FALSE(record.IsValid());
        EXPECT_EQ(stream.Tell(), 3u);
        EXPECT_EQ(record.first, 11u);
        EXPECT_EQ(record.second, 22u);
        EXPECT_FALSE(record.GetReadProblem().Empty());
    }
}

TEST(IOHeader, PayloadShorterThanItsLayoutKeepsNothing) {
    // The frame is honest about a short payload; bytes of a next record follow.
    for (unsigned char size = 0; size < 12; ++size) {
        SCOPED_TRACE(int{size});
        Bytes bytes = kRecord;
        bytes[12] = size;
        InMemoryStream stream(bytes);
        Sample record;
        EXPECT_EQ(record.Read(&stream), 0u);
        EXPECT_FALSE(record.IsValid());
        EXPECT_EQ(stream.Tell(), 0u);
        EXPECT_EQ(record.first, 11u);
        EXPECT_EQ(record.GetReadProblem().record, "Sample");
        EXPECT_FALSE(record.GetReadProblem().field.empty());
    }
}

TEST(IOHeader, BytesThatANewerVersionAppendsAreSkipped) {
    Bytes bytes = kRecord;
    bytes[8] = 9;    // version 9
    bytes[12] = 15;  // three bytes more
    bytes.insert(bytes.end(), {1, 2, 3, 0xee});
    InMemoryStream stream(bytes);
    Sample record;
    EXPECT_EQ(record.Read(&stream), 31u);
    EXPECT_TRUE(record.IsValid());
    EXPECT_EQ(record.GetVersion(), 9u);
    EXPECT_EQ(record.HeaderSize(), 31u);
    EXPECT_EQ(stream.Tell(), 31u);
    EXPECT_EQ(record.tail, (Bytes{0xaa, 0xbb}));
}

TEST(IOHeader, OldLayoutIsReadAndTheCurrentOneWritten) {
    Bytes bytes(kRecord.begin(), kRecord.begin() + 22);
    bytes[8] = 2;
    bytes[12] = 6;
    InMemoryStream stream(bytes);
    Sample record;
    EXPECT_EQ(record.Read(&stream), 22u);
    EXPECT_EQ(record.GetVersion(), 2u);
    EXPECT_EQ(record.HeaderSize(), 22u);
    InMemoryStream out;
    EXPECT_EQ(record.Write(&out), 26u);
    EXPECT_EQ(record.GetVersion(), 5u);
    EXPECT_EQ(record.HeaderSize(), 26u);
    EXPECT_EQ(out.GetBytes()[8], 5u);
    EXPECT_EQ(out.GetBytes()[12], 10u);
}

TEST(IOHeader, RefusedVersionThrowsItsTextAndRestoresThePosition) {
    for (const unsigned char payloadBytes : Bytes{0x0c, 0x00}) {  // also when the payload is short
        Bytes bytes = {7, 7, 7, 7};
        bytes.insert(bytes.end(), kRecord.begin(), kRecord.end());
        bytes[4 + 8] = 1;
        bytes[4 + 12] = payloadBytes;
        InMemoryStream stream(bytes);
        stream.Seek(4);
        Sample record;
        try {
            record.Read(&stream);
            FAIL() << "version 1 was read";
        } catch (const KXHeaderReadingException& e) {
            EXPECT_STREQ(e.what(), "Unsupported Sample version");
            EXPECT_EQ(e.Context().record, "Sample");
            ASSERT_TRUE(e.Context().offset.has_value());
            EXPECT_GE(*e.Context().offset, 4u);
            EXPECT_LT(*e.Context().offset, 20u);
        }
        EXPECT_FALSE(record.IsValid());
        EXPECT_EQ(stream.Tell(), 4u);
        EXPECT_EQ(record.first, 11u);
    }
}

TEST(IOHeader, AFailureAfterASuccessClearsValidity) {
    InMemoryStream stream(kRecord);
    Sample record;
    ASSERT_NE(record.Read(&stream), 0u);
    EXPECT_EQ(record.Read(&stream), 0u);  // at the end now
    EXPECT_FALSE(record.IsValid());
    stream.Seek(0);
    EXPECT_NE(record.Read(&stream), 0u);
    EXPECT_TRUE(record.IsValid());
    EXPECT_TRUE(record.GetReadProblem().Empty());
}

TEST(IOHeader, ASizeThatTheStreamCannotHoldIsRefusedWithoutAllocating) {
    Bytes bytes = kRecord;
    for (size_t i = 12; i < 16; ++i)
        bytes[i] = 0xff;
    InMemoryStream stream(bytes);
    Sample record;
    EXPECT_EQ(record.Read(&stream), 0u);
    EXPECT_EQ(stream.Tell(), 0u);
    EXPECT_FALSE(record.GetReadProblem().detail.empty());
}

TEST(IOHeader, ACountThatThePayloadCannotHoldIsRefused) {
    Bytes bytes = kRecord;
    for (size_t i = 22; i < 26; ++i)
        bytes[i] = 0xff;
    InMemoryStream stream(bytes);
    Sample record;
    EXPECT_EQ(record.Read(&stream), 0u);
    EXPECT_EQ(record.GetReadProblem().field, "tail count");
}

TEST(IOHeader, ProblemInThePayloadNamesFieldAndAbsoluteOffset) {
    Bytes bytes(100, 0);
    bytes.insert(bytes.end(), kRecord.begin(), kRecord.end());
    bytes[100 + 12] = 5;  // the second number is cut after one byte
    InMemoryStream stream(bytes);
    stream.Seek(100);
    Sample record;
    EXPECT_EQ(record.Read(&stream), 0u);
    EXPECT_EQ(record.GetReadProblem().record, "Sample");
    EXPECT_EQ(record.GetReadProblem().field, "second");
    EXPECT_EQ(record.GetReadProblem().offset, 100u + 16u + 4u);
}

TEST(IOHeader, PayloadsAboveTheWorkingAreaRoundTrip) {
    for (const size_t size : {1013u, 1014u, 1015u, 120000u}) {
        Sample record;
        record.tail.resize(size);
        for (size_t i = 0; i < size; ++i)
            record.tail[i] = static_cast<unsigned char>(i * 7);
        InMemoryStream stream;
        EXPECT_EQ(record.Write(&stream), 26 + size);
        stream.Seek(0);
        Sample back;
        EXPECT_EQ(back.Read(&stream), 26 + size);
        EXPECT_EQ(back.tail, record.tail);
    }
}

TEST(IOHeader, SizeThatChangesDuringWritingIsReported) {
    Sample record;
    record.growsWhileWriting = true;
    InMemoryStream stream;
    EXPECT_THROW(record.Write(&stream), KXException);
    EXPECT_EQ(stream.GetSize(), 0u);
}

/// Counts the writes; the n-th fails.
class CountingStream : public kxtest::StreamStub {
public:
    explicit CountingStream(int failAt = 0) : m_failAt(failAt) {}
    int writes = 0;
    uint64_t Write(const void*, uint64_t bytes) override {
        if (++writes == m_failAt) throw KXWritingException("Cannot write file");
        return bytes;
    }

private:
    int m_failAt;
};

TEST(IOHeader, FrameAndPayloadGoOutInOneWrite) {
    CountingStream stream;
    Sample record;
    record.tail.resize(5000);
    record.Write(&stream);
    EXPECT_EQ(stream.writes, 1);
}

TEST(IOHeader, FailureOfTheStreamLeavesAsItIs) {
    CountingStream stream(1);
    Sample record;
    EXPECT_THROW(record.Write(&stream), KXWritingException);
}

TEST(IOHeader, FailedWriteLeavesVersionAndSizeAsTheyWere) {
    Bytes old(kRecord.begin(), kRecord.begin() + 22);
    old[8] = 2;
    old[12] = 6;
    for (const bool inTheStream : {true, false}) {
        InMemoryStream stream(old);
        Sample record;
        ASSERT_EQ(record.Read(&stream), 22u);
        CountingStream out(inTheStream ? 1 : 0);
        record.growsWhileWriting = !inTheStream;
        EXPECT_THROW(record.Write(&out), KXException);
        EXPECT_EQ(record.GetVersion(), 2u);
        EXPECT_EQ(record.GetDataSize(), 6u);
        EXPECT_TRUE(record.IsValid());
    }
    Sample fresh;
    CountingStream out(1);
    EXPECT_THROW(fresh.Write(&out), KXException);
    fresh.tail.resize(100);
    EXPECT_EQ(fresh.HeaderSize(), 126u) << "still what it would write now";
}

TEST(IOHeader, CopiesAndMovesKeepTheFrame) {
    InMemoryStream stream(kRecord);
    Sample record;
    record.Read(&stream);
    const Sample copy(record);
    EXPECT_TRUE(copy.IsValid());
    EXPECT_EQ(copy.HeaderSize(), 28u);
    EXPECT_EQ(copy.tail, record.tail);
    Sample assigned;
    assigned = record;
    EXPECT_EQ(assigned.GetVersion(), 5u);
    EXPECT_TRUE(assigned.IsValid());
    const Sample moved(std::move(assigned));
    EXPECT_TRUE(moved.IsValid());
    EXPECT_EQ(moved.GetDataSize(), 12u);
    Sample moveAssigned;
    moveAssigned = Sample(record);
    EXPECT_EQ(moveAssigned.HeaderSize(), 28u);
}

TEST(IOHeader, RecordsFollowOneAnother) {
    Bytes bytes = kRecord;
    bytes.insert(bytes.end(), kRecord.begin(), kRecord.end());
    bytes.push_back(0);
    InMemoryStream stream(bytes);
    Sample record;
    int count = 0;
    while (record.Read(&stream) != 0)
        ++count;
    EXPECT_EQ(count, 2);
    EXPECT_EQ(stream.Tell(), 56u);
}

RC_GTEST_PROP(IOHeader, AnyRecordRoundTrips, (uint32_t first, uint16_t second, const Bytes& tail)) {
    Sample record;
    record.first = first;
    record.second = second;
    record.tail = tail;
    InMemoryStream stream;
    RC_ASSERT(record.Write(&stream) == record.HeaderSize());
    stream.Seek(0);
    Sample back;
    RC_ASSERT(back.Read(&stream) == 26 + tail.size());
    RC_ASSERT(back.first == first && back.second == second && back.tail == tail);
}

RC_GTEST_PROP(IOHeader, AnyBytesAreARecordOrNone, (const Bytes& noise, uint32_t version, uint32_t size)) {
    Bytes bytes(16 + noise.size());
    ByteWriter out(bytes);
    out.U64(Sample().GetMagic());
    out.U32(version % 8);
    out.U32(size % 64);
    out.Bytes(noise);
    InMemoryStream stream(bytes);
    Sample record;
    uint64_t got = 0;
    try {
        got = record.Read(&stream);
    } catch (const KXHeaderReadingException&) {
        RC_ASSERT(version % 8 < 2u);
    }
    RC_ASSERT(got == 0u || got == 16 + size % 64);
    RC_ASSERT(stream.Tell() == got);
    RC_ASSERT(record.IsValid() == (got != 0));
}

}  // namespace
}  // namespace kxbase
