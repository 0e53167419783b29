// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "kxio/ComponentHeader.h"
#include "kxio/DataChunkHeader.h"
#include "support/RecordBytes.h"

namespace {

using kxio::ComponentHeader;
using kxio::DataChunkHeader;
using kxtest::Bytes;
using kxtest::GoldenHex;

TEST(DataChunkHeader, ReadsItsGoldenRecord) {
    DataChunkHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, GoldenHex("records/chunk-200.hex")), 32U);
    EXPECT_EQ(header.byteCount, 1000U);
    EXPECT_EQ(header.component, kxbase::ComponentType::Luminance8);
    EXPECT_EQ(header.patchRow, 2U);
    EXPECT_EQ(header.patchColumn, 3U);
    EXPECT_FALSE(header.IsSharedEmpty());
}

TEST(DataChunkHeader, IsWrittenByteForByte) {
    DataChunkHeader header(1000, kxbase::ComponentType::Luminance8, 2, 3);
    EXPECT_EQ(header.HeaderSize(), 32U);
    EXPECT_EQ(kxtest::Written(header), GoldenHex("records/chunk-200.hex"));
}

TEST(DataChunkHeader, SharedEmptyChunkIsKnownByEitherMark) {
    constexpr uint32_t kMark = 0xffffffffU;
    EXPECT_TRUE(DataChunkHeader(1, kxbase::ComponentType::Range, kMark, kMark).IsSharedEmpty());
    EXPECT_TRUE(DataChunkHeader(1, kxbase::ComponentType::Range, kMark, 0).IsSharedEmpty());
    EXPECT_TRUE(DataChunkHeader(1, kxbase::ComponentType::Range, 0, kMark).IsSharedEmpty());
    EXPECT_FALSE(DataChunkHeader(1, kxbase::ComponentType::Range, 0, 0).IsSharedEmpty());
    DataChunkHeader shared(1, kxbase::ComponentType::Range, DataChunkHeader::SharedEmptyPosition,
                           DataChunkHeader::SharedEmptyPosition);
    const Bytes bytes = kxtest::Written(shared);
    EXPECT_EQ(Bytes(bytes.begin() + 16 + 8, bytes.end()), Bytes(8, 0xff));
}

TEST(DataChunkHeader, UnnamedComponentNumberIsKept) {
    DataChunkHeader header;
    const Bytes payload = kxtest::ByteList().U32(1).U32(0xfffffff0U).U32(0).U32(0);
    kxtest::ReadFrom(header, kxtest::Record(kxtest::kChunkRecord, payload));
    EXPECT_EQ(static_cast<uint32_t>(header.component), 0xfffffff0U);
    EXPECT_EQ(kxtest::Written(header), kxtest::Record(kxtest::kChunkRecord, payload));
}

TEST(ComponentHeader, ReadsItsGoldenRecord) {
    ComponentHeader header;
    EXPECT_EQ(kxtest::ReadFrom(header, GoldenHex("records/component-200.hex")), 36U);
    EXPECT_EQ(header.component, kxbase::ComponentType::Color);
    EXPECT_EQ(header.codecIdentifier, 0x000042494c5a584bULL);
    EXPECT_EQ(header.value, 0.125);
}

TEST(ComponentHeader, IsWrittenByteForByte) {
    ComponentHeader header;
    header.component = kxbase::ComponentType::Color;
    header.codecIdentifier = 0x000042494c5a584bULL;
    header.value = 0.125;
    EXPECT_EQ(header.HeaderSize(), 36U);
    EXPECT_EQ(kxtest::Written(header), GoldenHex("records/component-200.hex"));
}

}  // namespace
