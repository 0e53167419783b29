// SPDX-License-Identifier: MIT
// Many threads on one reader, and on readers that share one stream.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "SampleScans.h"
#include "kxcodecs/ZLibChunkCodec.h"

// LLVM's OpenMP runtime keeps a block for every thread that has led a team, also after that thread has ended.
extern "C" const char* __lsan_default_suppressions();  // NOLINT: the sanitizer's name
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libomp.so";
}

namespace {

using namespace kxtest;
using kxbase::Range;

constexpr unsigned kThreads = 8;
constexpr uint32_t kPatches = 6 * 5;

// 30 patches of 16 x 16 in three components; ranges quantised.
Bytes ManyPatches() {
    ScanFileBuilder file(90, 75, 16, 16);
    AddLayer<float>(file, 1, RangeAt, 10.0F);
    AddLayer<uint8_t>(file, 4, LuminanceAt);
    AddLayer<kxio::Rgb8>(file, 6, ColorAt);
    file.Preview(1, SnappyChunk(std::vector<float>{1, 2}, 2, 1));
    file.Limits(1, 2, std::vector<std::pair<float, float>>(kPatches, {1, 2}));
    return file.Build();
}

// One thread's work: all patches of all components in an order of its own, by several ways.
// \returns how many values were not as expected
uint64_t Compare(const kxio::QSNScanReader& reader, unsigned seed,
                 const std::vector<std::vector<unsigned char>>& expected) {
    const kxio::ScanAccess access(reader);
    std::mt19937 random(seed);
    std::vector<uint32_t> order(kPatches);
    for (uint32_t i = 0; i < kPatches; ++i)
        order[i] = i;
    std::shuffle(order.begin(), order.end(), random);
    uint64_t wrong = 0;
    size_t layer = 0;
    for (const kxbase::ComponentType component : reader.GetAvailableComponents()) {
        for (const uint32_t index : order) {
            const Bytes values =
                access.ReadPatchBytes(component, index / 6, index % 6, access.ElementBytes(component));
            wrong += values != expected[layer * kPatches + index];
            Bytes chunk;
            reader.GetPatchCompressed(index, chunk, component);
            wrong += chunk.size() < 29;
        }
        ++layer;
        std::vector<kxbase::ImageCoordinates> list;
        reader.GetOrderedPatchList(list, component);
        wrong += list.size() != kPatches;
    }
    wrong += access.ReadPreview<float>(Range).values != std::vector<float>{1, 2};
    wrong += access.ReadLimits()->patches.size() != kPatches;
    kxbase::tBasePolarPoint<float> min;
    kxbase::tBasePolarPoint<float> max;
    reader.GetBoundingBox(seed % 5, seed % 6, min, max);
    wrong += min.range != 1.0F;
    unsigned width = 0;
    unsigned height = 0;
    Bytes thumbnail;
    reader.GetThumbnailRGB(thumbnail, width, height);
    wrong += thumbnail.size() != 30000;
    return wrong;
}

std::vector<Bytes> Serial(const kxio::QSNScanReader& reader) {
    const kxio::ScanAccess access(reader);
    std::vector<Bytes> values;
    for (const kxbase::ComponentType component : reader.GetAvailableComponents()) {
        for (uint32_t index = 0; index < kPatches; ++index)
            values.push_back(
                access.ReadPatchBytes(component, index / 6, index % 6, access.ElementBytes(component)));
    }
    return values;
}

template <class Work>
uint64_t OnThreads(Work work) {
    std::atomic<uint64_t> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] { wrong += work(i); });
    for (std::thread& thread : threads)
        thread.join();
    return wrong;
}

TEST(Threads, ReadOneReaderAsOneThreadDoes) {
    MemoryScan scan(ManyPatches());
    const std::vector<Bytes> expected = Serial(scan.reader);
    ASSERT_EQ(expected.size(), 3 * kPatches);
    EXPECT_EQ(OnThreads([&](unsigned i) { return Compare(scan.reader, i, expected); }), 0U);
}

TEST(Threads, ReadEightReadersOfOneStream) {
    kxbase::InMemoryStream stream(ManyPatches());
    const kxio::QSNScanReader first(&stream);
    const std::vector<Bytes> expected = Serial(first);
    std::vector<std::unique_ptr<kxio::QSNScanReader>> readers;
    for (unsigned i = 0; i < kThreads; ++i)
        readers.push_back(std::make_unique<kxio::QSNScanReader>(&stream));
    EXPECT_EQ(OnThreads([&](unsigned i) { return Compare(*readers[i], i, expected); }), 0U);
}

TEST(Threads, OpenReadersOfOneStreamWhileOthersRead) {
    kxbase::InMemoryStream stream(ManyPatches());
    const kxio::QSNScanReader first(&stream);
    const std::vector<Bytes> expected = Serial(first);
    EXPECT_EQ(OnThreads([&](unsigned i) {
                  const kxio::QSNScanReader own(&stream);
                  return Compare(i % 2 == 0 ? own : first, i, expected);
              }),
              0U);
}

TEST(Threads, ReadLayersWithTeamsOfTheirOwn) {
    MemoryScan scan(ManyPatches());
    const kxio::ScanAccess access(scan.reader);
    const uint64_t cells = access.GetGridRect().CellCount();
    std::vector<float> expected(cells);
    access.ReadLayer<float>(Range, expected);
    EXPECT_NEAR(expected[89], RangeAt(0, 89), 0.1);
    EXPECT_EQ(OnThreads([&](unsigned i) {
                  std::vector<float> values(cells);
                  access.ReadLayer<float>(Range, values, {kxio::MissingPatches::Throw, 1 + i % 3});
                  return uint64_t{values != expected};
              }),
              0U);
}

TEST(Threads, FullLayerDecodesFromManyThreads) {
    MemoryScan scan(ManyPatches());
    std::vector<float> expected(scan.reader.Grid().columns * scan.reader.Grid().rows);
    kxio::ScanAccess(scan.reader).ReadLayer<float>(Range, expected);
    std::vector<float> values(expected.size());
    scan.reader.GetFullLayer(values.data(), 4, Range, [&](kxbase::QSNIndex index, void* out) {
        scan.reader.GetPatch(index.patchIndex, out, 16 * 16 * 4, Range);
    });
    EXPECT_EQ(values, expected);
}

}  // namespace
