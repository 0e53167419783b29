// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "TestCodecs.h"
#include "kxbase/Exceptions.h"
#include "support/Thrown.h"

namespace kxcodecs::test {
namespace {

ChunkHeaderInfo HeaderOf(const Bytes& chunk) {
    ChunkHeaderInfo header;
    EXPECT_TRUE(QKXChunkCodec::ReadHeader(chunk, header));
    return header;
}

class EveryCodec : public ::testing::TestWithParam<uint64_t> {
protected:
    ChunkCodecFactory::CodecPtr codec = ChunkCodecFactory::MakeCodec(GetParam());
};
INSTANTIATE_TEST_SUITE_P(Codecs, EveryCodec,
                         ::testing::Values(SnappyChunkCodec::kIdentifier, ZLibChunkCodec::kIdentifier,
                                           JPEGChunkCodec::kIdentifier, ZstdChunkCodec::kIdentifier,
                                           GridChunkCodec::kIdentifier, ColorChunkCodec::kIdentifier),
                         [](const auto& which) { return ChunkCodecFactory::GetName(which.param); });

TEST_P(EveryCodec, WritesItsHeader) {
    const Bytes chunk = EncodeWith(*codec, SmoothImage(16, 9, 3), 16, 9);
    EXPECT_EQ(HeaderOf(chunk), (ChunkHeaderInfo{GetParam(), 16, 9, 432, 1.0F, 432}));
    EXPECT_EQ(QKXChunkCodec::GetName(chunk), ChunkCodecFactory::GetName(GetParam()));
    EXPECT_TRUE(QKXChunkCodec::IsCodecAvailable(chunk));
    EXPECT_EQ(QKXChunkCodec::GetUncompressedSize(chunk.data(), chunk.size()), 432U);
}

TEST_P(EveryCodec, RefusesAQualityThatIsNoPositiveNumber) {
    const Bytes image(48, 1);
    for (const float quality :
         {0.0F, -0.0F, -1.0F, std::nanf(""), std::numeric_limits<float>::infinity(), 1.0F / 0.0F}) {
        Bytes out = {1, 2, 3};
        EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                      [&] { static_cast<void>(codec->Encode(image.data(), 4, 4, 48, quality, out)); }),
                  "Chunk cannot be encoded")
            << quality;
        EXPECT_TRUE(out.empty());
    }
}

TEST_P(EveryCodec, RefusesSizesThatDoNotFitEachOther) {
    const Bytes image(64, 1);
    struct Row {
        uint32_t width, height;
        uint64_t byteCount;
    };
    for (const Row& row : {Row{4, 4, 17}, Row{4, 4, 0}, Row{0, 4, 16}, Row{4, 0, 16}, Row{5, 5, 24}}) {
        Bytes out = {1, 2, 3};
        EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>([&] {
                      static_cast<void>(
                          codec->Encode(image.data(), row.width, row.height, row.byteCount, 1.0F, out));
                  }),
                  "Chunk cannot be encoded")
            << row.width << " x " << row.height << ", " << row.byteCount;
        EXPECT_TRUE(out.empty());
    }
    Bytes out;
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                  [&] { static_cast<void>(codec->Encode(nullptr, 4, 4, 16, 1.0F, out)); }),
              "Chunk cannot be encoded");
}

TEST_P(EveryCodec, RefusesFourGigabytesWithoutReadingThem) {
    const unsigned char one = 0;
    Bytes out = {1};
    EXPECT_THROW(codec->Encode(&one, 65536, 65536, uint64_t{1} << 32, 1.0F, out),
                 kxbase::KXWrongDataSizeofException);
    EXPECT_THROW(codec->Encode(&one, 65536, 65536, 3 * (uint64_t{1} << 32), 1.0F, out),
                 kxbase::KXWrongDataSizeofException);
    EXPECT_TRUE(out.empty());
}

TEST_P(EveryCodec, RefusalNamesCodecAndField) {
    Bytes out;
    try {
        codec->Encode("abcd", 2, 2, 4, -1.0F, out);
        FAIL() << "a negative quality was accepted";
    } catch (const kxbase::KXBadInputException& error) {
        EXPECT_EQ(error.Context().record, ChunkCodecFactory::GetName(GetParam()) + " chunk");
        EXPECT_EQ(error.Context().field, "quality");
    }
}

TEST_P(EveryCodec, OutputIsReplacedAndReused) {
    const Bytes image = SmoothImage(8, 8, 1);
    const Bytes expected = EncodeWith(*codec, image, 8, 8);
    Bytes out(100000, 0xEE);
    codec->Encode(image.data(), 8, 8, image.size(), 1.0F, out);
    EXPECT_EQ(out, expected);
    EXPECT_GE(out.capacity(), 100000U);
}

TEST_P(EveryCodec, LevelsOutsideTheRangeAreTheNearestOnes) {
    const Bytes image = SmoothImage(40, 40, 3);
    const auto atLevel = [&](int level) {
        codec->SetCompressionLevel(level);
        return EncodeWith(*codec, image, 40, 40);
    };
    EXPECT_EQ(atLevel(-5), atLevel(GetParam() == JPEGChunkCodec::kIdentifier ? 1 : 0));
    EXPECT_EQ(atLevel(100), atLevel(GetParam() == ZstdChunkCodec::kIdentifier ? 19 : 9));
}

TEST(ChunkEncode, QualityOnFloatsStoresIntegersAndTheStep) {
    const std::vector<float> values = {1.5F, -1.5F, 0.0005F, 12.3456F, std::nanf(""), 1e30F};
    for (const uint64_t id : {SnappyChunkCodec::kIdentifier, ZLibChunkCodec::kIdentifier}) {
        const Bytes chunk = EncodeWith(*ChunkCodecFactory::MakeCodec(id), BytesOf(values), 3, 2, 1000.0F);
        EXPECT_EQ(HeaderOf(chunk), (ChunkHeaderInfo{id, 3, 2, 24, 1000.0F, 24}));
        Bytes out;
        ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
        EXPECT_EQ(ValuesOf<int32_t>(out), (std::vector<int32_t>{1500, -1500, 1, 12346, 0, 2147483647}));
    }
}

TEST(ChunkEncode, QualityOnDoublesStoresLongIntegersAndTheStep) {
    const std::vector<double> values = {1.5, -1234567890.125};
    const Bytes chunk = EncodeWith(ZLibChunkCodec(), BytesOf(values), 2, 1, 1000.0F);
    EXPECT_EQ(HeaderOf(chunk).step, 1000.0F);
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(ValuesOf<int64_t>(out), (std::vector<int64_t>{1500, -1234567890125}));
}

TEST(ChunkEncode, OtherElementSizesStayAsTheyAreWithStepOne) {
    for (const uint32_t elementBytes : {1U, 2U, 3U, 5U, 12U, 16U, 20U, 24U}) {
        const Bytes data = Noise(6 * elementBytes, elementBytes);
        for (const uint64_t id : {SnappyChunkCodec::kIdentifier, ZLibChunkCodec::kIdentifier}) {
            const Bytes chunk = EncodeWith(*ChunkCodecFactory::MakeCodec(id), data, 3, 2, 1000.0F);
            EXPECT_EQ(HeaderOf(chunk).step, 1.0F) << elementBytes;
            Bytes out;
            ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
            EXPECT_EQ(out, data) << elementBytes;
        }
    }
}

TEST(ChunkEncode, ColourIsLosslessThroughZLibAndSnappy) {
    const Bytes colours = Noise(3 * 31 * 17, 5);
    for (const uint64_t id : {SnappyChunkCodec::kIdentifier, ZLibChunkCodec::kIdentifier}) {
        Bytes out;
        ASSERT_EQ(Decode(EncodeWith(*ChunkCodecFactory::MakeCodec(id), colours, 31, 17), out),
                  DecodeStatus::Decoded);
        EXPECT_EQ(out, colours);
    }
}

TEST(ZLibChunkCodecLevels, EveryLevelIsReadByZLibItself) {
    const Bytes data = BytesOf(std::vector<float>(500, 2.25F)) + Noise(1000, 3);
    std::size_t stored = 0;
    for (int level = 0; level <= 9; ++level) {
        ZLibChunkCodec codec;
        codec.SetCompressionLevel(level);
        const Bytes payload = PayloadOf(EncodeWith(codec, data, 1000, 3));
        Bytes out(data.size());
        uLongf outBytes = out.size();
        ASSERT_EQ(uncompress(out.data(), &outBytes, payload.data(), payload.size()), Z_OK) << level;
        EXPECT_EQ(outBytes, data.size());
        EXPECT_EQ(out, data);
        if (level == 0) stored = payload.size();
    }
    EXPECT_GT(stored, data.size());
}

TEST(ZLibChunkCodecLevels, EveryLevelOfZLibItselfIsRead) {
    const Bytes data = BytesOf(std::vector<float>(500, 2.25F)) + Noise(1000, 4);
    for (int level = 0; level <= 9; ++level) {
        Bytes payload(compressBound(data.size()));
        uLongf payloadBytes = payload.size();
        ASSERT_EQ(compress2(payload.data(), &payloadBytes, data.data(), data.size(), level), Z_OK);
        payload.resize(payloadBytes);
        Bytes header(28);
        EncodeChunkHeader({ZLibChunkCodec::kIdentifier, 1000, 3, 3000, 1.0F, 3000}, header);
        Bytes out;
        ASSERT_EQ(Decode(header + payload, out), DecodeStatus::Decoded) << level;
        EXPECT_EQ(out, data);
    }
}

TEST(JPEGChunkCodecLevels, ColoursOfSmoothDataStayWithinAFewUnits) {
    const Bytes image = SmoothImage(64, 48, 3);
    struct Row {
        int level, tolerance;
    };
    for (const Row& row : {Row{1, 4}, Row{2, 6}, Row{9, 24}}) {
        JPEGChunkCodec codec;
        codec.SetCompressionLevel(row.level);
        Bytes out;
        ASSERT_EQ(Decode(EncodeWith(codec, image, 64, 48), out), DecodeStatus::Decoded);
        ASSERT_EQ(out.size(), image.size());
        int worst = 0;
        for (std::size_t i = 0; i < image.size(); ++i)
            worst = std::max(worst, std::abs(out[i] - image[i]));
        EXPECT_LE(worst, row.tolerance) << "level " << row.level;
    }
}

TEST(JPEGChunkCodecLevels, QualityIs100LessFiveTimesTheLevel) {
    // The first step of the brightness table is 16 at quality 50 and shrinks by 2 in 100 per unit of quality:
    // (16 x (200 - 2 x quality) + 50) / 100, from the JPEG library's documentation of its scale.
    struct Row {
        int level;
        unsigned char step;
    };
    for (const Row& row : {Row{1, 2}, Row{2, 3}, Row{3, 5}, Row{6, 10}, Row{9, 14}}) {
        JPEGChunkCodec codec;
        codec.SetCompressionLevel(row.level);
        const Bytes payload = PayloadOf(EncodeWith(codec, SmoothImage(8, 8, 1), 8, 8));
        const Bytes marker = {0xFF, 0xDB, 0x00, 0x43, 0x00};
        const auto table = std::search(payload.begin(), payload.end(), marker.begin(), marker.end());
        ASSERT_LT(table - payload.begin(), static_cast<std::ptrdiff_t>(payload.size()) - 69);
        EXPECT_EQ(table[5], row.step) << "level " << row.level;
    }
}

TEST(JPEGChunkCodecLevels, DefaultIsLevelTwoAndHigherIsSmaller) {
    const Bytes image = SmoothImage(64, 48, 3);
    const Bytes byDefault = EncodeWith(JPEGChunkCodec(), image, 64, 48);
    JPEGChunkCodec codec;
    codec.SetCompressionLevel(2);
    EXPECT_EQ(EncodeWith(codec, image, 64, 48), byDefault);
    codec.SetCompressionLevel(9);
    EXPECT_LT(EncodeWith(codec, image, 64, 48).size(), byDefault.size());
}

TEST(JPEGChunkCodec, NeighbouringColoursAreNotMixed) {
    // Columns of pure red and pure blue: halved chroma would turn both into purple.
    Bytes image;
    for (int i = 0; i < 16 * 16; ++i) {
        const Bytes pixel = i % 2 == 0 ? Bytes{255, 0, 0} : Bytes{0, 0, 255};
        image.insert(image.end(), pixel.begin(), pixel.end());
    }
    JPEGChunkCodec codec;
    codec.SetCompressionLevel(1);
    Bytes out;
    ASSERT_EQ(Decode(EncodeWith(codec, image, 16, 16), out), DecodeStatus::Decoded);
    for (std::size_t i = 0; i < out.size(); i += 6) {
        EXPECT_GT(out[i], 200) << "red column lost its red";
        EXPECT_LT(out[i + 3], 55) << "blue column became red";
    }
}

TEST(JPEGChunkCodec, ARefusalNamesTheChunkAndItsSides) {
    Bytes out;
    try {
        JPEGChunkCodec().Encode(Bytes(32).data(), 4, 4, 32, 1.0F, out);
        FAIL() << "elements of two bytes are no colours";
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_EQ(e.Context().record, "JPEG chunk");
        EXPECT_EQ(e.Context().detail,
                  "4 x 4 elements of 2 bytes; elements must have 1 or 3 bytes, sides be 1 to 65500");
    }
}

TEST(JPEGChunkCodec, RefusesElementsThatAreNoColours) {
    const Bytes data(16 * 24);
    for (const uint32_t elementBytes : {2U, 4U, 8U, 12U, 24U}) {
        Bytes out = {1};
        EXPECT_EQ(
            kxtest::ThrownBy<kxbase::KXBadInputException>([&] {
                static_cast<void>(JPEGChunkCodec().Encode(data.data(), 4, 4, 16 * elementBytes, 1.0F, out));
            }),
            "Chunk cannot be encoded")
            << elementBytes;
        EXPECT_TRUE(out.empty());
    }
    Bytes out;
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                  [&] { static_cast<void>(JPEGChunkCodec().Encode(nullptr, 0, 0, 0, 1.0F, out)); }),
              "Chunk cannot be encoded");
}

TEST(JPEGChunkCodec, RefusesSidesBeyondTheFormat) {
    const Bytes row(65501);
    Bytes out;
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>([&] {
                  static_cast<void>(JPEGChunkCodec().Encode(row.data(), 65501, 1, 65501, 1.0F, out));
              }),
              "Chunk cannot be encoded");
    JPEGChunkCodec().Encode(row.data(), 65500, 1, 65500, 1.0F, out);
    Bytes back;
    EXPECT_EQ(Decode(out, back), DecodeStatus::Decoded);
    EXPECT_EQ(back.size(), 65500U);
}

}  // namespace
}  // namespace kxcodecs::test
