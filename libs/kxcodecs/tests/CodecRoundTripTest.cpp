// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "TestCodecs.h"

namespace kxcodecs::test {
namespace {

class LosslessCodec : public ::testing::TestWithParam<uint64_t> {
protected:
    ChunkCodecFactory::CodecPtr codec = ChunkCodecFactory::MakeCodec(GetParam());
};
INSTANTIATE_TEST_SUITE_P(Codecs, LosslessCodec,
                         ::testing::Values(SnappyChunkCodec::kIdentifier, ZLibChunkCodec::kIdentifier,
                                           ZstdChunkCodec::kIdentifier, GridChunkCodec::kIdentifier,
                                           ColorChunkCodec::kIdentifier),
                         [](const auto& which) { return ChunkCodecFactory::GetName(which.param); });

// Decodes by each of the ways there are and expects the same.
void ExpectBack(QKXChunkCodec& codec, const Bytes& chunk, const Bytes& data) {
    ChunkHeaderInfo header;
    RC_ASSERT(QKXChunkCodec::ReadHeader(chunk, header));
    const Bytes payload = PayloadOf(chunk);
    codec.SetLayout(header.width, header.height, header.decodedBytes, header.step);

    uint64_t decodedBytes = ~uint64_t{0};
    unsigned char* buffer = codec.Decode(payload.data(), payload.size(), decodedBytes);
    RC_ASSERT(buffer != nullptr);
    const Bytes copy(buffer, buffer + decodedBytes);
    codec.Free(buffer);
    RC_ASSERT(copy == data);

    Bytes mine(data.size());
    RC_ASSERT(codec.CanDecode(payload.data(), payload.size()));
    RC_ASSERT(codec.DecodeInto(payload.data(), payload.size(), mine));
    RC_ASSERT(mine == data);

    Bytes whole;
    const DecodeStatus status = QKXChunkCodec::DecodeChunk(chunk, header, whole);
    if (data.empty()) {
        RC_ASSERT(status == DecodeStatus::BadLayout);
    } else {
        RC_ASSERT(status == DecodeStatus::Decoded);
        RC_ASSERT(whole == data);
    }
}

TEST_P(LosslessCodec, GivesBackWhatItWasGiven) {
    EXPECT_TRUE(rc::check([&](const Bytes& random) {
        const uint32_t elementBytes = *rc::gen::element(1U, 2U, 3U, 4U, 8U, 12U, 16U, 20U, 24U);
        const uint32_t width = *rc::gen::inRange<uint32_t>(0, 20);
        const uint32_t height = *rc::gen::inRange<uint32_t>(0, 20);
        const bool repetitive = *rc::gen::arbitrary<bool>();
        codec->SetCompressionLevel(*rc::gen::inRange(0, 10));
        Bytes data(std::size_t{width} * height * elementBytes);
        for (std::size_t i = 0; i < data.size() && !random.empty(); ++i) {
            data[i] = repetitive ? random[i / 7 % random.size()]
                                 : static_cast<unsigned char>(random[i % random.size()] + i / random.size());
        }
        ExpectBack(*codec, EncodeWith(*codec, data, width, height), data);
    }));
}

TEST_P(LosslessCodec, SizesAroundTheEdges) {
    for (const uint32_t elementBytes : {1U, 2U, 3U, 4U, 8U, 12U, 16U, 20U, 24U}) {
        for (const uint32_t width : {0U, 1U, 2U, 3U, 63U, 64U, 65U, 255U, 257U}) {
            for (const uint32_t height : {0U, 1U, 3U, 33U}) {
                const Bytes data = Noise(std::size_t{width} * height * elementBytes, width + height);
                Bytes out;
                const DecodeStatus status = Decode(EncodeWith(*codec, data, width, height), out);
                EXPECT_EQ(status, data.empty() ? DecodeStatus::BadLayout : DecodeStatus::Decoded);
                EXPECT_EQ(out, data) << width << " x " << height << " x " << elementBytes;
            }
        }
    }
}

TEST_P(LosslessCodec, NoElementsFromANullPointer) {
    Bytes chunk;
    codec->Encode(nullptr, 0, 1, 0, 1.0F, chunk);
    ChunkHeaderInfo header;
    ASSERT_TRUE(QKXChunkCodec::ReadHeader(chunk, header));
    EXPECT_EQ(header, (ChunkHeaderInfo{GetParam(), 0, 1, 0, 1.0F, 0}));
}

TEST_P(LosslessCodec, AWholePatchOfNoiseAndOneOfZeros) {
    for (const Bytes& data : {Noise(256 * 256 * 4, 9), Bytes(256 * 256 * 4)}) {
        Bytes out;
        ASSERT_EQ(Decode(EncodeWith(*codec, data, 256, 256), out), DecodeStatus::Decoded);
        EXPECT_EQ(out, data);
    }
}

}  // namespace
}  // namespace kxcodecs::test
