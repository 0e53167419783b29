// SPDX-License-Identifier: MIT
#include "kxio/MainFileHeader.h"

#include <gtest/gtest.h>

#include <utility>

#include "support/RecordBytes.h"

namespace {

using kxio::MainFileHeader;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::GoldenHex;

MainFileHeader Distinct() {
    MainFileHeader header;
    header.scanHeaderPosition = 0x1122334455667788ULL;
    header.firstComponentHeaderPosition = 0x0102030405060708ULL;
    header.firstChunkPosition = 92;
    header.firstExtendedHeaderPosition = 0x2122232425262728ULL;
    header.chunkDataEndPosition = 0x3132333435363738ULL;
    header.thumbnailHeaderPosition = 0x4142434445464748ULL;
    header.lookupTablePosition = 0x5152535455565758ULL;
    header.previewLookupTablePosition = 0x6162636465666768ULL;
    header.boundingInformationPosition = 0x7172737475767778ULL;
    header.writerRevision = 240;
    return header;
}

void ExpectSame(const MainFileHeader& a, const MainFileHeader& b) {
    EXPECT_EQ(a.scanHeaderPosition, b.scanHeaderPosition);
    EXPECT_EQ(a.firstComponentHeaderPosition, b.firstComponentHeaderPosition);
    EXPECT_EQ(a.firstChunkPosition, b.firstChunkPosition);
    EXPECT_EQ(a.firstExtendedHeaderPosition, b.firstExtendedHeaderPosition);
    EXPECT_EQ(a.chunkDataEndPosition, b.chunkDataEndPosition);
    EXPECT_EQ(a.thumbnailHeaderPosition, b.thumbnailHeaderPosition);
    EXPECT_EQ(a.lookupTablePosition, b.lookupTablePosition);
    EXPECT_EQ(a.previewLookupTablePosition, b.previewLookupTablePosition);
    EXPECT_EQ(a.boundingInformationPosition, b.boundingInformationPosition);
    EXPECT_EQ(a.writerRevision, b.writerRevision);
}

TEST(MainFileHeader, StartsWithAllFieldsZeroAndItsFinalSize) {
    const MainFileHeader header;
    ExpectSame(header, MainFileHeader());
    EXPECT_EQ(header.scanHeaderPosition, 0U);
    EXPECT_EQ(header.boundingInformationPosition, 0U);
    EXPECT_EQ(header.writerRevision, 0U);
    EXPECT_EQ(header.HeaderSize(), 92U);
    EXPECT_EQ(MainFileHeader::RecordSize, 92U);
    EXPECT_FALSE(header.IsValid());
    for (const uint32_t version : {0U, 209U, 210U, 300U})
        EXPECT_EQ(header.DataSize(version), 76U);
}

TEST(MainFileHeader, FirstSixteenBytesOfAFile) {
    MainFileHeader header;
    const Bytes bytes = kxtest::Written(header);
    ASSERT_EQ(bytes.size(), 92U);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 16),
              kxtest::Hex("5e de 73 9b db 7e 79 ab  d2 00 00 00  4c 00 00 00"));
}

TEST(MainFileHeader, WritesTheTenFieldsInOrder) {
    MainFileHeader header = Distinct();
    EXPECT_EQ(kxtest::ToHex(kxtest::Written(header)), kxtest::ToHex(GoldenHex("records/main-210.hex")));
}

TEST(MainFileHeader, ReadsTheTenFieldsInOrder) {
    MainFileHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, GoldenHex("records/main-210.hex")), 92U);
    EXPECT_TRUE(header.IsValid());
    EXPECT_EQ(header.GetVersion(), 210U);
    ExpectSame(header, Distinct());
}

TEST(MainFileHeader, NewerVersionIsReadWithTheKnownLayout) {
    MainFileHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, GoldenHex("records/main-300.hex")), 96U);
    EXPECT_EQ(header.HeaderSize(), 96U);
    ExpectSame(header, Distinct());
}

TEST(MainFileHeader, Version209IsRefusedAndNothingIsKept) {
    MainFileHeader header;
    try {
        kxtest::ReadFrom(header, GoldenHex("records/main-209.hex"));
        FAIL() << "not refused";
    } catch (const kxbase::KXHeaderReadingException& e) {
        EXPECT_STREQ(e.what(), "Unsupported MainFileHeader version");
        EXPECT_EQ(e.Context().record, "MainFileHeader");
        EXPECT_EQ(e.Context().field, "version");
        EXPECT_EQ(e.Context().offset, 8U);
    }
    EXPECT_FALSE(header.IsValid());
    ExpectSame(header, MainFileHeader());
}

TEST(MainFileHeader, Read210LooksAtNoVersion) {
    const Bytes record = GoldenHex("records/main-209.hex");
    MainFileHeader header;
    header.Read210(record.data() + 16);
    ExpectSame(header, Distinct());
}

TEST(MainFileHeader, CopiesAndMovesKeepFieldsAndFrame) {
    MainFileHeader read;
    kxtest::ReadFrom(read, GoldenHex("records/main-300.hex"));
    const MainFileHeader copy(read);
    MainFileHeader assigned;
    assigned = copy;
    const MainFileHeader moved(std::move(assigned));
    MainFileHeader moveAssigned;
    moveAssigned = MainFileHeader(moved);
    for (const MainFileHeader* header : {&copy, &moved, static_cast<const MainFileHeader*>(&moveAssigned)}) {
        ExpectSame(*header, Distinct());
        EXPECT_EQ(header->HeaderSize(), 96U);
        EXPECT_EQ(header->GetVersion(), 300U);
        EXPECT_TRUE(header->IsValid());
    }
}

TEST(MainFileHeader, WriteStampsTheCurrentVersion) {
    MainFileHeader header;
    kxtest::ReadFrom(header, GoldenHex("records/main-300.hex"));
    EXPECT_EQ(kxtest::Written(header), GoldenHex("records/main-210.hex"));
    EXPECT_EQ(header.GetVersion(), 210U);
    EXPECT_EQ(header.HeaderSize(), 92U);
}

}  // namespace
