// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>

#include "TestCodecs.h"
#include "kxbase/ByteReader.h"
#include "kxbase/Exceptions.h"
#include "support/Thrown.h"

namespace kxcodecs::test {
namespace {

const Bytes kHeader = {
    0x4b, 0x58, 0x5a, 0x4c, 0x49, 0x42, 0x00, 0x00,  // codec identifier: "KXZLIB"
    0x05, 0x00, 0x00, 0x00,                          // width 5
    0x07, 0x01, 0x00, 0x00,                          // height 263
    0x8c, 0x14, 0x00, 0x00,                          // decoded bytes 5260
    0x00, 0x00, 0x7a, 0x44,                          // step 1000.0
    0x8d, 0x14, 0x00, 0x00,                          // uncompressed bytes 5261
};
const ChunkHeaderInfo kInfo = {0x000042494c5a584b, 5, 263, 5260, 1000.0F, 5261};

TEST(ChunkHeader, EachFieldIsReadFromItsPlace) {
    EXPECT_EQ(DecodeChunkHeader(kHeader), kInfo);
    ChunkHeaderInfo info;
    EXPECT_TRUE(QKXChunkCodec::ReadHeader(kHeader, info));
    EXPECT_EQ(info, kInfo);
    EXPECT_EQ(QKXChunkCodec::GetUncompressedSize(kHeader), 5261U);
}

TEST(ChunkHeader, EachFieldIsWrittenToItsPlace) {
    Bytes written(28, 0xEE);
    EncodeChunkHeader(kInfo, written);
    EXPECT_EQ(written, kHeader);
}

TEST(ChunkHeader, BytesBehindItAreNotTouched) {
    Bytes written(30, 0xEE);
    EncodeChunkHeader(kInfo, written);
    EXPECT_EQ(written, kHeader + Bytes({0xEE, 0xEE}));
    EXPECT_EQ(DecodeChunkHeader(written), kInfo);
}

TEST(ChunkHeader, FewerThan28BytesAreNoHeader) {
    for (std::size_t size = 0; size < 28; ++size) {
        const Bytes cut(kHeader.begin(), kHeader.begin() + static_cast<std::ptrdiff_t>(size));
        ChunkHeaderInfo info;
        info.width = 77;
        EXPECT_FALSE(QKXChunkCodec::ReadHeader(cut, info)) << size;
        EXPECT_EQ(info.width, 77U);
        EXPECT_EQ(QKXChunkCodec::GetName(cut), "");
        EXPECT_FALSE(QKXChunkCodec::IsCodecAvailable(cut));
        EXPECT_EQ(QKXChunkCodec::GetUncompressedSize(cut), 0U);
        EXPECT_EQ(
            kxtest::ThrownBy<kxbase::ByteRangeException>([&] { static_cast<void>(DecodeChunkHeader(cut)); }),
            "Record ends too early");
    }
    ChunkHeaderInfo info;
    EXPECT_FALSE(QKXChunkCodec::ReadHeader(nullptr, 28, info));
    Bytes tooSmall(27);
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXWrongDataSizeofException>(
                  [&] { static_cast<void>(EncodeChunkHeader(kInfo, tooSmall)); }),
              "Record does not fit its size");
}

TEST(ChunkHeader, ElementBytesAreZeroWhenTheSizesDoNotFit) {
    struct Row {
        uint32_t width, height, decodedBytes;
        uint64_t expected;
    };
    for (const Row& row : {Row{4, 4, 64, 4}, Row{1, 1, 24, 24}, Row{0, 4, 64, 0}, Row{4, 0, 64, 0},
                           Row{4, 4, 65, 0}, Row{4, 4, 0, 0}, Row{4, 4, 15, 0}, Row{0, 0, 0, 0},
                           Row{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0}, Row{65536, 65536, 0, 0}}) {
        ChunkHeaderInfo info;
        info.width = row.width;
        info.height = row.height;
        info.decodedBytes = row.decodedBytes;
        EXPECT_EQ(info.ElementBytes(), row.expected) << row.width << " x " << row.height;
    }
}

TEST(ChunkHeader, NameAndAvailabilityFollowTheIdentifier) {
    EXPECT_EQ(QKXChunkCodec::GetName(kHeader), "ZLib");
    EXPECT_TRUE(QKXChunkCodec::IsCodecAvailable(kHeader));
    Bytes unknown = kHeader;
    const Bytes identifier = {1, 0, 0, 0, 0, 0, 0, 0};
    std::copy(identifier.begin(), identifier.end(), unknown.begin());
    EXPECT_EQ(QKXChunkCodec::GetName(unknown), "0x0000000000000001");
    EXPECT_FALSE(QKXChunkCodec::IsCodecAvailable(unknown));
}

}  // namespace
}  // namespace kxcodecs::test
