// SPDX-License-Identifier: MIT
// Many descriptors, several callers, several writers at once. Run under a thread sanitizer too.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

#include "WriterSupport.h"

namespace {

using namespace support;
using walker::Walk;

constexpr uint32_t kSide = 64;
constexpr uint32_t kCells = kSide * kSide;

std::vector<float> Values(uint32_t component, uint32_t index) {
    std::vector<float> values(kCells);
    for (uint32_t i = 0; i < kCells; ++i)
        values[i] = static_cast<float>(1 + component * 1000 + index * 10 + i % 7);
    return values;
}

// Writes one patch of the components `first` to `last`, all through one codec.
void AddPatch(kxio::QSNScanWriter& writer, kxcodecs::QKXChunkCodec& codec, uint32_t first, uint32_t last,
              uint32_t index) {
    std::vector<std::unique_ptr<Flat<float>>> flats;
    std::vector<kxio::PatchDescriptor*> list;
    for (uint32_t component = first; component <= last; ++component) {
        flats.push_back(std::make_unique<Flat<float>>(static_cast<kxbase::ComponentType>(component),
                                                      Values(component, index), &codec));
        list.push_back(flats.back().get());
    }
    // Counted values, so that histograms are made at the same time.
    const std::vector<float> floats = Values(18, index);
    Flat<uint32_t> classes(kxbase::Class, std::vector<uint32_t>(floats.begin(), floats.end()), &codec);
    list.push_back(&classes);
    writer.AddPatch(list, index);
}

void CheckPatches(const walker::File& file, uint32_t first, uint32_t last, uint32_t count) {
    for (uint32_t component = first; component <= last; ++component) {
        ASSERT_EQ(file.lookup.at(component).size(), count);
        for (uint32_t index = 0; index < count; ++index) {
            EXPECT_EQ(ValuesOf<float>(walker::Decode(file.Slice(file.lookup.at(component)[index]))),
                      Values(component, index))
                << "component " << component << ", patch " << index;
        }
    }
    const auto histogram = walker::ReadHistogram(*file.OfType(0xac8391a3fbed04c7).at(0));
    EXPECT_EQ(histogram.size(), count);
}

TEST(WriterThreads, SixteenDescriptorsShareOneCodec) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxcodecs::ZLibChunkCodec codec;
    writer.CreateNew(&stream, MakeGrid(2 * kSide, 2 * kSide, kSide, kSide));
    for (uint32_t index = 0; index < 4; ++index)
        AddPatch(writer, codec, 100, 114, index);
    writer.EndCreation();
    const walker::File file = Walk(stream.GetBytes());
    EXPECT_EQ(file.chunks.size(), 64U);
    CheckPatches(file, 100, 114, 4);
}

// Takes its time.
class SlowCodec final : public kxcodecs::SnappyChunkCodec {
public:
    explicit SlowCodec(int milliseconds) : m_delay(milliseconds) {}
    void Encode(const void* data, uint32_t width, uint32_t height, uint64_t byteCount, float quality,
                std::vector<unsigned char>& out) const override {
        std::this_thread::sleep_for(m_delay);
        SnappyChunkCodec::Encode(data, width, height, byteCount, quality, out);
    }

private:
    std::chrono::milliseconds m_delay;
};

TEST(WriterThreads, ChunksLieInTheOrderOfTheListHoweverLongEachTakes) {
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, MakeGrid(2 * kSide, kSide, kSide, kSide));
    const std::vector<uint32_t> order{3, 1, 100, 2, 101, 102};
    std::vector<uint32_t> expected;
    std::vector<std::unique_ptr<SlowCodec>> codecs;  // until the scan is ended
    for (uint32_t index = 0; index < 2; ++index) {
        std::vector<std::unique_ptr<Flat<float>>> flats;
        std::vector<kxio::PatchDescriptor*> list;
        int delay = 40;
        for (const uint32_t component : order) {
            codecs.push_back(std::make_unique<SlowCodec>(delay));
            delay = (delay + 35) % 50;
            flats.push_back(std::make_unique<Flat<float>>(static_cast<kxbase::ComponentType>(component),
                                                          Values(component, index), codecs.back().get()));
            list.push_back(flats.back().get());
            expected.push_back(component);
        }
        // An empty patch among them is noted in its turn too.
        kxio::EmptyPatchDescriptor empty(kxbase::Class, 4);
        list.insert(list.begin() + 2, &empty);
        if (index == 0) expected.insert(expected.begin() + 2, kxbase::Class);
        writer.AddPatch(list, index);
    }
    writer.EndCreation();
    std::vector<uint32_t> found;
    for (const walker::Chunk& chunk : Walk(stream.GetBytes()).chunks)
        found.push_back(chunk.component);
    EXPECT_EQ(found, expected);
}

TEST(WriterThreads, TwoWritersInTwoThreadsDoNotDisturbEachOther) {
    kxbase::InMemoryStream streams[2];
    kxcodecs::SnappyChunkCodec codec;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&, i] {
            kxio::QSNScanWriter writer;
            if (i == 0) {
                writer.CreateNew(&streams[i], MakeGrid(4 * kSide, kSide, kSide, kSide));
            } else {
                writer.CreateNew(&streams[i], MakeCylinder(2 * kSide, 0, kSide, kSide));
            }
            for (uint32_t index = 0; index < 4; ++index)
                AddPatch(writer, codec, 1, 3, index);
            writer.EndCreation();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& stream : streams)
        CheckPatches(Walk(stream.GetBytes()), 1, 3, 4);
}

TEST(WriterThreads, SeveralThreadsMayAddDifferentPatchesToOneWriter) {
    for (const bool openEnded : {false, true}) {
        constexpr uint32_t kPatches = 24;
        kxbase::InMemoryStream stream;
        kxcodecs::SnappyChunkCodec codec;
        kxio::QSNScanWriter writer;
        if (openEnded) {
            writer.CreateNew(&stream, MakeCylinder(2 * kSide, 0, kSide, kSide));
        } else {
            writer.CreateNew(&stream, MakeGrid(2 * kSide, kPatches / 2 * kSide, kSide, kSide));
        }
        std::atomic<uint32_t> next = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&] {
                for (uint32_t index = next++; index < kPatches; index = next++)
                    AddPatch(writer, codec, 1, 3, index);
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        writer.EndCreation();
        const walker::File file = Walk(stream.GetBytes());
        EXPECT_EQ(file.scan.rows, kPatches / 2 * kSide);
        EXPECT_EQ(file.scan.points, kPatches * kCells);
        CheckPatches(file, 1, 3, kPatches);
        if (!openEnded) {
            EXPECT_EQ(file.limits.pairs.size(), kPatches);
        }
    }
}

TEST(WriterThreads, ResultDoesNotDependOnTheOrderOfPatches) {
    std::vector<Bytes> previews;
    std::vector<decltype(walker::Limits::pairs)> limits;
    for (uint32_t seed = 0; seed < 3; ++seed) {
        kxbase::InMemoryStream stream;
        kxcodecs::SnappyChunkCodec codec;
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, MakeGrid(3 * kSide + 5, 2 * kSide - 9, kSide, kSide));
        std::vector<uint32_t> order = {0, 1, 2, 3, 4, 5, 6, 7};
        std::shuffle(order.begin(), order.end(), std::mt19937(seed));
        for (const uint32_t index : order)
            AddPatch(writer, codec, 1, 3, index);
        writer.EndCreation();
        const walker::File file = Walk(stream.GetBytes());
        previews.push_back(walker::Decode(file.Slice(file.previews.at(2)[0])).values);
        limits.push_back(file.limits.pairs);
        EXPECT_EQ(previews.back(), previews.front());
        EXPECT_EQ(limits.back(), limits.front());
    }
}

}  // namespace
