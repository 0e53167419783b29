// SPDX-License-Identifier: MIT
#include "kxio/RecoverToFile.h"

#include <gtest/gtest.h>

#include "RecoveryFixture.h"
#include "RecoveryScan.h"
#include "kxbase/Exceptions.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/HistogramHeader.h"
#include "support/ScanFileBuilder.h"

namespace {

using kxbase::ComponentType;
using kxbase::InMemoryStream;
using kxio::RecoveredGrid;
using kxio::RecoveryReport;
using recovery_test::ChunksOf;
using recovery_test::Piece;
using recovery_test::ReadBytes;
using recovery_test::SampleScan;
using recovery_test::StoredChunk;
using recovery_test::TemporaryFolder;
using recovery_test::WriteBytes;
using Bytes = std::vector<unsigned char>;

template <class Exception, class Action>
void ExpectFailure(const char* text, Action action) {
    try {
        action();
        ADD_FAILURE() << "no exception; expected " << text;
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(), text);
    }
}

/// A recovery in memory and a reader on its result.
struct Recovered {
    explicit Recovered(const Bytes& damaged) : in(damaged) {
        report = kxio::RecoverToStream(in, out);
        EXPECT_EQ(in.GetBytes(), damaged);
        reader.Open(&out);
    }

    Bytes Chunk(ComponentType component, uint32_t row, uint32_t column) const {
        Bytes bytes;
        reader.GetPatchCompressed(row, column, bytes, component);
        return bytes;
    }
    bool Holds(const Bytes& original, const StoredChunk& chunk) const {
        return Chunk(chunk.component, chunk.row, chunk.column) == Piece(original, chunk.data, chunk.end);
    }
    const kxio::RecoveredComponent& Of(ComponentType component) const {
        for (const kxio::RecoveredComponent& c : report.components) {
            if (c.component == component) return c;
        }
        ADD_FAILURE() << "component " << component << " not in the report";
        return report.components.front();
    }
    bool Warns(const std::string& piece) const {
        for (const std::string& text : report.warnings) {
            if (text.find(piece) != std::string::npos) return true;
        }
        return false;
    }

    InMemoryStream in;
    InMemoryStream out;
    RecoveryReport report;
    kxio::QSNScanReader reader;
};

kxio::MainFileHeader MainHeaderOf(const Bytes& file) {
    InMemoryStream stream(file);
    kxio::MainFileHeader header;
    header.Read(&stream);
    return header;
}

void Zero(Bytes& bytes, uint64_t first, uint64_t end) {
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(first),
              bytes.begin() + static_cast<std::ptrdiff_t>(end), 0);
}

/// Everything from the scan header on cut away, and the main header as it was before the end of creation.
Bytes Unfinished(const Bytes& file) {
    const kxio::MainFileHeader header = MainHeaderOf(file);
    Bytes bytes = Piece(file, 0, header.chunkDataEndPosition);
    for (size_t field = 0; field < 72; field += 8) {
        if (field != kxtest::MainField::FirstChunk) kxtest::SetMainField(bytes, field, 0);
    }
    return bytes;
}

const StoredChunk& ChunkOf(const std::vector<StoredChunk>& chunks, ComponentType component, uint32_t row,
                           uint32_t column) {
    for (const StoredChunk& chunk : chunks) {
        if (chunk.component == component && chunk.row == row && chunk.column == column) return chunk;
    }
    throw std::logic_error("no such chunk in the sample");
}

template <class T>
std::vector<T> PreviewOf(const kxio::QSNScanReader& reader, ComponentType component) {
    Bytes chunk;
    Bytes values;
    kxcodecs::ChunkHeaderInfo header;
    reader.GetCompressedPreview(chunk, component);
    EXPECT_EQ(kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, values), kxcodecs::DecodeStatus::Decoded);
    std::vector<T> result(values.size() / sizeof(T));
    std::memcpy(result.data(), values.data(), values.size());
    return result;
}

/// The extended records of a file, in order.
std::vector<kxio::ExtendedHeader> TailOf(const Bytes& file) {
    InMemoryStream stream(file);
    stream.Seek(MainHeaderOf(file).firstExtendedHeaderPosition);
    std::vector<kxio::ExtendedHeader> records;
    kxio::ExtendedHeader record;
    while (record.Read(&stream) != 0)
        records.push_back(record);
    return records;
}

Bytes DataOf(const kxio::ExtendedHeader& record) {
    return {record.GetDataBuffer(), record.GetDataBuffer() + record.GetDataBufferSize()};
}

// --- An undamaged file ---------------------------------------------------------------------------------

TEST(RecoverToFile, UndamagedFileComesBackWithAllItHolds) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const Recovered recovered(original);
    for (const StoredChunk& chunk : chunks)
        EXPECT_TRUE(recovered.Holds(original, chunk));
    // They lie in the same order, in the same bytes, as before.
    const auto copies = ChunksOf(recovered.out.GetBytes());
    ASSERT_EQ(copies.size(), chunks.size());
    for (size_t i = 0; i < chunks.size(); ++i)
        EXPECT_EQ(copies[i].record, chunks[i].record);

    InMemoryStream before(original);
    const kxio::QSNScanReader reader(&before);
    kxio::ScanProperties expected = reader.GetScanInformation();
    kxio::ScanProperties actual = recovered.reader.GetScanInformation();
    ASSERT_EQ(actual.warnings.size(), 2U);
    EXPECT_EQ(actual.warnings.front(),
              L"Recovered from a damaged file: 126 of 126 chunks saved, nothing known to be lost; grid from "
              L"the scan header");
    actual.warnings.pop_front();
    EXPECT_EQ(actual, expected);
    EXPECT_GT(expected.validPointCount, 1000U);

    const RecoveryReport& report = recovered.report;
    EXPECT_TRUE(report.Complete());
    EXPECT_EQ(report.chunksFound, chunks.size());
    EXPECT_EQ(report.chunksRecovered, chunks.size());
    EXPECT_EQ(report.pointsSaved, expected.validPointCount);
    EXPECT_EQ(report.gridSource, RecoveredGrid::ScanHeader);
    EXPECT_TRUE(report.mainHeaderFound && report.scanHeaderFound && report.lookupTableFound);
    EXPECT_TRUE(report.thumbnailKept);
    EXPECT_EQ(report.damagedPlaces, 0U);
    EXPECT_EQ(report.fileBytes, original.size());
    EXPECT_TRUE(report.warnings.empty()) << report.warnings.front();
    EXPECT_EQ(recovered.Of(kxbase::Range).found, 18U);
    EXPECT_EQ(recovered.Of(kxbase::Range).missing, 2U);
}

TEST(RecoverToFile, PreviewsLimitsHistogramsAndThumbnailAreThoseOfTheOriginal) {
    const Bytes original = SampleScan().Write();
    Bytes damaged = original;
    const kxio::MainFileHeader header = MainHeaderOf(original);
    Zero(damaged, header.lookupTablePosition, header.firstExtendedHeaderPosition);  // all that is rebuilt
    const Recovered recovered(damaged);
    InMemoryStream before(original);
    const kxio::QSNScanReader reader(&before);

    EXPECT_EQ(recovered.reader.GetAvailablePreviews(), reader.GetAvailablePreviews());
    EXPECT_EQ(PreviewOf<uint8_t>(recovered.reader, kxbase::Luminance8),
              PreviewOf<uint8_t>(reader, kxbase::Luminance8));
    EXPECT_EQ(PreviewOf<uint16_t>(recovered.reader, kxbase::Luminance16),
              PreviewOf<uint16_t>(reader, kxbase::Luminance16));
    EXPECT_EQ(PreviewOf<uint32_t>(recovered.reader, kxbase::Class),
              PreviewOf<uint32_t>(reader, kxbase::Class));
    const auto ranges = PreviewOf<float>(recovered.reader, kxbase::Range);
    const auto rangesBefore = PreviewOf<float>(reader, kxbase::Range);
    ASSERT_EQ(ranges.size(), 77U * 59);
    ASSERT_EQ(rangesBefore.size(), ranges.size());
    for (size_t i = 0; i < ranges.size(); ++i)
        EXPECT_NEAR(ranges[i], rangesBefore[i], 0.051F);

    const kxio::ScanAccess newAccess(recovered.reader);
    const kxio::ScanAccess oldAccess(reader);
    const auto limits = newAccess.ReadLimits();
    const auto limitsBefore = oldAccess.ReadLimits();
    ASSERT_TRUE(limits && limitsBefore);
    ASSERT_EQ(limits->patches.size(), limitsBefore->patches.size());
    for (size_t i = 0; i < limits->patches.size(); ++i) {
        EXPECT_NEAR(limits->patches[i].minimum, limitsBefore->patches[i].minimum, 0.051F);
        EXPECT_NEAR(limits->patches[i].maximum, limitsBefore->patches[i].maximum, 0.051F);
    }

    unsigned histograms = 0;
    for (const kxio::ExtendedHeader& old : TailOf(original)) {
        if (!kxio::HistogramComponent(old.GetType())) continue;
        ++histograms;
        for (const kxio::ExtendedHeader& made : TailOf(recovered.out.GetBytes())) {
            if (made.GetType() != old.GetType()) continue;
            EXPECT_EQ(DataOf(made), DataOf(old));
        }
    }
    EXPECT_EQ(histograms, 3U);
    EXPECT_EQ(recovered.reader.GetAvailableHistograms(), reader.GetAvailableHistograms());

    EXPECT_FALSE(recovered.report.thumbnailKept);
    Bytes pixels;
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_TRUE(recovered.reader.GetThumbnailRGB(pixels, width, height));
    EXPECT_EQ(width, 200U);
    EXPECT_EQ(height, 153U);
}

TEST(RecoverToFile, HistogramsOfAFileWithoutThemStayAbsent) {
    SampleScan scan;
    scan.histograms = false;
    const Bytes original = scan.Write();
    EXPECT_TRUE(Recovered(original).reader.GetAvailableHistograms().empty());
    // Where the tail is not whole, nobody knows: they are made.
    EXPECT_EQ(Recovered(Piece(original, 0, original.size() - 1)).reader.GetAvailableHistograms().size(), 3U);
}

// --- Headers and tables gone ---------------------------------------------------------------------------

TEST(RecoverToFile, MainHeaderIsNotNeeded) {
    Bytes damaged = SampleScan().Write();
    Zero(damaged, 0, 92);
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.report.chunksLost, 0U);
    EXPECT_EQ(recovered.report.chunksRecovered, 126U);
    EXPECT_EQ(recovered.report.gridSource, RecoveredGrid::ScanHeader);
    EXPECT_FALSE(recovered.report.mainHeaderFound);
    EXPECT_TRUE(recovered.report.lookupTableFound);
    EXPECT_EQ(recovered.reader.GetScanInformation().scannerModel, L"Ostrak RM7");
}

TEST(RecoverToFile, UnfinishedFileGetsAGridFromItsChunks) {
    const SampleScan scan;
    const Bytes original = scan.Write();
    const Recovered recovered(Unfinished(original));
    for (const StoredChunk& chunk : ChunksOf(original))
        EXPECT_TRUE(recovered.Holds(original, chunk));
    const kxbase::GridTopology& grid = recovered.reader.GetScanInformation().grid;
    EXPECT_EQ(recovered.report.gridSource, RecoveredGrid::Chunks);
    EXPECT_TRUE(recovered.report.anglesFitted);
    EXPECT_EQ(grid.patchWidth, 16U);
    EXPECT_EQ(grid.patchHeight, 16U);
    EXPECT_EQ(grid.columns, 77U);  // the last patches are filled up with zeros
    EXPECT_EQ(grid.rows, 59U);
    EXPECT_NEAR(grid.columnStartAngle, SampleScan::kColumnStart, 1e-4F);
    EXPECT_NEAR(grid.rowStartAngle, SampleScan::kRowStart, 1e-4F);
    EXPECT_NEAR(grid.columnAngularStep, SampleScan::kStep, 1e-6F);
    EXPECT_NEAR(grid.rowAngularStep, SampleScan::kStep, 1e-6F);
    EXPECT_TRUE(recovered.Warns("no scan header found"));
    InMemoryStream before(original);
    const kxio::QSNScanReader reader(&before);
    EXPECT_EQ(recovered.reader.GetValidPointCount(), reader.GetValidPointCount());
    EXPECT_FALSE(recovered.reader.GetScanInformation().scanUUID.IsZero());
}

TEST(RecoverToFile, WithoutFillingZerosTheGridIsOfWholePatches) {
    kxtest::ScanFileBuilder builder(7, 3, 4, 4);
    for (const uint32_t column : {0U, 1U})
        builder.Chunk(1, 0, column, kxtest::SnappyChunk(std::vector<float>(16, 5.0F), 4, 4));
    const Recovered recovered(Unfinished(builder.Build()));
    EXPECT_EQ(recovered.report.grid.columns, 8U);
    EXPECT_EQ(recovered.report.grid.rows, 4U);
    EXPECT_EQ(recovered.report.pointsSaved, 32U);
    EXPECT_FALSE(recovered.report.anglesFitted);
    EXPECT_TRUE(recovered.Warns("no horizontal angles"));
}

TEST(RecoverToFile, ShortPatchesDoNotOverruleThePatchSize) {
    // Most chunks are rows of six values; the scan header and one chunk know the patches.
    kxtest::ScanFileBuilder builder(12, 3, 4, 3);
    for (const uint32_t column : {0U, 1U, 2U})
        builder.Chunk(1, 0, column, kxtest::SnappyChunk(std::vector<float>(6, 5.0F), 6, 1));
    builder.Chunk(4, 0, 1, kxtest::SnappyChunk(std::vector<uint8_t>(12, 5), 4, 3));
    const Bytes file = builder.Build();
    const Recovered recovered(file);
    EXPECT_EQ(recovered.report.gridSource, RecoveredGrid::ScanHeader);
    EXPECT_EQ(recovered.report.grid.patchWidth, 4U);
    for (const StoredChunk& chunk : ChunksOf(file))
        EXPECT_TRUE(recovered.Holds(file, chunk));
}

TEST(RecoverToFile, LostScanHeaderIsReplacedByTableAndPreview) {
    const Bytes original = SampleScan().Write();
    Bytes damaged = original;
    const kxio::MainFileHeader header = MainHeaderOf(original);
    Zero(damaged, header.scanHeaderPosition, header.lookupTablePosition);
    const Recovered recovered(damaged);
    const kxbase::GridTopology& grid = recovered.reader.GetScanInformation().grid;
    EXPECT_EQ(grid.columns, 77U);
    EXPECT_EQ(grid.rows, 59U);
    EXPECT_EQ(recovered.report.gridSource, RecoveredGrid::Chunks);
    EXPECT_EQ(recovered.report.chunksLost, 0U);
    // What the extended records hold is kept all the same.
    const kxio::ScanProperties& p = recovered.reader.GetScanInformation();
    EXPECT_EQ(p.messages, (std::list<std::wstring>{L"first message"}));
    EXPECT_EQ(p.warnings.back(), L"an old warning");
    EXPECT_EQ(p.scanningMode, L"Level 2");
    EXPECT_EQ(p.colorizationMode, L"panorama");
    EXPECT_EQ(p.hqLinks.size(), 1U);
    EXPECT_EQ(p.erLinks.size(), 1U);
    EXPECT_EQ(p.hdrLinks.size(), 1U);
    EXPECT_EQ(p.preregistrationValue, 2.5);
    EXPECT_EQ(p.parentUUID, kxbase::UUID(L"01020304-0506-0708-090a-0b0c0d0e0f10"));
    InMemoryStream before(original);
    EXPECT_EQ(p.scanUUID, kxio::QSNScanReader(&before).GetScanInformation().scanUUID);
}

struct DamagedField {
    const char* name;
    uint64_t offset;  // in the scan header's payload
    Bytes value;
};

TEST(RecoverToFile, DamagedFieldsOfTheScanHeaderArePutRight) {
    const Bytes original = SampleScan().Write();
    const kxio::MainFileHeader header = MainHeaderOf(original);
    const auto chunks = ChunksOf(original);
    const Bytes notANumber = {0, 0, 0, 0, 0, 0, 0xf8, 0x7f};
    for (const DamagedField& field :
         {DamagedField{"rows", 32, {0, 0, 0, 0}}, DamagedField{"rows", 32, {1, 0, 0, 0}},
          DamagedField{"rows", 32, {0xff, 0xff, 0xff, 0xff}}, DamagedField{"columns", 36, {0, 0, 0, 0}},
          DamagedField{"columns", 36, {20, 0, 0, 0}}, DamagedField{"columns", 36, {0, 0, 0, 0x40}},
          DamagedField{"patch width", 40, {0, 0, 0, 0}}, DamagedField{"patch width", 40, {17, 0, 0, 0}},
          DamagedField{"patch width", 40, {0xff, 0xff, 0xff, 0x7f}}, DamagedField{"row step", 0, notANumber},
          DamagedField{"column start", 24, notANumber}}) {
        for (const bool withTable : {true, false}) {
            SCOPED_TRACE(std::string(field.name) + (withTable ? " with" : " without") + " lookup table");
            Bytes damaged = original;
            std::copy(
                field.value.begin(), field.value.end(),
                damaged.begin() + static_cast<std::ptrdiff_t>(header.scanHeaderPosition + 16 + field.offset));
            if (!withTable) {
                Zero(damaged, header.lookupTablePosition, header.thumbnailHeaderPosition);
                Zero(damaged, header.previewLookupTablePosition, header.boundingInformationPosition);
            }
            const Recovered recovered(damaged);
            EXPECT_EQ(recovered.report.gridSource, RecoveredGrid::ScanHeaderAndChunks);
            EXPECT_EQ(recovered.report.chunksRecovered, chunks.size());
            for (const StoredChunk& chunk : chunks)
                EXPECT_TRUE(recovered.Holds(original, chunk));
            const kxbase::GridTopology& grid = recovered.reader.GetScanInformation().grid;
            EXPECT_EQ(grid.PatchesPerRow(), 5U);
            EXPECT_EQ(grid.PatchesPerColumn(), 4U);
            EXPECT_NEAR(grid.rowAngularStep, SampleScan::kStep, 1e-6F);
            EXPECT_NEAR(grid.columnStartAngle, SampleScan::kColumnStart, 1e-4F);
            EXPECT_EQ(recovered.reader.GetScanInformation().scannerModel, L"Ostrak RM7");
        }
    }
}

// --- Chunks --------------------------------------------------------------------------------------------

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

// --- Tail ----------------------------------------------------------------------------------------------

TEST(RecoverToFile, RecordsOfUnknownKindsAndAppendedOnesAreCarriedOver) {
    Bytes file = SampleScan().Write();
    const auto append = [&](const Bytes& record) { file.insert(file.end(), record.begin(), record.end()); };
    const Bytes data = kxtest::ByteList().Text("whatever this is");
    append(kxtest::ExtendedRecord(0x1122334455667788ULL, data, 12345));
    append(kxtest::ExtendedRecord(0xac14e2e7714a591eULL, kxtest::ByteList().Text("appended later")));
    append(kxtest::ExtendedRecord(0xbfb6c3129e0b3496ULL, kxtest::ByteList().Text("no identifier")));
    const Recovered recovered(file);
    EXPECT_EQ(recovered.reader.GetMessageList(),
              (std::list<std::wstring>{L"first message", L"appended later"}));
    EXPECT_EQ(recovered.reader.GetScanInformation().hqLinks.size(), 1U);
    const auto tail = TailOf(recovered.out.GetBytes());
    EXPECT_EQ(tail.back().GetType(), 0x1122334455667788ULL);
    EXPECT_EQ(tail.back().GetLink(), 0U);
    EXPECT_EQ(DataOf(tail.back()), data);
}

TEST(RecoverToFile, RecoveringTwiceKeepsEverythingAndAddsOneWarning) {
    const Bytes once = Recovered(SampleScan().Write()).out.GetBytes();
    const Recovered twice(once);
    EXPECT_EQ(twice.report.chunksRecovered, 126U);
    EXPECT_EQ(twice.reader.GetWarningList().size(), 3U);
    EXPECT_EQ(twice.reader.GetMessageList().size(), 1U);
}

// --- Nothing there, nothing sensible there -------------------------------------------------------------

TEST(RecoverToFile, FileWithoutScanDataIsAnError) {
    for (const Bytes& bytes : {Bytes{}, Bytes(1, 0), Bytes(100000, 0x5a), Bytes(5000, 0)}) {
        InMemoryStream in(bytes);
        InMemoryStream out;
        ExpectFailure<kxbase::KXIncompleteFileException>("Nothing to recover",
                                                         [&] { kxio::RecoverToStream(in, out); });
    }
}

TEST(RecoverToFile, ScanHeaderAloneYieldsAScanWithoutPatches) {
    const Bytes original = SampleScan().Write();
    Bytes damaged = original;
    Zero(damaged, 0, MainHeaderOf(original).scanHeaderPosition);
    Zero(damaged, MainHeaderOf(original).lookupTablePosition, original.size());
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.report.chunksFound, 0U);
    EXPECT_TRUE(recovered.reader.GetAvailableComponents().empty());
    EXPECT_EQ(recovered.reader.GetScanInformation().grid.columns, 77U);
    EXPECT_EQ(recovered.reader.GetScanInformation().scannerModel, L"Ostrak RM7");
}

TEST(RecoverToFile, GridBeyondAllMeasureIsNotBelieved) {
    kxtest::ScanFileBuilder builder(0xffffffffU, 0xffffffffU, 1, 1);
    builder.withLookupTable = false;
    {
        InMemoryStream in(builder.Build());
        InMemoryStream out;
        ExpectFailure<kxbase::KXIncompleteFileException>("Nothing to recover",
                                                         [&] { kxio::RecoverToStream(in, out); });
    }
    kxtest::ScanFileBuilder small(4, 4, 2, 2);
    small.withLookupTable = false;
    small.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>(4, 1.0F), 2, 2));
    small.properties.grid = builder.properties.grid;
    const Recovered recovered(small.Build());
    EXPECT_EQ(recovered.report.grid.PatchCount(), 1U);
    EXPECT_EQ(recovered.report.chunksRecovered, 1U);
}

TEST(RecoverToFile, ChunksThatClaimEachOthersBytesEndInBoundedTime) {
    // Each record claims all the bytes behind it and has a codec header that looks right.
    kxtest::ByteList bytes;
    const uint64_t count = 20000;
    const uint64_t each = 32 + 28;
    for (uint64_t i = 0; i < count; ++i) {
        const auto left = static_cast<uint32_t>((count - i - 1) * each + 28 - (i + 1 < count ? 1 : 0));
        const auto n = static_cast<uint32_t>(i);
        bytes.Raw(kxtest::Record(kxtest::kChunkRecord, kxtest::ByteList().U32(left).U32(1).U32(0).U32(n)));
        bytes.Raw(kxtest::ChunkHeader(kxtest::kZLibCodec, 100, 100, 40000, 1.0F, 40000));
    }
    InMemoryStream in(bytes.Get());
    InMemoryStream out;
    const RecoveryReport report = kxio::RecoverToStream(in, out);
    EXPECT_EQ(report.chunksRecovered, 0U);
    EXPECT_EQ(report.chunksFound, count);
}

TEST(RecoverToFile, PatchesWithHugeElementsGetNoPreview) {
    const Bytes big(1 << 20, 7);
    kxtest::ScanFileBuilder builder(4, 4, 2, 2);
    Bytes chunk;
    kxcodecs::ZLibChunkCodec().Encode(big.data(), 2, 2, big.size(), 1.0F, chunk);
    builder.Chunk(10, 0, 0, chunk);
    builder.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>(4, 5.0F), 2, 2));
    const Recovered recovered(builder.Build());
    EXPECT_EQ(recovered.Chunk(ComponentType(10), 0, 0), chunk);
    EXPECT_EQ(recovered.reader.GetAvailablePreviews(), (std::vector<ComponentType>{kxbase::Range}));
}

/// A file that refuses to give some of its bytes, as a bad disk does.
class BadDisk : public kxbase::IInFileStream {
public:
    BadDisk(Bytes bytes, uint64_t badFrom, uint64_t badTo)
        : m_stream(std::move(bytes)), m_from(badFrom), m_to(badTo) {}
    bool IsOpen() const override { return true; }
    bool Seek(uint64_t p) override { return m_stream.Seek(p); }
    bool SeekForward(uint64_t n) override { return m_stream.SeekForward(n); }
    bool SeekBackward(uint64_t n) override { return m_stream.SeekBackward(n); }
    bool SeekEnd(uint64_t n) override { return m_stream.SeekEnd(n); }
    uint64_t Tell() const override { return m_stream.Tell(); }
    uint64_t Read(void* out, uint64_t bytes) override {
        const uint64_t at = m_stream.Tell();
        if (at >= m_from && at < m_to) return 0;
        return m_stream.Read(out, at < m_from ? std::min(bytes, m_from - at) : bytes);
    }
    uint64_t GetLastReadCount() const override { return m_stream.GetLastReadCount(); }
    uint64_t GetSize() const override { return m_stream.GetSize(); }
    bool HasDataLeft() const override { return m_stream.HasDataLeft(); }
    void Close() override { m_stream.Close(); }

private:
    InMemoryStream m_stream;
    uint64_t m_from;
    uint64_t m_to;
};

TEST(RecoverToFile, WhatLiesBehindABadSectorIsRecovered) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const uint64_t from = 4096 * 2;
    const uint64_t to = from + 4096;
    BadDisk disk(original, from, to);
    InMemoryStream out;
    const RecoveryReport report = kxio::RecoverToStream(disk, out);
    EXPECT_GT(report.unreadableBytes, 0U);
    EXPECT_LE(report.unreadableBytes, 4096U);
    const kxio::QSNScanReader reader(&out);
    uint64_t whole = 0;
    for (const StoredChunk& chunk : chunks) {
        if (chunk.record < to && chunk.end > from) continue;
        ++whole;
        Bytes bytes;
        reader.GetPatchCompressed(chunk.row, chunk.column, bytes, chunk.component);
        EXPECT_EQ(bytes, Piece(original, chunk.data, chunk.end));
    }
    EXPECT_GT(whole, 100U);
}

// --- Files ---------------------------------------------------------------------------------------------

TEST(RecoverToFile, OutputAppearsWholeAndTheDamagedFileIsUntouched) {
    const TemporaryFolder folder;
    Bytes damaged = SampleScan().Write();
    damaged.resize(damaged.size() / 2);
    const std::wstring in = folder / "damaged.qsn";
    const std::wstring out = kxbase::Decode_UTF8((folder.Path() / "gerettet-\xc3\xa4.qsn").string());
    WriteBytes(in, damaged);
    WriteBytes(out, Bytes(10, 1));  // replaced
    const RecoveryReport report = kxio::RecoverToFile(in, out);
    EXPECT_GT(report.chunksRecovered, 50U);
    EXPECT_EQ(ReadBytes(in), damaged);
    const kxio::QSNScanReader reader(out);
    EXPECT_EQ(reader.GetValidPointCount(), report.pointsSaved);
    size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.Path()))
        ++files;
    EXPECT_EQ(files, 2U);
}

TEST(RecoverToFile, FailureLeavesNothingBehind) {
    const TemporaryFolder folder;
    const Bytes good = SampleScan().Write();
    const std::wstring in = folder / "damaged.qsn";
    const std::wstring out = folder / "out.qsn";
    WriteBytes(in, good);
    const auto filesIn = [&] {
        size_t files = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.Path()))
            ++files;
        return files;
    };
    struct Stop {};
    uint64_t last = 0;
    uint64_t total = 0;
    kxio::RecoveryOptions options;
    options.progress = [&](uint64_t done, uint64_t all) {
        EXPECT_GE(done, last);
        EXPECT_LE(done, all);
        last = done;
        total = all;
        if (done > all * 3 / 4) throw Stop();
    };
    EXPECT_THROW(kxio::RecoverToFile(in, out, options), Stop);
    EXPECT_EQ(total, 2 * good.size());
    EXPECT_EQ(filesIn(), 1U);

    ExpectFailure<kxbase::KXHeaderReadingException>("Cannot open file",
                                                    [&] { kxio::RecoverToFile(folder / "missing", out); });
    ExpectFailure<kxbase::KXBadInputException>("Output is the damaged file",
                                               [&] { kxio::RecoverToFile(in, in); });
    ExpectFailure<kxbase::KXFileNotOpenException>(
        "Cannot file not open", [&] { kxio::RecoverToFile(in, folder / "no such folder/out.qsn"); });
    WriteBytes(folder / "junk", Bytes(100, 3));
    ExpectFailure<kxbase::KXIncompleteFileException>("Nothing to recover",
                                                     [&] { kxio::RecoverToFile(folder / "junk", out); });
    std::filesystem::create_directory(folder.Path() / "taken");
    ExpectFailure<kxbase::KXWritingException>("Cannot write file",
                                              [&] { kxio::RecoverToFile(in, folder / "taken"); });
    EXPECT_EQ(filesIn(), 3U);  // the scan, the junk, the folder
    EXPECT_EQ(ReadBytes(in), good);
}

TEST(RecoverToFile, ProgressGoesFromNothingToAll) {
    InMemoryStream in(SampleScan().Write());
    InMemoryStream out;
    uint64_t last = 0;
    uint64_t calls = 0;
    kxio::RecoveryOptions options;
    options.progress = [&](uint64_t done, uint64_t total) {
        EXPECT_EQ(total, 2 * in.GetSize());
        EXPECT_GE(done, last);
        last = done;
        ++calls;
    };
    kxio::RecoverToStream(in, out, options);
    EXPECT_EQ(last, 2 * in.GetSize());
    EXPECT_GT(calls, 100U);
}

}  // namespace
