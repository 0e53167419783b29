// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "TestCodecs.h"

namespace kxcodecs::test {
namespace {

TEST(CodecThreads, OneCodecObjectServesSixteenThreads) {
    constexpr int kThreads = 16;
    constexpr int kRounds = 20;
    const Bytes image = SmoothImage(32, 32, 3);
    const Bytes ranges = BytesOf(std::vector<float>(1024, 12.5F));
    for (const auto& [identifier, name] : ChunkCodecFactory::GetCodecs()) {
        const bool isJPEG = identifier == JPEGChunkCodec::kIdentifier;
        const Bytes& data = isJPEG ? image : ranges;
        const auto codec = ChunkCodecFactory::MakeCodec(identifier);
        const Bytes expected = EncodeWith(*codec, data, 32, 32, 1000.0F);
        ChunkHeaderInfo header;
        ASSERT_TRUE(QKXChunkCodec::ReadHeader(expected, header));
        codec->SetLayout(header);
        Bytes expectedValues;
        ASSERT_EQ(Decode(expected, expectedValues), DecodeStatus::Decoded);

        std::atomic<int> good{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                for (int round = 0; round < kRounds; ++round) {
                    const Bytes chunk = EncodeWith(*codec, data, 32, 32, 1000.0F);
                    const Bytes payload = PayloadOf(chunk);
                    Bytes out(header.uncompressedBytes);
                    Bytes whole;
                    const bool same = chunk == expected &&
                                      codec->DecodeInto(payload.data(), payload.size(), out) &&
                                      out == expectedValues &&
                                      Decode(chunk, whole) == DecodeStatus::Decoded && whole == out;
                    if (same) ++good;
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(good, kThreads * kRounds) << name;
    }
}

}  // namespace
}  // namespace kxcodecs::test
