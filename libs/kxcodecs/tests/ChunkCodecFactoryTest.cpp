// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <set>

#include "TestCodecs.h"
#include "kxbase/Exceptions.h"

namespace kxcodecs::test {
namespace {

// The identifiers stand in files: these numbers never change.
TEST(ChunkCodecFactory, IdentifiersAndNamesStayAsTheyAre) {
    const std::vector<std::pair<uint64_t, std::string>> expected = {
        {0x595050414e53584b, "Snappy"}, {0x000042494c5a584b, "ZLib"}, {0x00004745504a584b, "JPEG"},
        {0x00004454535a584b, "Zstd"},   {0x000044495247584b, "Grid"}, {0x00524f4c4f43584b, "Color"}};
    const auto codecs = ChunkCodecFactory::GetCodecs();
    ASSERT_EQ(codecs.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(codecs[i].identifier, expected[i].first);
        EXPECT_EQ(codecs[i].name, expected[i].second);
        EXPECT_EQ(ChunkCodecFactory::GetName(expected[i].first), expected[i].second);
    }
}

TEST(ChunkCodecFactory, MakesTheCodecOfEachIdentifier) {
    for (const auto& [identifier, name] : ChunkCodecFactory::GetCodecs()) {
        QKXChunkCodec* codec = ChunkCodecFactory::CreateCodec(identifier);
        ASSERT_NE(codec, nullptr) << name;
        EXPECT_EQ(codec->GetIdentifier(), identifier);
        EXPECT_TRUE(ChunkCodecFactory::IsKnown(identifier));
        ChunkCodecFactory::DeleteCodec(codec);
    }
    EXPECT_NE(dynamic_cast<SnappyChunkCodec*>(ChunkCodecFactory::MakeCodec(0x595050414e53584b).get()),
              nullptr);
    EXPECT_NE(dynamic_cast<ZLibChunkCodec*>(ChunkCodecFactory::MakeCodec(0x42494c5a584b).get()), nullptr);
    EXPECT_NE(dynamic_cast<JPEGChunkCodec*>(ChunkCodecFactory::MakeCodec(0x4745504a584b).get()), nullptr);
}

TEST(ChunkCodecFactory, UnknownIdentifierGivesNullAndItsNumberAsName) {
    for (const uint64_t identifier : {uint64_t{0}, uint64_t{1}, ~uint64_t{0}, uint64_t{0x42494c5a584c}}) {
        EXPECT_EQ(ChunkCodecFactory::CreateCodec(identifier), nullptr);
        EXPECT_FALSE(ChunkCodecFactory::MakeCodec(identifier));
        EXPECT_FALSE(ChunkCodecFactory::IsKnown(identifier));
    }
    EXPECT_EQ(ChunkCodecFactory::GetName(1), "0x0000000000000001");
    EXPECT_EQ(ChunkCodecFactory::GetName(0xABCDEF0123456789), "0xabcdef0123456789");
}

TEST(ChunkCodecFactory, DeletingNullDoesNothing) {
    ChunkCodecFactory::DeleteCodec(nullptr);
}

// A codec that a caller derives for a purpose of its own needs an identifier and nothing else.
class IdentifierOnly : public QKXChunkCodec {
public:
    uint64_t GetIdentifier() const override { return 0x1234; }
};

TEST(ChunkCodecFactory, CodecWithoutHooksRefusesBothWays) {
    IdentifierOnly codec;
    Bytes out = {1, 2, 3};
    EXPECT_THROW(codec.Encode("abcd", 1, 1, 4, 1.0F, out), kxbase::KXException);
    EXPECT_TRUE(out.empty());
    codec.SetLayout(1, 1, 4, 1.0F);
    uint64_t decodedBytes = 99;
    const Bytes payload = {1, 2, 3, 4};
    EXPECT_EQ(codec.Decode(payload.data(), payload.size(), decodedBytes), nullptr);
    EXPECT_EQ(decodedBytes, 0U);
}

}  // namespace
}  // namespace kxcodecs::test
