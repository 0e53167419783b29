// SPDX-License-Identifier: MIT
// Whatever the bytes: the exact output or a failure, and no memory on the word of a header.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "TestCodecs.h"
#include "kxcodecs/ElementOrder.h"
#include "support/AllocationWatch.h"

namespace kxcodecs::test {
namespace {

constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();
// What decoding of a damaged small chunk may need at most: the decoder's own tables.
constexpr std::size_t kSmall = std::size_t{1} << 20;

class DamagedChunk : public ::testing::TestWithParam<uint64_t> {
protected:
    ChunkCodecFactory::CodecPtr codec = ChunkCodecFactory::MakeCodec(GetParam());
    const bool isJPEG = GetParam() == JPEGChunkCodec::kIdentifier;
    // Small, yet with copies, literals and several JPEG blocks.
    const Bytes data = SmoothImage(12, 9, 3);
    const Bytes chunk = EncodeWith(*codec, data, 12, 9);

    Bytes HeaderFor(uint32_t width, uint32_t height, uint32_t decodedBytes,
                    uint32_t uncompressedBytes) const {
        Bytes header(28);
        EncodeChunkHeader({GetParam(), width, height, decodedBytes, 1.0F, uncompressedBytes}, header);
        return header;
    }
};
INSTANTIATE_TEST_SUITE_P(Codecs, DamagedChunk,
                         ::testing::Values(SnappyChunkCodec::kIdentifier, ZLibChunkCodec::kIdentifier,
                                           JPEGChunkCodec::kIdentifier, ZstdChunkCodec::kIdentifier,
                                           GridChunkCodec::kIdentifier, ColorChunkCodec::kIdentifier),
                         [](const auto& which) { return ChunkCodecFactory::GetName(which.param); });

// Decodes in every way there is; all must agree, and sizes must be as claimed.
DecodeStatus DecodeAllWays(const Bytes& chunk, Bytes& out) {
    ChunkHeaderInfo header;
    const DecodeStatus status = QKXChunkCodec::DecodeChunk(chunk, header, out, kSmall);
    if (status == DecodeStatus::Decoded) {
        EXPECT_EQ(out.size() % header.ElementBytes(), 0U);
        EXPECT_LE(out.size(), header.decodedBytes);
        EXPECT_LE(out.size(), header.uncompressedBytes);
    } else {
        EXPECT_TRUE(out.empty());
    }
    if (status == DecodeStatus::NoHeader) return status;
    const auto codec = ChunkCodecFactory::MakeCodec(header.codecId);
    if (!codec) {
        EXPECT_TRUE(status == DecodeStatus::UnknownCodec || status == DecodeStatus::BadLayout);
        return status;
    }
    codec->SetLayout(header);
    codec->SetMaxDecodedBytes(kSmall);
    const Bytes payload = PayloadOf(chunk);
    uint64_t decodedBytes = 1;
    unsigned char* buffer = codec->Decode(payload.data(), payload.size(), decodedBytes);
    if (status == DecodeStatus::Decoded) {
        EXPECT_NE(buffer, nullptr);
        EXPECT_EQ(decodedBytes, header.uncompressedBytes);
        EXPECT_TRUE(buffer != nullptr && std::equal(out.begin(), out.end(), buffer));
    }
    EXPECT_EQ(buffer == nullptr, decodedBytes == 0 && header.uncompressedBytes != 0) << "sizes on failure";
    codec->Free(buffer);
    return status;
}

TEST_P(DamagedChunk, CutAtEveryByteFails) {
    for (std::size_t size = 0; size < chunk.size(); ++size) {
        const Bytes cut(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(size));
        Bytes out;
        const DecodeStatus status = DecodeAllWays(cut, out);
        EXPECT_EQ(status, size < 28 ? DecodeStatus::NoHeader : DecodeStatus::DamagedPayload) << size;
    }
}

TEST_P(DamagedChunk, BytesBehindThePayloadFail) {
    for (const std::size_t extra : {1U, 2U, 4U, 100U}) {
        Bytes out;
        EXPECT_EQ(DecodeAllWays(chunk + Bytes(extra), out), DecodeStatus::DamagedPayload) << extra;
    }
}

TEST_P(DamagedChunk, EveryFlippedBitEndsInAnOutputOrAFailure) {
    std::size_t decoded = 0;
    for (std::size_t at = 0; at < chunk.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            Bytes damaged = chunk;
            damaged[at] = static_cast<unsigned char>(damaged[at] ^ (1 << bit));
            Bytes out;
            const DecodeStatus status = DecodeAllWays(damaged, out);
            if (status == DecodeStatus::Decoded) {
                ++decoded;
                // The checksums of zlib and zstd notice every damage of the values.
                if (GetParam() != SnappyChunkCodec::kIdentifier && !isJPEG) {
                    EXPECT_EQ(out, data) << "byte " << at << " bit " << bit;
                }
            }
        }
    }
    // At least the bits of the step leave the payload readable.
    EXPECT_GE(decoded, 32U);
}

TEST_P(DamagedChunk, EveryByteReplacedEndsInAnOutputOrAFailure) {
    for (std::size_t at = 0; at < chunk.size(); ++at) {
        for (const int value : {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF}) {
            Bytes damaged = chunk;
            damaged[at] = static_cast<unsigned char>(value);
            Bytes out;
            DecodeAllWays(damaged, out);
        }
    }
}

TEST_P(DamagedChunk, RandomPayloadsUnderAValidHeader) {
    for (uint32_t seed = 0; seed < 2000; ++seed) {
        Bytes payload = Noise(seed % 97, seed);
        // Half of them begin like a payload of the codec, to get past the first check.
        if (seed % 2 == 0) {
            const std::size_t begin = std::min<std::size_t>(payload.size(), isJPEG ? chunk.size() - 60 : 6);
            std::copy(chunk.begin() + 28, chunk.begin() + 28 + static_cast<std::ptrdiff_t>(begin),
                      payload.begin());
        }
        Bytes out;
        DecodeAllWays(HeaderFor(12, 9, 324, 324) + payload, out);
    }
    if (isJPEG) {  // headers of a real image, then noise as its coded data
        for (uint32_t seed = 0; seed < 500; ++seed) {
            Bytes damaged = chunk;
            const Bytes noise = Noise(60, seed);
            std::copy(noise.begin(), noise.end(), damaged.end() - 60);
            Bytes out;
            DecodeAllWays(damaged, out);
        }
    }
}

TEST(AllocationWatch, SeesALargeAllocation) {
    std::size_t largest;
    {
        const kxtest::AllocationWatch watch;
        const Bytes large(5 * kSmall);
        const void* volatile keep = large.data();  // or an optimiser leaves the allocation out
        EXPECT_NE(keep, nullptr);
        largest = watch.Largest();
    }
    EXPECT_GE(largest, 5 * kSmall);
}

TEST_P(DamagedChunk, FourGigabytesFromTenBytesFailWithoutMemory) {
    const Bytes bombs[] = {
        HeaderFor(65536, 65535, 0xFFFF0000, 0xFFFF0000) + Noise(10, 1),
        HeaderFor(1, 1, 0xFFFFFFFF, 0xFFFFFFFF) + Bytes(10, 0xFF),
        HeaderFor(0xFFFFFFFF, 1, 0xFFFFFFFF, 0xFFFFFFFF) + PayloadOf(chunk),
        HeaderFor(16384, 16384, 1 << 28, 1 << 28) + Bytes(10, 0xFF),
        HeaderFor(12, 9, 324, 0xFFFFFFFF) + PayloadOf(chunk),
        HeaderFor(1, 1, 0xFFFFFFFF, 324) + PayloadOf(chunk),
    };
    int number = 0;
    for (const Bytes& bomb : bombs) {
        for (const uint64_t limit : {QKXChunkCodec::kDefaultMaxDecodedBytes, kNoLimit}) {
            // A foreign chunk may unpack to less than it claims to decode to; then the smaller counts.
            if (limit == kNoLimit && number == 5 && !isJPEG) continue;
            Bytes out;
            ChunkHeaderInfo header;
            DecodeStatus status;
            std::size_t largest;
            {
                const kxtest::AllocationWatch watch;
                status = QKXChunkCodec::DecodeChunk(bomb, header, out, limit);
                largest = watch.Largest();
            }
            EXPECT_TRUE(status == DecodeStatus::TooLarge || status == DecodeStatus::DamagedPayload)
                << "bomb " << number << ": " << ToText(status);
            EXPECT_LT(largest, kSmall) << "bomb " << number;
            EXPECT_LT(out.capacity(), kSmall);
        }
        ++number;
    }
}

TEST_P(DamagedChunk, DecodeOfABombReturnsNothingWithoutMemory) {
    const Bytes payload(10, 0xFF);
    codec->SetLayout(65536, 65535, 0xFFFF0000, 1.0F);
    codec->SetMaxDecodedBytes(kNoLimit);
    uint64_t decodedBytes = 1;
    unsigned char* buffer;
    std::size_t largest;
    {
        const kxtest::AllocationWatch watch;
        buffer = codec->Decode(payload.data(), payload.size(), decodedBytes);
        largest = watch.Largest();
    }
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(decodedBytes, 0U);
    EXPECT_LT(largest, kSmall);
    EXPECT_FALSE(codec->CanDecode(payload.data(), payload.size()));
}

TEST_P(DamagedChunk, LimitOfTheCallerIsExact) {
    ChunkHeaderInfo header;
    Bytes out;
    EXPECT_EQ(QKXChunkCodec::DecodeChunk(chunk, header, out, 324), DecodeStatus::Decoded);
    EXPECT_EQ(QKXChunkCodec::DecodeChunk(chunk, header, out, 323), DecodeStatus::TooLarge);
    EXPECT_TRUE(out.empty());
    const Bytes payload = PayloadOf(chunk);
    codec->SetLayout(header);
    codec->SetMaxDecodedBytes(323);
    EXPECT_FALSE(codec->CanDecode(payload.data(), payload.size()));
    codec->SetMaxDecodedBytes(324);
    EXPECT_TRUE(codec->CanDecode(payload.data(), payload.size()));
}

TEST_P(DamagedChunk, OutputOfAnotherSizeThanTheLayoutIsRefused) {
    const Bytes payload = PayloadOf(chunk);
    codec->SetLayout(12, 9, 324, 1.0F);
    for (const std::size_t size : {0U, 1U, 323U, 325U, 648U}) {
        Bytes out(size, 0xEE);
        EXPECT_FALSE(codec->DecodeInto(payload.data(), payload.size(), out)) << size;
        EXPECT_EQ(out, Bytes(size, 0xEE)) << "not touched";
    }
}

TEST_P(DamagedChunk, LayoutOfAnotherSizeThanThePayloadIsRefused) {
    const Bytes payload = PayloadOf(chunk);
    for (const uint32_t decodedBytes : {0U, 108U, 323U, 325U, 321U, 327U, 648U}) {
        codec->SetLayout(12, 9, decodedBytes, 1.0F);
        uint64_t bytes = 1;
        EXPECT_EQ(codec->Decode(payload.data(), payload.size(), bytes), nullptr) << decodedBytes;
        EXPECT_EQ(bytes, 0U);
    }
}

TEST_P(DamagedChunk, NoPayloadAndNullPayloadFail) {
    Bytes out;
    EXPECT_EQ(Decode(HeaderFor(12, 9, 324, 324), out), DecodeStatus::DamagedPayload);
    codec->SetLayout(12, 9, 324, 1.0F);
    uint64_t bytes = 1;
    EXPECT_EQ(codec->Decode(nullptr, 0, bytes), nullptr);
    EXPECT_EQ(codec->Decode(nullptr, 100, bytes), nullptr);
    codec->Free(nullptr);
}

TEST_P(DamagedChunk, ZeroOrOddLayoutsAreRefused) {
    const Bytes payload = PayloadOf(chunk);
    Bytes out;
    for (const Bytes& header : {HeaderFor(0, 9, 324, 324), HeaderFor(12, 0, 324, 324), HeaderFor(12, 9, 0, 0),
                                HeaderFor(12, 9, 325, 324), HeaderFor(0, 0, 0, 324)}) {
        EXPECT_EQ(Decode(header + payload, out), DecodeStatus::BadLayout);
    }
}

TEST(ForeignChunk, SmallerOfTheTwoSizesCountsInWholeElements) {
    const Bytes data = Noise(22, 1);
    const Bytes payload = PayloadOf(EncodeWith(SnappyChunkCodec(), data, 22, 1));
    Bytes header(28);
    Bytes out;
    // 24 bytes claimed, 22 packed: five elements of four bytes.
    EncodeChunkHeader({SnappyChunkCodec::kIdentifier, 3, 2, 24, 1.0F, 22}, header);
    ASSERT_EQ(Decode(header + payload, out), DecodeStatus::Decoded);
    TurnElements(out, 4);
    EXPECT_EQ(out, Bytes(data.begin(), data.begin() + 20));
    // 16 bytes claimed, 22 packed: four elements.
    EncodeChunkHeader({SnappyChunkCodec::kIdentifier, 2, 2, 16, 1.0F, 22}, header);
    ASSERT_EQ(Decode(header + payload, out), DecodeStatus::Decoded);
    TurnElements(out, 4);
    EXPECT_EQ(out, Bytes(data.begin(), data.begin() + 16));
}

TEST(ForeignChunk, UnknownCodecSaysSo) {
    Bytes header(28);
    EncodeChunkHeader({1, 2, 2, 4, 1.0F, 4}, header);
    Bytes out;
    EXPECT_EQ(Decode(header + Bytes(4), out), DecodeStatus::UnknownCodec);
}

TEST(SnappyBound, ClaimBeyondTheDensestBlockIsRefusedUnread) {
    // 64/3 x 10 + 64 = 277.33; the first two bytes are the block's own claim, seven bits each.
    SnappyChunkCodec codec;
    for (const uint32_t claim : {277U, 278U}) {
        Bytes payload(10);
        payload[0] = static_cast<unsigned char>(0x80 | (claim & 0x7F));
        payload[1] = static_cast<unsigned char>(claim >> 7);
        codec.SetLayout(claim, 1, claim, 1.0F);
        EXPECT_EQ(codec.CanDecode(payload.data(), payload.size()), claim == 277) << claim;
    }
}

TEST(ZLibBound, ClaimBeyondTheDensestContainerIsRefusedUnread) {
    const Bytes payload(10);
    ZLibChunkCodec codec;
    codec.SetLayout(11344, 1, 11344, 1.0F);
    EXPECT_TRUE(codec.CanDecode(payload.data(), payload.size()));
    codec.SetLayout(11345, 1, 11345, 1.0F);
    EXPECT_FALSE(codec.CanDecode(payload.data(), payload.size()));
}

TEST(SnappyBound, DensestBlockIsStillAccepted) {
    // Copies of 64 bytes from one literal: as dense as a block can be.
    const Bytes zeros(1 << 20);
    const Bytes chunk = EncodeWith(SnappyChunkCodec(), zeros, 1 << 20, 1);
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, zeros);
}

TEST(ZLibBound, DensestContainerIsStillAccepted) {
    const Bytes zeros(std::size_t{1} << 24);
    ZLibChunkCodec smallest;
    smallest.SetCompressionLevel(9);
    const Bytes chunk = EncodeWith(smallest, zeros, 1 << 24, 1);
    EXPECT_GT(zeros.size() / chunk.size(), 900U);
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, zeros);
}

TEST(JPEGBound, PlainImageIsStillAccepted) {
    const Bytes grey(std::size_t{2048} * 2048, 128);
    const Bytes chunk = EncodeWith(JPEGChunkCodec(), grey, 2048, 2048);
    Bytes out;
    ASSERT_EQ(Decode(chunk, out), DecodeStatus::Decoded);
    EXPECT_EQ(out, grey);
}

TEST(DecodeStatusText, EachStatusHasItsOwn) {
    std::vector<std::string> texts;
    for (const DecodeStatus status :
         {DecodeStatus::Decoded, DecodeStatus::NoHeader, DecodeStatus::BadLayout, DecodeStatus::UnknownCodec,
          DecodeStatus::TooLarge, DecodeStatus::DamagedPayload, DecodeStatus::OutOfMemory}) {
        texts.push_back(ToText(status));
        EXPECT_FALSE(texts.back().empty());
    }
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::unique(texts.begin(), texts.end()), texts.end());
}

}  // namespace
}  // namespace kxcodecs::test
