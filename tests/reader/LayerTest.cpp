// SPDX-License-Identifier: MIT
// Assembling whole layers, the order of patches in the file, and the walk without a table.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <atomic>

#include "SampleScans.h"

namespace {

using namespace kxtest;
using kxbase::ImageCoordinates;
using kxbase::QSNIndex;
using kxbase::Range;

TEST(FullLayer, IsAssembledFromEveryPatch) {
    MemoryScan scan(SmallScan().Build());
    std::vector<float> layer(70, -1.0F);
    scan.reader.GetFullLayer(layer.data(), 4, Range, [&](QSNIndex index, void* out) {
        EXPECT_EQ(index.position, 0U);
        scan.reader.GetPatch(index.patchIndex, out, 48, Range);
    });
    for (uint32_t row = 0; row < 7; ++row) {
        for (uint32_t column = 0; column < 10; ++column)
            EXPECT_EQ(layer[row * 10 + column], RangeAt(row, column));
    }
}

TEST(FullLayer, EdgePatchesAreCutToTheGrid) {
    // 1000 x 700 in patches of 256: the last row of patches gives 188 rows, the last column 232 columns.
    ScanFileBuilder file(1000, 700, 256, 256);
    file.Component(4);
    MemoryScan scan(file.Build());
    std::vector<uint8_t> layer(1000 * 700 + 1, 0);
    scan.reader.GetFullLayer(layer.data(), 1, kxbase::Luminance8, [](QSNIndex index, void* out) {
        std::memset(out, static_cast<int>(index.patchIndex) + 1, 256 * 256);
    });
    std::vector<uint64_t> counts(14, 0);
    for (const uint8_t value : layer)
        ++counts[value];
    EXPECT_EQ(counts[1], 256U * 256U);
    EXPECT_EQ(counts[4], 256U * 232U);
    EXPECT_EQ(counts[9], 188U * 256U);
    EXPECT_EQ(counts[12], 188U * 232U);
    EXPECT_EQ(layer.back(), 0) << "nothing is written behind the layer";
    EXPECT_EQ(layer[699 * 1000 + 999], 12);
    EXPECT_EQ(layer[512 * 1000 + 768], 12);
    EXPECT_EQ(layer[511 * 1000 + 767], 7);
}

RC_GTEST_PROP(FullLayerProperties, EveryCellComesFromItsPatch, ()) {
    const auto side = rc::gen::inRange<uint32_t>(1, 20);
    ScanFileBuilder file(*side, *side, *side, *side);
    file.Component(4);
    const kxbase::GridTopology grid = file.properties.grid;
    MemoryScan scan(file.Build());
    std::vector<uint32_t> layer(uint64_t{grid.columns} * grid.rows, 0xffffffffU);
    scan.reader.GetFullLayer(layer.data(), 4, kxbase::Luminance8, [&](QSNIndex index, void* out) {
        for (uint32_t cell = 0; cell < grid.patchWidth * grid.patchHeight; ++cell)
            static_cast<uint32_t*>(out)[cell] = index.patchIndex * 1000 + cell;
    });
    for (uint32_t row = 0; row < grid.rows; ++row) {
        for (uint32_t column = 0; column < grid.columns; ++column) {
            const uint32_t patch = row / grid.patchHeight * grid.PatchesPerRow() + column / grid.patchWidth;
            const uint32_t cell = row % grid.patchHeight * grid.patchWidth + column % grid.patchWidth;
            RC_ASSERT(layer[row * grid.columns + column] == patch * 1000 + cell);
        }
    }
}

TEST(FullLayer, EmptyCallableIsABadFunctionCall) {
    MemoryScan scan(SmallScan().Build());
    std::vector<float> layer(70);
    EXPECT_THROW(scan.reader.GetFullLayer(layer.data(), 4, Range, nullptr), std::bad_function_call);
    ScanFileBuilder empty(4, 3, 4, 3);
    empty.properties.grid.columns = 0;
    MemoryScan none(empty.Build());
    EXPECT_THROW(none.reader.GetFullLayer(nullptr, 4, Range, nullptr), std::bad_function_call);
}

TEST(FullLayer, GridWithoutPatchesCallsNothing) {
    ScanFileBuilder empty(4, 3, 4, 3);
    empty.properties.grid.rows = 0;
    MemoryScan none(empty.Build());
    none.reader.GetFullLayer(nullptr, 4, Range, [](QSNIndex, void*) { FAIL(); });
}

TEST(FullLayer, ExceptionOfTheCallableReachesTheCaller) {
    MemoryScan scan(SmallScan().Build());
    std::vector<float> layer(70);
    std::atomic<int> calls{0};
    const auto fill = [&](QSNIndex, void*) {
        ++calls;
        throw kxbase::KXUnreadablePatchException("from fill");
    };
    EXPECT_EQ(Failure([&] { scan.reader.GetFullLayer(layer.data(), 4, Range, fill); }),
              "KXUnreadablePatchException: from fill");
    EXPECT_EQ(calls, 9);
    EXPECT_THROW(scan.reader.GetFullLayer(layer.data(), 4, Range, [](QSNIndex, void*) { throw 7; }), int);
}

TEST(FullLayer, PatchLargerThanAnyChunkIsRefused) {
    ScanFileBuilder file(4, 3, 0xffffffffU, 0xffffffffU);
    file.Component(1);
    MemoryScan scan(file.Build());
    std::vector<float> layer(12);
    EXPECT_EQ(
        Failure([&] { scan.reader.GetFullLayer(layer.data(), 4, Range, [](QSNIndex, void*) { FAIL(); }); }),
        "KXUnreadablePatchException: Patch cannot be decoded");
}

bool operator==(const std::vector<ImageCoordinates>& list, const std::vector<std::pair<int, int>>& expected) {
    return std::equal(list.begin(), list.end(), expected.begin(), expected.end(),
                      [](const ImageCoordinates& a, const std::pair<int, int>& b) {
                          return a.row == b.first && a.column == b.second;
                      });
}

ScanFileBuilder ShuffledScan() {
    ScanFileBuilder file(8, 9, 4, 3);  // 3 rows of 2 patches
    for (const auto& [row, column] : {std::pair(2, 1), std::pair(0, 1), std::pair(1, 0), std::pair(0, 0)}) {
        file.Chunk(1, static_cast<uint32_t>(row), static_cast<uint32_t>(column),
                   SnappyChunk(std::vector<float>(12, 1.0F), 4, 3));
    }
    return file;
}

TEST(OrderedPatchList, EmptyListBecomesAllPatchesInFileOrder) {
    ScanFileBuilder file = ShuffledScan();
    file.SharedChunk(1, {5, 2}, SnappyChunk(std::vector<float>(12, 0.0F), 4, 3));
    // Index 5 was (2, 1): it now shares the last chunk. Left without a chunk: 4.
    MemoryScan scan(file.Build());
    std::vector<ImageCoordinates> list;
    scan.reader.GetOrderedPatchList(list, Range);
    EXPECT_TRUE(list == (std::vector<std::pair<int, int>>{{1, 1}, {2, 0}, {0, 1}, {0, 0}, {1, 0}, {2, 1}}))
        << "3 and 4 absent; 1, 0 in file order; 2 and 5 share a chunk and come by index";
}

TEST(OrderedPatchList, GivenPatchesAreReordered) {
    MemoryScan scan(ShuffledScan().Build());
    std::vector<ImageCoordinates> list{{0, 0}, {0, 1}, {2, 1}};
    scan.reader.GetOrderedPatchList(list, Range);
    EXPECT_TRUE(list == (std::vector<std::pair<int, int>>{{2, 1}, {0, 1}, {0, 0}}));
}

TEST(OrderedPatchList, AbsentPatchesComeFirst) {
    MemoryScan scan(ShuffledScan().Build());
    std::vector<ImageCoordinates> list{{0, 0}, {2, 0}, {1, 1}};
    scan.reader.GetOrderedPatchList(list, Range);
    EXPECT_TRUE(list == (std::vector<std::pair<int, int>>{{1, 1}, {2, 0}, {0, 0}}));
}

TEST(OrderedPatchList, EmptyPatchesOfOneChunkComeInIndexOrder) {
    ScanFileBuilder file(16, 3, 4, 3);
    file.SharedChunk(1, {3, 0, 2}, SnappyChunk(std::vector<float>(12, 0.0F), 4, 3));
    file.Chunk(1, 0, 1, SnappyChunk(std::vector<float>(12, 1.0F), 4, 3));
    MemoryScan scan(file.Build());
    std::vector<ImageCoordinates> list{{0, 3}, {0, 1}, {0, 2}, {0, 0}};
    scan.reader.GetOrderedPatchList(list, Range);
    EXPECT_TRUE(list == (std::vector<std::pair<int, int>>{{0, 0}, {0, 2}, {0, 3}, {0, 1}}));
}

TEST(OrderedPatchList, AbsentComponentCannotBeUsed) {
    MemoryScan scan(ShuffledScan().Build());
    std::vector<ImageCoordinates> list;
    EXPECT_EQ(Failure([&] { scan.reader.GetOrderedPatchList(list, kxbase::Color); }),
              "KXComponentNotInFileException: Cannot use this component");
}

TEST(OrderedPatchList, PositionsOutsideTheGridAreRefusedAndTheListIsKept) {
    MemoryScan scan(ShuffledScan().Build());
    for (const auto& [patch, index] :
         {std::pair(ImageCoordinates{3, 0}, "6"),
          std::pair(ImageCoordinates{2147483647, 2147483647}, "6442450941"),
          std::pair(ImageCoordinates{-1, 0}, "-2"), std::pair(ImageCoordinates{1, -1}, "1")}) {
        std::vector<ImageCoordinates> list{{0, 0}, patch};
        EXPECT_EQ(Failure([&] { scan.reader.GetOrderedPatchList(list, Range); }),
                  "KXUnreadablePatchException: Index " + std::string(index) + " is outside bounds");
        EXPECT_EQ(list.size(), 2U);
        EXPECT_EQ(list[0], (ImageCoordinates{0, 0}));
    }
}

TEST(OrderedPatchList, TableShorterThanTheGridCountsAsAbsent) {
    ScanFileBuilder file(4, 3, 4, 3);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 1), 4, 3));
    file.properties.grid.columns = 12;
    MemoryScan scan(file.Build());
    std::vector<ImageCoordinates> list{{0, 0}, {0, 2}};
    scan.reader.GetOrderedPatchList(list, Range);
    EXPECT_TRUE(list == (std::vector<std::pair<int, int>>{{0, 2}, {0, 0}}));
}

// A file whose lookup table is gone: opening fails, the walk finds the patches.
struct BrokenScan {
    explicit BrokenScan(Bytes bytes) : stream(std::move(bytes)) {
        EXPECT_EQ(Failure([&] { reader.Open(&stream); }),
                  "KXIncompleteFileException: Lookup table not found");
        reader.FailSafeInit();
    }
    kxbase::InMemoryStream stream;
    OpenReader reader;
};

Bytes WithoutTable(Bytes bytes) {
    SetMainField(bytes, MainField::LookupTable, 0);
    return bytes;
}

TEST(FailSafe, FindsEveryPatchThatTheTableKnew) {
    const Bytes good = SmallScan().Build();
    MemoryScan whole(good);
    BrokenScan broken(WithoutTable(good));
    EXPECT_EQ(broken.reader.GetAvailableComponents(), whole.reader.GetAvailableComponents());
    for (const kxbase::ComponentType component : whole.reader.GetAvailableComponents()) {
        for (unsigned index = 0; index < 9; ++index) {
            Bytes expected;
            Bytes found;
            whole.reader.GetPatchCompressed(index, expected, component);
            broken.reader.GetPatchCompressed(index, found, component);
            EXPECT_EQ(found, expected);
        }
    }
}

TEST(FailSafe, WalkOverAGoodTableChangesNothing) {
    MemoryScan scan(SmallScan().Build());
    const kxio::ScanAccess access(scan.reader);
    const auto entries = access.PatchEntries(Range);
    const std::vector<kxio::LookupEntry> before(entries.begin(), entries.end());
    scan.reader.FailSafeInit();
    const auto after = access.PatchEntries(Range);
    EXPECT_EQ(std::vector<kxio::LookupEntry>(after.begin(), after.end()), before);
}

TEST(FailSafe, SharedEmptyChunkIsPassedOver) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.SharedChunk(1, {1}, SnappyChunk(std::vector<float>(12, 0.0F), 4, 3));
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 1.0F), 4, 3));
    BrokenScan broken(WithoutTable(file.Build()));
    Bytes out;
    broken.reader.GetPatchCompressed(0, out, Range);
    EXPECT_FALSE(out.empty());
    EXPECT_EQ(Failure([&] { broken.reader.GetPatchCompressed(1, out, Range); }),
              "KXUnreadablePatchException: Patch not in file");
}

TEST(FailSafe, WalkEndsAtTheFirstForeignBytes) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 1.0F), 4, 3));
    file.RawBytes(Bytes(40, 3));
    file.Chunk(1, 0, 1, SnappyChunk(std::vector<float>(12, 1.0F), 4, 3));
    BrokenScan broken(WithoutTable(file.Build()));
    const kxio::ScanAccess access(broken.reader);
    EXPECT_NE(access.PatchEntries(Range)[0].position, 0U);
    EXPECT_EQ(access.PatchEntries(Range)[1].position, 0U);
}

TEST(FailSafe, RecordOfARefusedVersionEndsTheWalk) {
    ScanFileBuilder file(8, 3, 4, 3);
    const Bytes chunk = SnappyChunk(std::vector<float>(12, 1.0F), 4, 3);
    file.Chunk(1, 0, 0, chunk);
    file.Chunk(1, 0, 1, chunk);
    Bytes bytes = WithoutTable(file.Build());
    PutU32(bytes, 92 + 32 + chunk.size() + 8, 199);
    BrokenScan broken(bytes);
    const kxio::ScanAccess access(broken.reader);
    EXPECT_NE(access.PatchEntries(Range)[0].position, 0U);
    EXPECT_EQ(access.PatchEntries(Range)[1].position, 0U);
}

TEST(FailSafe, PatchesOutsideTheGridArePassedOver) {
    ScanFileBuilder file(8, 3, 4, 3);
    const Bytes chunk = SnappyChunk(std::vector<float>(12, 1.0F), 4, 3);
    file.RawBytes(
        Record(kChunkRecord, ByteList().U32(static_cast<uint32_t>(chunk.size())).U32(1).U32(0).U32(2)));
    file.RawBytes(chunk);
    file.Chunk(4, 0, 0, chunk);
    BrokenScan broken(WithoutTable(file.Build()));
    EXPECT_EQ(broken.reader.GetAvailableComponents(), std::vector{kxbase::Luminance8});
}

TEST(FailSafe, GridOfAbsurdSizeIsRefusedBeforeMemoryIsTaken) {
    ScanFileBuilder file(1, 1, 1, 1);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>{1}, 1, 1));
    for (const uint32_t side : {10000U, 1000000U, 0xffffffffU}) {
        file.properties.grid.columns = side;
        file.properties.grid.rows = side;
        kxbase::InMemoryStream stream(WithoutTable(file.Build()));
        OpenReader reader;
        EXPECT_NE(Failure([&] { reader.Open(&stream); }), "nothing");
        EXPECT_EQ(Failure([&] { reader.FailSafeInit(); }), "KXUnreadablePatchException: Cannot read file");
    }
}

TEST(FailSafe, GridWithoutPatchesFindsNone) {
    ScanFileBuilder file(1, 1, 1, 1);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>{1}, 1, 1));
    file.properties.grid.patchWidth = 0;
    BrokenScan broken(WithoutTable(file.Build()));
    EXPECT_TRUE(broken.reader.GetAvailableComponents().empty());
}

}  // namespace
