// SPDX-License-Identifier: MIT
// Which grid the remains of a file are put into, and which chunks are left out of it.
#include "services/GridDecision.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/ScanFileBuilder.h"

namespace kxio {
namespace {

constexpr uint64_t kFileBytes = 1000;

kxbase::GridTopology Header(uint32_t columns, uint32_t rows, uint32_t patchWidth, uint32_t patchHeight) {
    kxbase::GridTopology grid;
    grid.columns = columns;
    grid.rows = rows;
    grid.patchWidth = patchWidth;
    grid.patchHeight = patchHeight;
    grid.columnAngularStep = grid.rowAngularStep = 0.01F;
    return grid;
}

/// Chunks of one kind that fill patches up to a row and a column.
ChunkStatistics Chunks(uint32_t width, uint32_t height, uint32_t largestRow, uint32_t largestColumn) {
    ChunkStatistics chunks;
    chunks.width = width;
    chunks.height = height;
    chunks.largestRow = largestRow;
    chunks.largestColumn = largestColumn;
    chunks.chunks = 1;
    if (width != 0) chunks.sides[{width, height}] = 1;
    return chunks;
}

/// Without any table.
GridDecision Decide(const std::optional<kxbase::GridTopology>& header, const ChunkStatistics& chunks) {
    kxbase::InMemoryStream empty;
    FileWindow file(empty);
    return DecideGrid(header, TableEvidence(file, Survey()), chunks, kFileBytes, 1);
}

TEST(GridDecision, WithoutChunksTheHeaderIsNotContradicted) {
    const GridDecision decision = Decide(Header(10, 7, 4, 3), {});
    EXPECT_TRUE(decision.sizeFromHeader && decision.anglesFromHeader);
    EXPECT_EQ(decision.grid.columns, 10U);
    EXPECT_TRUE(decision.notes.empty());
    EXPECT_FALSE(Decide({}, {}).sizeFromHeader);
}

TEST(GridDecision, AHeaderThatFitsTheChunksIsTaken) {
    const GridDecision decision = Decide(Header(10, 7, 4, 3), Chunks(4, 3, 2, 2));
    EXPECT_TRUE(decision.sizeFromHeader && decision.anglesFromHeader);
    EXPECT_TRUE(decision.notes.empty());
    // Also where the values of a patch were handed over as one row.
    EXPECT_TRUE(Decide(Header(10, 7, 4, 3), Chunks(12, 1, 2, 2)).sizeFromHeader);
}

TEST(GridDecision, APatchSizeThatNoChunkHasIsPutRight) {
    const GridDecision decision = Decide(Header(10, 7, 5, 3), Chunks(4, 3, 2, 2));
    EXPECT_FALSE(decision.sizeFromHeader);
    EXPECT_EQ(decision.grid.patchWidth, 4U);
    EXPECT_EQ(decision.grid.patchHeight, 3U);
    EXPECT_EQ(decision.grid.columns, 10U);  // still fits
    EXPECT_EQ(decision.notes, std::vector<std::string>{
                                  "patch size 5 x 3 of the scan header does not fit the chunks of 4 x 3"});
}

TEST(GridDecision, APatchSizeOfNothingOrBeyondAllMeasureIsNotTaken) {
    // The chunks tell no sides, or ones that nobody could hold.
    for (const ChunkStatistics& chunks : {Chunks(0, 0, 1, 1), Chunks(1U << 16, 1U << 16, 1, 1)}) {
        for (const auto& header : {Header(10, 7, 0, 3), Header(10, 7, 1U << 15, 1U << 15)}) {
            const GridDecision decision = Decide(header, chunks);
            EXPECT_FALSE(decision.sizeFromHeader);
            EXPECT_EQ(decision.grid.patchWidth, 1U);
            EXPECT_EQ(decision.grid.patchHeight, 1U);
        }
    }
    EXPECT_EQ(Decide({}, Chunks(0, 0, 1, 1)).grid.patchWidth, 1U);
}

TEST(GridDecision, AGridWithFewerPatchesThanWereFoundGrowsToThem) {
    const GridDecision decision = Decide(Header(4, 7, 4, 3), Chunks(4, 3, 2, 2));
    EXPECT_FALSE(decision.sizeFromHeader);
    EXPECT_TRUE(decision.columnsAreWholePatches);
    EXPECT_FALSE(decision.rowsAreWholePatches);
    EXPECT_EQ(decision.grid.columns, 12U);
    EXPECT_EQ(decision.grid.rows, 7U);
    EXPECT_EQ(decision.notes,
              std::vector<std::string>{
                  "grid of 4 x 7 cells of the scan header does not fit the chunks; 12 x 7 taken"});
}

TEST(GridDecision, AGridFarLargerThanWhatWasFoundOfItIsDamage) {
    const uint32_t most = 4 * (64 * 3 + 1024);  // 64 times as many patches, and some
    EXPECT_TRUE(Decide(Header(most, 7, 4, 3), Chunks(4, 3, 2, 2)).sizeFromHeader);
    const GridDecision decision = Decide(Header(most + 1, 7, 4, 3), Chunks(4, 3, 2, 2));
    EXPECT_FALSE(decision.sizeFromHeader);
    EXPECT_EQ(decision.grid.columns, 12U);
    const GridDecision tall = Decide(Header(10, 0xffffffffU, 4, 3), Chunks(4, 3, 2, 2));
    EXPECT_TRUE(tall.rowsAreWholePatches);
    EXPECT_EQ(tall.grid.rows, 9U);
}

TEST(GridDecision, ListsOfValuesHaveNoGrid) {
    const GridDecision decision = Decide(Header(10, 1, 1, 1), Chunks(500, 1, 0, 9));
    EXPECT_TRUE(decision.withoutGrid);
    EXPECT_EQ(decision.grid.columns, 10U);
    // A list more than the header knows, a second row, or chunks of one value: a grid of single cells.
    EXPECT_FALSE(Decide(Header(10, 1, 1, 1), Chunks(500, 1, 0, 10)).withoutGrid);
    EXPECT_FALSE(Decide(Header(10, 1, 1, 1), Chunks(500, 1, 1, 9)).withoutGrid);
    EXPECT_FALSE(Decide(Header(10, 1, 1, 1), Chunks(1, 1, 0, 9)).withoutGrid);
    EXPECT_FALSE(Decide(Header(10, 2, 1, 1), Chunks(500, 1, 0, 9)).withoutGrid);
    EXPECT_FALSE(Decide(Header(10, 1, 1, 2), Chunks(500, 1, 0, 9)).withoutGrid);
    EXPECT_FALSE(Decide(Header(0xffffffffU, 1, 1, 1), Chunks(500, 1, 0, 9)).withoutGrid);
}

TEST(GridDecision, AnglesThatAreNoneAreSaid) {
    const auto change = [](float kxbase::GridTopology::*field, float value) {
        kxbase::GridTopology header = Header(10, 7, 4, 3);
        header.*field = value;
        return Decide(header, Chunks(4, 3, 2, 2));
    };
    for (const auto field :
         {&kxbase::GridTopology::columnStartAngle, &kxbase::GridTopology::rowStartAngle,
          &kxbase::GridTopology::columnAngularStep, &kxbase::GridTopology::rowAngularStep}) {
        for (const float value : {std::nanf(""), INFINITY, 100.0F, -1e30F}) {
            const GridDecision decision = change(field, value);
            EXPECT_FALSE(decision.anglesFromHeader);
            EXPECT_TRUE(decision.sizeFromHeader);
            EXPECT_EQ(decision.notes, std::vector<std::string>{"angles of the scan header are no angles"});
        }
        EXPECT_TRUE(change(field, -99).anglesFromHeader);
    }
}

std::vector<FoundChunk> At(std::initializer_list<std::pair<uint32_t, uint32_t>> places,
                           ChunkTrust trust = ChunkTrust::Framed) {
    std::vector<FoundChunk> chunks;
    for (const auto& [row, column] : places) {
        FoundChunk chunk;
        chunk.row = row;
        chunk.column = column;
        chunk.trust = trust;
        chunks.push_back(chunk);
    }
    return chunks;
}

TEST(StrayChunks, OneOutsideAGridThatTheOthersFillIsTakenOut) {
    for (const auto& stray : {std::pair(2U, 0U), std::pair(0U, 2U)}) {
        std::vector<FoundChunk> chunks = At({{0, 0}, {0, 1}, {1, 0}, {1, 1}, stray});
        EXPECT_EQ(RemoveStrayChunks(chunks, Header(8, 8, 4, 4), kFileBytes, 1), 1U);
        EXPECT_EQ(chunks.size(), 4U);
    }
}

TEST(StrayChunks, OneThatTheTableNamesStays) {
    std::vector<FoundChunk> chunks = At({{0, 0}, {0, 1}, {1, 0}, {1, 1}});
    chunks.push_back(At({{2, 0}}, ChunkTrust::Listed)[0]);
    EXPECT_EQ(RemoveStrayChunks(chunks, Header(8, 8, 4, 4), kFileBytes, 1), 0U);
    EXPECT_EQ(chunks.size(), 5U);
}

TEST(StrayChunks, ManyOutsideContradictTheHeader) {
    std::vector<FoundChunk> chunks = At({{0, 0}, {0, 1}, {1, 0}, {1, 1}, {2, 0}, {2, 1}, {3, 0}});
    EXPECT_EQ(RemoveStrayChunks(chunks, Header(8, 8, 4, 4), kFileBytes, 1), 0U);
    // So does one, where the others do not fill the grid.
    chunks = At({{0, 0}, {2, 0}});
    EXPECT_EQ(RemoveStrayChunks(chunks, Header(8, 8, 4, 4), kFileBytes, 1), 0U);
    chunks = At({{1, 0}, {2, 0}});  // the last row, but not the last column
    EXPECT_EQ(RemoveStrayChunks(chunks, Header(8, 8, 4, 4), kFileBytes, 1), 0U);
}

TEST(StrayChunks, NumbersFarOffAllOthersAreDamage) {
    std::vector<FoundChunk> chunks = At({{0, 0}, {1, 0}, {2, 3}, {1000000, 1}, {1, 2000000}});
    EXPECT_EQ(RemoveStrayChunks(chunks, {}, kFileBytes, 1), 2U);
    EXPECT_EQ(chunks.size(), 3U);
    // Three chunks of one far row are a row.
    chunks = At({{0, 0}, {1, 0}, {100000, 0}, {100000, 1}, {100000, 2}});
    EXPECT_EQ(RemoveStrayChunks(chunks, {}, kFileBytes, 1), 0U);
}

TEST(StrayChunks, WhatNoFileOfThatSizeCanListIsTakenOutFromTheFarEnd) {
    // Rows and columns that are in use often enough, but not together.
    std::vector<FoundChunk> chunks = At({{0, 0}, {1, 1}, {2, 2}});
    for (uint32_t i = 0; i < 4; ++i) {
        for (const FoundChunk& far : At({{5000, i}, {i, 6000}}))
            chunks.push_back(far);
    }
    std::vector<FoundChunk> once = chunks;
    EXPECT_EQ(RemoveStrayChunks(once, {}, kFileBytes, 1), 4U);  // the columns 6000
    for (const FoundChunk& chunk : once)
        EXPECT_LT(chunk.column, 6000U);
    // With many components the rows are too many as well.
    EXPECT_EQ(RemoveStrayChunks(chunks, {}, kFileBytes, 200), 8U);
    for (const FoundChunk& chunk : chunks)
        EXPECT_LT(chunk.row, 5000U);
}

TEST(StrayChunks, WhenNothingElseIsThereAllAreTakenOut) {
    std::vector<FoundChunk> chunks = At({{0xfffffff0U, 0xfffffff0U}});
    EXPECT_EQ(RemoveStrayChunks(chunks, {}, kFileBytes, 1), 1U);
    EXPECT_TRUE(chunks.empty());
    EXPECT_EQ(RemoveStrayChunks(chunks, {}, kFileBytes, 1), 0U);
}

TEST(MeasureChunks, SidesThatMostHaveWinAndOfEqualsTheLarger) {
    kxtest::Bytes bytes;
    std::vector<FoundChunk> chunks;
    const auto add = [&](uint32_t width, uint32_t height) {
        const kxtest::Bytes chunk =
            kxtest::SnappyChunk(std::vector<float>(width * height, 1.0F), width, height);
        FoundChunk found;
        found.dataPosition = bytes.size();
        found.byteCount = static_cast<uint32_t>(chunk.size());
        found.row = static_cast<uint32_t>(chunks.size());
        found.column = 3;
        bytes.insert(bytes.end(), chunk.begin(), chunk.end());
        chunks.push_back(found);
    };
    const auto measure = [&] {
        kxbase::InMemoryStream stream(bytes);
        FileWindow file(stream);
        return MeasureChunks(file, chunks);
    };
    add(8, 8);
    add(4, 3);
    EXPECT_EQ(measure().width, 8U);
    add(5, 2);
    EXPECT_EQ(measure().width, 8U);
    add(4, 3);
    const ChunkStatistics most = measure();
    EXPECT_EQ(most.width, 4U);
    EXPECT_EQ(most.height, 3U);
    EXPECT_EQ(most.largestRow, 3U);
    EXPECT_EQ(most.largestColumn, 3U);
    EXPECT_EQ(most.sides.size(), 3U);
    // Of very many only some are looked at; their numbers all count.
    chunks.assign(250000, chunks[1]);
    chunks.back().row = 77;
    const ChunkStatistics many = measure();
    EXPECT_EQ(many.chunks, 250000U);
    EXPECT_EQ(many.largestRow, 77U);
    EXPECT_EQ((many.sides.at({4, 3})), 125000U);
}

}  // namespace
}  // namespace kxio
