// SPDX-License-Identifier: MIT
// Damaged chunks, and scan files inside of chunks.
#include "kxio/RecoverToFile.h"

#include <gtest/gtest.h>

#include "RecoveredFile.h"
#include "kxbase/Exceptions.h"

namespace {

using kxbase::ComponentType;
using kxbase::InMemoryStream;
using kxio::RecoveredGrid;
using kxio::RecoveryReport;
using namespace recovery_test;

TEST(RecoverToFile, DamagedChunkBecomesEmptyAndIsReported) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const StoredChunk& hit = ChunkOf(chunks, kxbase::Range, 2, 3);
    Bytes damaged = original;
    Zero(damaged, hit.data + 40, hit.data + 60);
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.report.chunksLost, 1U);
    EXPECT_EQ(recovered.Of(kxbase::Range).lost, 1U);
    EXPECT_EQ(recovered.Of(kxbase::Range).recovered, 17U);
    EXPECT_EQ(recovered.Of(kxbase::Range).missing, 2U);
    EXPECT_EQ(recovered.Of(kxbase::Color).lost, 0U);
    EXPECT_FALSE(recovered.report.Complete());
    EXPECT_EQ(recovered.reader.GetWarningList().front(),
              L"Recovered from a damaged file: 125 of 126 chunks saved; lost: Range 1 of 18; grid from the "
              L"scan header");
    const kxio::ScanAccess access(recovered.reader);
    for (const float value : access.ReadPatch<float>(kxbase::Range, 2, 3))
        EXPECT_EQ(value, 0.0F);
    // Fewer points than before, by those of the patch.
    InMemoryStream before(original);
    const kxio::QSNScanReader reader(&before);
    uint64_t lost = 0;
    for (const float value : kxio::ScanAccess(reader).ReadPatch<float>(kxbase::Range, 2, 3))
        lost += value > 0 ? 1 : 0;
    EXPECT_GT(lost, 0U);
    EXPECT_EQ(recovered.report.pointsSaved, reader.GetValidPointCount() - lost);
    EXPECT_EQ(recovered.reader.GetValidPointCount(), recovered.report.pointsSaved);
}

TEST(RecoverToFile, ChunkWhoseRecordIsDamagedIsSavedByTheLookupTable) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const StoredChunk& hit = ChunkOf(chunks, kxbase::Color, 0, 4);
    Bytes damaged = original;
    Zero(damaged, hit.record, hit.data);
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.report.chunksLost, 0U);
    EXPECT_TRUE(recovered.Holds(original, hit));
}

TEST(RecoverToFile, ChunkWhoseFrameIsDamagedIsSavedWithoutATableToo) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    Bytes damaged = Unfinished(original);
    const StoredChunk& hit = ChunkOf(chunks, kxbase::Color, 0, 4);
    Zero(damaged, hit.record, hit.record + 16);
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.report.chunksLost, 0U);
    EXPECT_EQ(recovered.report.damagedPlaces, 1U);
    for (const StoredChunk& chunk : chunks)
        EXPECT_TRUE(recovered.Holds(original, chunk));
}

TEST(RecoverToFile, ARecordThatSeemsLongerHidesNoOtherChunk) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    for (const bool withTable : {true, false}) {
        const Bytes file = withTable ? original : Unfinished(original);
        for (size_t i = 0; i < chunks.size(); i += 5) {
            for (const size_t byte : {12U, 13U}) {
                Bytes damaged = file;
                damaged[chunks[i].record + byte] = 0x92;  // of the size in its frame
                const Recovered recovered(damaged);
                for (const StoredChunk& chunk : chunks)
                    ASSERT_TRUE(recovered.Holds(original, chunk))
                        << withTable << " byte " << byte << " of " << chunks[i].record << " hides "
                        << chunk.record;
            }
        }
    }
}

TEST(RecoverToFile, TableDecidesWhereAChunkBelongs) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const StoredChunk& hit = ChunkOf(chunks, kxbase::Range, 2, 3);
    Bytes damaged = original;
    damaged[hit.record + 24] = 0;  // the record now names patch (0, 3)
    const Recovered recovered(damaged);
    for (const StoredChunk& chunk : chunks)
        EXPECT_TRUE(recovered.Holds(original, chunk));
    EXPECT_TRUE(recovered.Warns("lie at the patch that the lookup table names"));
}

TEST(RecoverToFile, WhereTableAndRecordContradictEachOtherTheOthersDecide) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const auto holdsAllAndNoMore = [&](const Recovered& recovered) {
        for (const StoredChunk& chunk : chunks)
            EXPECT_TRUE(recovered.Holds(original, chunk));
        EXPECT_EQ(ChunksOf(recovered.out.GetBytes()).size(), chunks.size());
    };
    {
        Bytes damaged = original;
        const StoredChunk& hit = ChunkOf(chunks, kxbase::Range, 2, 3);
        damaged[hit.record + 20] = 0x42;  // the record now names another component
        const Recovered recovered(damaged);
        holdsAllAndNoMore(recovered);
        EXPECT_TRUE(recovered.Warns("component that the lookup table names, not the one that their record"));
    }
    {
        Bytes damaged = original;
        damaged[kxtest::GetMainField(original, kxtest::MainField::LookupTable) + 16 + 4] = 0x42;
        const Recovered recovered(damaged);
        holdsAllAndNoMore(recovered);
        EXPECT_TRUE(recovered.Warns("component that their record names, not the one that the lookup table"));
    }
}

TEST(RecoverToFile, RowNumberFarOffAllOthersIsLeftOut) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const StoredChunk& hit = ChunkOf(chunks, kxbase::Range, 2, 3);
    Bytes damaged = Unfinished(original);
    damaged[hit.record + 27] = 0x7f;
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.report.grid.rows, 59U);
    EXPECT_EQ(recovered.report.chunksRecovered, 125U);
    EXPECT_TRUE(recovered.Warns("row or column numbers"));
}

TEST(RecoverToFile, ScanHeaderThatHoldsAllOtherChunksIsBelieved) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const StoredChunk& hit = ChunkOf(chunks, kxbase::Range, 2, 3);
    const kxio::MainFileHeader header = MainHeaderOf(original);
    Bytes damaged = original;
    damaged[hit.record + 24] = 30;  // row 30 of four; not so far off that it must be damage
    Zero(damaged, header.lookupTablePosition, header.thumbnailHeaderPosition);
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.report.gridSource, RecoveredGrid::ScanHeader);
    EXPECT_EQ(recovered.report.grid.rows, 59U);
    EXPECT_EQ(recovered.report.chunksRecovered, 125U);
}

TEST(RecoverToFile, LastWholeChunkOfAPatchWins) {
    const std::vector<float> first(4, 1000.0F), second(4, 2000.0F), third(4, 3000.0F);
    kxtest::ScanFileBuilder builder(4, 2, 2, 2);
    builder.Chunk(1, 0, 0, kxtest::SnappyChunk(first, 2, 2))
        .Chunk(1, 0, 1, kxtest::SnappyChunk(first, 2, 2))
        .Chunk(1, 0, 0, kxtest::SnappyChunk(second, 2, 2))
        .Chunk(1, 0, 0, kxtest::SnappyChunk(third, 2, 2));
    const Bytes file = builder.Build();
    const auto chunks = ChunksOf(file);
    EXPECT_EQ(Recovered(file).Chunk(kxbase::Range, 0, 0), kxtest::SnappyChunk(third, 2, 2));
    Bytes damaged = file;
    damaged[chunks[3].data] ^= 1;
    EXPECT_EQ(Recovered(damaged).Chunk(kxbase::Range, 0, 0), kxtest::SnappyChunk(second, 2, 2));
    damaged[chunks[2].data] ^= 1;
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.Chunk(kxbase::Range, 0, 0), kxtest::SnappyChunk(first, 2, 2));
    EXPECT_EQ(recovered.report.chunksLost, 0U);
    EXPECT_EQ(recovered.report.chunksFound, 2U);
}

TEST(RecoverToFile, BytesInsertedOrRemovedCostOnlyTheChunkTheyLieIn) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const StoredChunk& hit = ChunkOf(chunks, kxbase::Luminance16, 1, 1);
    Bytes inserted = original;
    inserted.insert(inserted.begin() + static_cast<std::ptrdiff_t>(hit.data + 50), 1000, 0x11);
    Bytes removed = original;
    removed.erase(removed.begin() + static_cast<std::ptrdiff_t>(hit.data + 50),
                  removed.begin() + static_cast<std::ptrdiff_t>(hit.data + 60));
    Bytes hole = original;  // larger than some chunks
    hole.erase(hole.begin() + static_cast<std::ptrdiff_t>(hit.data + 40),
               hole.begin() + static_cast<std::ptrdiff_t>(hit.data + 40 + 3000));
    Bytes inFront = original;
    inFront.insert(inFront.begin(), 777, 0x22);
    for (const Bytes* damaged : {&inserted, &removed, &hole, &inFront}) {
        const Recovered recovered(*damaged);
        SCOPED_TRACE(damaged == &inserted  ? "inserted"
                     : damaged == &removed ? "removed"
                     : damaged == &hole    ? "hole"
                                           : "in front");
        for (const StoredChunk& chunk : chunks) {
            if (&chunk == &hit && damaged != &inFront) continue;
            if (damaged == &hole && chunk.end > hit.record && chunk.record < hit.data + 3040) continue;
            EXPECT_TRUE(recovered.Holds(original, chunk))
                << chunk.component << " of patch (" << chunk.row << "," << chunk.column << ")";
        }
        EXPECT_EQ(recovered.report.gridSource, RecoveredGrid::ScanHeader);
    }
}

TEST(RecoverToFile, PreviewBytesBetweenTheChunksAreNoDamage) {
    InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::GridTopology grid;
    grid.columns = 8;
    grid.rows = 4;
    grid.patchWidth = grid.patchHeight = 4;
    writer.CreateNew(&stream, grid);
    kxcodecs::SnappyChunkCodec codec;
    std::vector<uint16_t> values(16, 5);
    Bytes preview = kxtest::SnappyChunk(std::vector<uint16_t>(32, 9), 8, 4);
    kxio::FlatPatchDescriptor patch(kxbase::Luminance16, 2, kxio::RowMajor, 1.0, &codec);
    patch.data = reinterpret_cast<unsigned char*>(values.data());
    patch.size = 16;
    writer.SetCompressedPreview(preview.data(), preview.size(), kxbase::Luminance16);
    writer.AddPatch({&patch}, 0, 0);
    writer.SetCompressedPreview(preview.data(), preview.size(), kxbase::Luminance16);
    writer.AddPatch({&patch}, 0, 1);
    writer.EndCreation();
    const Recovered recovered(stream.GetBytes());
    EXPECT_EQ(recovered.report.chunksRecovered, 2U);
    EXPECT_EQ(recovered.report.damagedPlaces, 0U);
}

TEST(RecoverToFile, ScanWithoutAGridStaysOne) {
    InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    kxcodecs::SnappyChunkCodec codec;
    std::vector<float> values(100, 4000.0F);
    for (unsigned i = 0; i < 5; ++i) {
        if (i == 1) continue;
        kxio::FlatPatchDescriptor patch(kxbase::Range, 4, kxio::RowMajor, 1.0, &codec);
        patch.data = reinterpret_cast<unsigned char*>(values.data());
        patch.size = 100 - i;
        writer.AddPatch({&patch}, i);
    }
    writer.EndCreation();
    const Bytes original = stream.GetBytes();
    const auto chunks = ChunksOf(original);
    Bytes damaged = original;
    damaged[chunks.back().data + 3] ^= 0xff;
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.reader.GetScanInformation().grid.columns, 5U);
    EXPECT_EQ(recovered.reader.GetScanInformation().grid.patchWidth, 1U);
    EXPECT_EQ(recovered.report.pointsSaved, 100U + 98 + 97);
    EXPECT_EQ(recovered.report.chunksLost, 1U);
    for (size_t i = 0; i + 1 < chunks.size(); ++i)
        EXPECT_TRUE(recovered.Holds(original, chunks[i]));
}

// --- Scan files inside chunks --------------------------------------------------------------------------

/// A scan whose component 10 holds, at patch (1, 1), the bytes of a whole other scan file.
struct Nested {
    Bytes inner;
    Bytes outer;
    std::vector<StoredChunk> chunks;  // of the outer file
    StoredChunk host;

    explicit Nested(bool tail) {
        SampleScan other;
        other.columns = 40;
        other.rows = 40;
        other.absent.clear();
        inner = other.Write();
        kxtest::ScanFileBuilder builder(8, 8, 4, 4);
        std::mt19937 random(7);
        for (uint32_t r = 0; r < 2; ++r) {
            for (uint32_t c = 0; c < 2; ++c) {
                std::vector<float> ranges(16);
                for (float& range : ranges)
                    range = static_cast<float>(1000 + random() % 9000);
                if (r == 1 && c == 1) builder.Chunk(10, r, c, HostChunk());
                builder.Chunk(1, r, c, kxtest::SnappyChunk(ranges, 4, 4));
            }
        }
        outer = builder.Message("outer").Build();
        if (!tail) outer = Unfinished(outer);
        // The builder's chunks follow each other, so the walk goes from one to the next.
        chunks = ChunksOf(outer);
        host = ChunkOf(chunks, ComponentType(10), 1, 1);
    }
    /// The inner file as it is, in one stored block of zlib.
    Bytes HostChunk() const {
        kxcodecs::ZLibChunkCodec codec;
        codec.SetCompressionLevel(0);
        Bytes padded = inner;
        padded.resize((padded.size() + 15) / 16 * 16);
        Bytes chunk;
        codec.Encode(padded.data(), 4, 4, padded.size(), 1.0F, chunk);
        return chunk;
    }
};

void ExpectOnlyOuter(const Nested& nested, const Recovered& recovered, bool hostSaved) {
    EXPECT_EQ(recovered.reader.GetAvailableComponents().size(), hostSaved ? 2U : 1U);
    EXPECT_EQ(recovered.report.grid.PatchCount(), 4U);
    EXPECT_EQ(recovered.Of(kxbase::Range).recovered, 4U);
    for (const StoredChunk& chunk : nested.chunks) {
        if (chunk.component != kxbase::Range) continue;
        EXPECT_TRUE(recovered.Holds(nested.outer, chunk));
    }
    EXPECT_NE(recovered.reader.GetScanInformation().scannerModel, L"Ostrak RM7");
    for (const std::wstring& message : recovered.reader.GetMessageList())
        EXPECT_NE(message, L"first message");
}

TEST(RecoverToFile, ScanFileInsideAChunkYieldsNoPatches) {
    for (const bool tail : {true, false}) {
        const Nested nested(tail);
        // It does lie there in plain bytes.
        const auto place = std::search(nested.outer.begin(), nested.outer.end(), nested.inner.begin() + 92,
                                       nested.inner.begin() + 200);
        ASSERT_NE(place, nested.outer.end());
        const Recovered recovered(nested.outer);
        ExpectOnlyOuter(nested, recovered, true);
        EXPECT_TRUE(recovered.Holds(nested.outer, nested.host));
        EXPECT_EQ(recovered.report.damagedPlaces, 0U);
    }
}

TEST(RecoverToFile, ScanFileInsideAChunkWithADamagedRecordYieldsNoPatches) {
    for (const bool tail : {true, false}) {
        const Nested nested(tail);
        SCOPED_TRACE(tail ? "with tables" : "without tables");
        {
            Bytes damaged = nested.outer;
            Zero(damaged, nested.host.record, nested.host.record + 8);  // the tag
            ExpectOnlyOuter(nested, Recovered(damaged), true);
        }
        {
            Bytes damaged = nested.outer;
            Zero(damaged, nested.host.record, nested.host.data);  // all of the record
            ExpectOnlyOuter(nested, Recovered(damaged), tail);
        }
        {
            Bytes damaged = nested.outer;
            Zero(damaged, nested.host.record, nested.host.data + 30);  // and the codec header
            ExpectOnlyOuter(nested, Recovered(damaged), false);
        }
        {
            Bytes damaged = nested.outer;  // the next record and the end of the host's data
            Zero(damaged, nested.host.end - 10, nested.host.end + 20);
            const Recovered recovered(damaged);
            EXPECT_EQ(recovered.report.grid.PatchCount(), 4U);
            EXPECT_EQ(recovered.Of(kxbase::Range).recovered, tail ? 4U : 3U);
        }
    }
}

TEST(RecoverToFile, SecondScanFileBehindTheFirstIsLeftAlone) {
    Bytes both = SampleScan().Write();
    const uint64_t end = both.size();
    SampleScan other;
    other.columns = 200;
    const Bytes second = other.Write();
    both.insert(both.end(), second.begin(), second.end());
    const Recovered recovered(both);
    EXPECT_EQ(recovered.report.grid.columns, 77U);
    EXPECT_EQ(recovered.report.chunksFound, 126U);
    EXPECT_TRUE(recovered.Warns("another scan file begins at byte " + std::to_string(end)));
}

}  // namespace
