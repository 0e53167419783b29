// SPDX-License-Identifier: MIT
// Headers and tables gone.
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

TEST(RecoverToFile, APatchOfWhichOnlyARowWasHandedOverFitsTheGrid) {
    // The writer stores its six values as one row: a patch of 4 x 3 cells, not one of 6 x 1.
    InMemoryStream stream;
    kxio::QSNScanWriter writer;
    kxbase::GridTopology grid = SampleScan().Grid();
    grid.columns = grid.patchWidth = 4;
    grid.rows = grid.patchHeight = 3;
    writer.CreateNew(&stream, grid);
    kxcodecs::SnappyChunkCodec codec;
    std::vector<float> values(6, 5000.0F);
    kxio::FlatPatchDescriptor patch(kxbase::Range, 4, kxio::RowMajor, 1.0, &codec);
    patch.data = reinterpret_cast<unsigned char*>(values.data());
    patch.size = values.size();
    writer.AddPatch({&patch}, 0, 0);
    writer.EndCreation();
    const Recovered recovered(stream.GetBytes());
    EXPECT_EQ(recovered.report.pointsSaved, 6U);
    EXPECT_EQ(recovered.report.gridSource, kxio::RecoveredGrid::ScanHeader);
    EXPECT_EQ(recovered.reader.GetScanInformation().grid.patchWidth, 4U);
    EXPECT_EQ(recovered.reader.GetScanInformation().grid.patchHeight, 3U);
}

}  // namespace
