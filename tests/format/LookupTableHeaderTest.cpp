// SPDX-License-Identifier: MIT
#include "kxio/LookupTableHeader.h"

#include <gtest/gtest.h>

#include "support/AllocationWatch.h"
#include "support/RecordBytes.h"

namespace {

using kxbase::ComponentType;
using kxio::LookupEntry;
using kxio::LookupTable;
using kxio::LookupTableHeader;
using kxtest::ByteList;
using kxtest::Bytes;
using kxtest::GoldenHex;

LookupTable GoldenTable() {
    return {{ComponentType::Range, {{124, 1000, 0}, {0, 0, 1}, {0x123456789aULL, 7, 2}}},
            {ComponentType::Luminance8, {{2000, 50, 0}}}};
}

TEST(LookupTableHeader, ReadsItsGoldenRecordAndNumbersTheEntries) {
    LookupTable table;
    LookupTableHeader header(&table);
    const Bytes record = GoldenHex("records/lookup-200.hex");
    EXPECT_EQ(kxtest::ReadFrom(header, record), record.size());
    EXPECT_EQ(table, GoldenTable());
}

TEST(LookupTableHeader, IsWrittenByteForByte) {
    LookupTable table = GoldenTable();
    LookupTableHeader header(&table);
    EXPECT_EQ(header.DataSize(200), 4U + 8 + 3 * 12 + 8 + 12);
    EXPECT_EQ(kxtest::ToHex(kxtest::Written(header)), kxtest::ToHex(GoldenHex("records/lookup-200.hex")));
}

TEST(LookupTableHeader, WithoutATableIsSixteenBytesLong) {
    LookupTableHeader header;
    EXPECT_EQ(header.DataSize(200), 0U);
    const Bytes bytes = kxtest::Written(header);
    EXPECT_EQ(bytes, kxtest::Record(kxtest::kLookupRecord, {}));
    EXPECT_EQ(bytes.size(), 16U);
    LookupTable table;
    LookupTableHeader reading(&table);
    EXPECT_EQ(kxtest::ReadFrom(reading, bytes), 0U) << "a payload without a count is no lookup table";
}

TEST(LookupTableHeader, WithoutATableReadsPastTheRecord) {
    LookupTableHeader header;
    const Bytes record = GoldenHex("records/lookup-200.hex");
    EXPECT_EQ(kxtest::ReadFrom(header, record), record.size());
    EXPECT_TRUE(header.IsValid());
}

TEST(LookupTableHeader, EmptyTableIsFourBytesOfPayload) {
    LookupTable table;
    LookupTableHeader header(&table);
    const Bytes bytes = kxtest::Written(header);
    EXPECT_EQ(bytes, kxtest::Record(kxtest::kLookupRecord, Bytes(4, 0)));
    EXPECT_EQ(kxtest::ReadFrom(header, bytes), 20U);
    EXPECT_TRUE(table.empty());
}

TEST(LookupTableHeader, ComponentListedTwiceHasItsLaterEntries) {
    const Bytes payload =
        ByteList().U32(2).U32(1).U32(2).U64(100).U32(10).U64(200).U32(20).U32(1).U32(1).U64(300).U32(30);
    LookupTable table;
    LookupTableHeader header(&table);
    EXPECT_NE(kxtest::ReadFrom(header, kxtest::Record(kxtest::kLookupRecord, payload)), 0U);
    EXPECT_EQ(table, (LookupTable{{ComponentType::Range, {{300, 30, 0}}}}));
}

TEST(LookupTableHeader, ComponentsThatTheRecordDoesNotListStay) {
    LookupTable table{{ComponentType::Range, {{1, 1, 0}}}, {ComponentType::Color, {{5, 6, 0}}}};
    LookupTableHeader header(&table);
    kxtest::ReadFrom(header, GoldenHex("records/lookup-200.hex"));
    LookupTable expected = GoldenTable();
    expected[ComponentType::Color] = {{5, 6, 0}};
    EXPECT_EQ(table, expected);
}

TEST(LookupTableHeader, TrailingBytesAreIgnored) {
    Bytes payload = ByteList().U32(1).U32(1).U32(1).U64(100).U32(10).Fill(10, 0xee);
    LookupTable table;
    LookupTableHeader header(&table);
    EXPECT_EQ(kxtest::ReadFrom(header, kxtest::Record(kxtest::kLookupRecord, payload)), 16U + 24U + 10U);
    EXPECT_EQ(table, (LookupTable{{ComponentType::Range, {{100, 10, 0}}}}));
}

TEST(LookupTableHeader, TenThousandPatchesRoundTrip) {
    LookupTable table;
    for (uint32_t i = 0; i < 10000; ++i)
        table[ComponentType::Range].push_back({92 + uint64_t{i} * 1000, i % 7 == 0 ? 0 : i, i});
    LookupTableHeader header(&table);
    const Bytes bytes = kxtest::Written(header);
    EXPECT_EQ(bytes.size(), 16U + 4U + 8U + 120000U);
    LookupTable read;
    LookupTableHeader reading(&read);
    EXPECT_EQ(kxtest::ReadFrom(reading, bytes), bytes.size());
    EXPECT_EQ(read, table);
}

TEST(LookupTableHeader, CountBeyondThePayloadIsRefusedWithoutTakingMemory) {
    const Bytes manyEntries = ByteList().U32(1).U32(1).U32(0xffffffffU).Fill(72, 0);
    const Bytes manyComponents = ByteList().U32(0xffffffffU).Fill(80, 0);
    const Bytes oneTooMany = ByteList().U32(1).U32(1).U32(3).Fill(35, 0);
    for (const Bytes& payload : {manyEntries, manyComponents, oneTooMany}) {
        const Bytes record = kxtest::Record(kxtest::kLookupRecord, payload);
        for (const bool withTable : {true, false}) {
            LookupTable table = GoldenTable();
            LookupTableHeader header(withTable ? &table : nullptr);
            kxbase::InMemoryStream in(record);
            const kxtest::AllocationWatch watch;
            EXPECT_EQ(header.Read(&in), 0U);
            EXPECT_LT(watch.Largest(), 4096U);
            EXPECT_EQ(in.Tell(), 0U);
            EXPECT_FALSE(header.IsValid());
            EXPECT_EQ(table, GoldenTable()) << "nothing of a refused record is kept";
        }
    }
}

TEST(LookupTableHeader, RefusedCountNamesFieldAndOffset) {
    const Bytes payload = ByteList().U32(1).U32(1).U32(0xffffffffU).Fill(24, 0);
    LookupTable table;
    LookupTableHeader header(&table);
    kxtest::ReadFrom(header, kxtest::Record(kxtest::kLookupRecord, payload));
    EXPECT_EQ(header.GetReadProblem().record, "LookupTableHeader");
    EXPECT_EQ(header.GetReadProblem().field, "number of entries");
    EXPECT_EQ(header.GetReadProblem().offset, 16U + 12U);
}

TEST(LookupTableHeader, LargestCountFitsTheFrame) {
    EXPECT_LE(uint64_t{12} * LookupTableHeader::MaximumEntryCount + 12, 0xffffffffULL);
    EXPECT_GT(uint64_t{12} * (LookupTableHeader::MaximumEntryCount + 1ULL) + 12, 0xffffffffULL);
}

}  // namespace
