// SPDX-License-Identifier: MIT
// A chunk whose decoding is refused memory is not a damaged one, and the next one is decoded as ever.
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <thread>

#include "TestCodecs.h"
#include "kxcodecs/kxcodecs.h"
#include "support/AllocationWatch.h"

namespace {

using namespace kxcodecs;
using namespace kxcodecs::test;

struct MemoryCase {
    const char* name;
    std::shared_ptr<QKXChunkCodec> codec;
    Bytes values;
    uint32_t width, height;
};
void PrintTo(const MemoryCase& test, std::ostream* out) {
    *out << test.name;
}

Bytes Ranges(uint32_t width, uint32_t height) {
    std::vector<uint32_t> ranges;
    for (uint32_t i = 0; i < width * height; ++i)
        ranges.push_back(i % 29 < 4 ? 0 : 50000 + 3 * (i % width) + i / width * 2 + i * 2654435761U % 64);
    return BytesOf(ranges);
}

class RefusedMemory : public testing::TestWithParam<MemoryCase> {};

TEST_P(RefusedMemory, IsNotCalledDamage) {
    if (!kxtest::AllocationRefusal::IsPossible()) GTEST_SKIP() << "the sanitizer has operators of its own";
    const MemoryCase& test = GetParam();
    const Bytes chunk = EncodeWith(*test.codec, test.values, test.width, test.height);
    ChunkHeaderInfo header;
    ASSERT_TRUE(QKXChunkCodec::ReadHeader(chunk, header));
    const Bytes payload = PayloadOf(chunk);
    QKXChunkCodec& codec = *test.codec;
    codec.SetLayout(header);
    int refusals = 0;
    // A thread of its own has no memory yet that it kept from chunks before.
    std::thread([&] {
        Bytes out(test.values.size());
        bool refused = true;
        for (std::size_t request = 1; refused; ++request) {
            ASSERT_LT(request, 1000U);
            bool thrown = false, decoded = false;
            {
                const kxtest::AllocationRefusal refusal(request);
                try {
                    decoded = codec.DecodeInto(payload.data(), payload.size(), out);
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
                refused = refusal.Happened();
            }
            EXPECT_EQ(thrown, refused) << "request " << request;
            EXPECT_EQ(decoded, !refused) << "request " << request;
            refusals += refused ? 1 : 0;
            if (refused) continue;
            EXPECT_EQ(out, test.values);
        }
    }).join();
    EXPECT_GT(refusals, 0);
    // Where nothing is thrown, it has a status of its own, or there is no buffer.
    std::thread([&] {
        Bytes out;
        ChunkHeaderInfo found;
        DecodeStatus status = DecodeStatus::Decoded;
        {
            const kxtest::AllocationRefusal refusal(3);  // behind the codec and the decoded bytes
            status = QKXChunkCodec::DecodeChunk(chunk, found, out);
        }
        EXPECT_EQ(status, DecodeStatus::OutOfMemory) << ToText(status);
        EXPECT_TRUE(out.empty());
        EXPECT_EQ(QKXChunkCodec::DecodeChunk(chunk, found, out), DecodeStatus::Decoded);
        EXPECT_EQ(out, test.values);
    }).join();
    std::thread([&] {
        uint64_t bytes = 1;
        unsigned char* buffer = nullptr;
        {
            const kxtest::AllocationRefusal refusal(2);
            buffer = codec.Decode(payload.data(), payload.size(), bytes);
        }
        EXPECT_EQ(buffer, nullptr);
        EXPECT_EQ(bytes, 0U);
        codec.Free(buffer);
    }).join();
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, RefusedMemory,
    testing::Values(MemoryCase{"GridFast", std::make_shared<GridChunkCodec>(GridChunkCodec::Mode::Fast),
                               Ranges(60, 40), 60, 40},
                    MemoryCase{"GridBalanced",
                               std::make_shared<GridChunkCodec>(GridChunkCodec::Mode::Balanced),
                               Ranges(60, 40), 60, 40},
                    MemoryCase{"GridOfNoise", std::make_shared<GridChunkCodec>(), Noise(6000, 4), 60, 20},
                    MemoryCase{"Zstd", std::make_shared<ZstdChunkCodec>(), Ranges(60, 40), 60, 40},
                    MemoryCase{"Color", std::make_shared<ColorChunkCodec>(), SmoothImage(60, 40, 3), 60, 40},
                    MemoryCase{"ColorOfNoise", std::make_shared<ColorChunkCodec>(), Noise(6000, 5), 50, 40}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
