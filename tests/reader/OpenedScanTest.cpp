// SPDX-License-Identifier: MIT
// What a reader that was opened tells: grid, previews, information, the scan header's fields.
#include <gtest/gtest.h>

#include "SampleScans.h"
#include "support/TemporaryFile.h"

namespace {

using kxio::QSNScanReader;
using kxio::ScanProperties;
using namespace kxtest;

TEST(Opening, GridWithoutPatchesOpens) {
    for (const auto& [width, height] : {std::pair(0U, 3U), std::pair(4U, 0U), std::pair(0U, 0U)}) {
        ScanFileBuilder file(4, 3, 4, 3);
        file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 3.0F), 4, 3));
        file.properties.grid.patchWidth = width;
        file.properties.grid.patchHeight = height;
        MemoryScan scan(file.Build());
        EXPECT_EQ(scan.reader.GetPatchNumber(), 0U);
        Bytes chunk;
        EXPECT_EQ(Failure([&] { scan.reader.GetPatchCompressed(0, chunk, kxbase::Range); }),
                  "KXUnreadablePatchException: Index 0 is outside bounds");
    }
}

TEST(Opening, PatchNumberIsTheProductOfBothDirections) {
    ScanFileBuilder file(1, 1, 1, 1);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>{1}, 1, 1));
    file.properties.grid.columns = 10000;
    file.properties.grid.rows = 5000;
    file.properties.grid.patchWidth = 512;
    file.properties.grid.patchHeight = 512;
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetPatchNumber(), 200U);
}

TEST(Opening, PatchNumberAboveThirtyTwoBitsIsCutAndSizesNothing) {
    ScanFileBuilder file(1, 1, 1, 1);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>{1}, 1, 1));
    file.properties.grid.columns = 0xffffffffU;
    file.properties.grid.rows = 0xffffffffU;
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetPatchNumber(), 1U);  // (2^32 - 1)^2 modulo 2^32
    std::vector<kxbase::ImageCoordinates> order;
    scan.reader.GetOrderedPatchList(order, kxbase::Range);
    EXPECT_EQ(order.size(), 1U);
}

TEST(Opening, FileWithoutPreviewsHasNoPreviewSize) {
    ScanFileBuilder file(10, 7, 4, 3);
    AddLayer<float>(file, 1, RangeAt);
    MemoryScan scan(file.Build());
    const kxbase::GridTopology grid = scan.reader.Grid();
    EXPECT_EQ(grid.previewWidth, 0U);
    EXPECT_EQ(grid.previewHeight, 0U);
    EXPECT_EQ(grid.columnRatio, 1.0F);
    EXPECT_EQ(grid.rowRatio, 1.0F);
    EXPECT_TRUE(scan.reader.GetAvailablePreviews().empty());
}

TEST(Opening, PreviewSizeIsThatOfTheFirstPreview) {
    MemoryScan scan(SmallScan().Build());
    const kxbase::GridTopology grid = scan.reader.Grid();
    EXPECT_EQ(grid.previewWidth, 3U);
    EXPECT_EQ(grid.previewHeight, 2U);
    EXPECT_EQ(grid.columnRatio, 10.0F / 3.0F);
    EXPECT_EQ(grid.rowRatio, 3.5F);
}

TEST(Opening, PreviewWithoutSizeLeavesTheRatiosAtOne) {
    for (const Bytes& chunk : {Bytes(5, 1), ChunkHeader(kSnappyCodec, 0, 2, 0, 1, 0)}) {
        ScanFileBuilder file(10, 7, 4, 3);
        AddLayer<float>(file, 1, RangeAt);
        file.Preview(1, chunk);
        MemoryScan scan(file.Build());
        EXPECT_EQ(scan.reader.Grid().columnRatio, 1.0F);
        EXPECT_EQ(scan.reader.Grid().rowRatio, 1.0F);
    }
}

TEST(Opening, HalfStepsAreHalfOfTheSteps) {
    MemoryScan scan(SmallScan().Build());
    EXPECT_EQ(scan.reader.Grid().columnHalfStep, scan.reader.Grid().columnAngularStep * 0.5F);
    EXPECT_EQ(scan.reader.Grid().rowHalfStep, scan.reader.Grid().rowAngularStep * 0.5F);
}

TEST(Opening, PreviewStoredBeforeTheFirstChunkIsFound) {
    ScanFileBuilder file(4, 3, 4, 3);
    const Bytes preview = SnappyChunk(std::vector<float>{5, 6}, 2, 1);
    file.RawBytes(preview);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 3.0F), 4, 3));
    file.Preview(1, preview);
    Bytes bytes = file.Build();
    PutU64(bytes, GetMainField(bytes, MainField::PreviewLookupTable) + 28, 92);
    MemoryScan scan(bytes);
    EXPECT_EQ(kxio::ScanAccess(scan.reader).PreviewEntry(kxbase::Range)->position, 92U);
    EXPECT_EQ(kxio::ScanAccess(scan.reader).ReadPreview<float>(kxbase::Range).values,
              (std::vector<float>{5, 6}));
}

TEST(Opening, ScanInformationNeedsAnOpenFile) {
    QSNScanReader reader;
    ScanProperties properties;
    EXPECT_EQ(Failure([&] { reader.GetScanInformation(properties); }),
              "KXFileNotOpenException: No file open");
    kxbase::InMemoryStream stream(SmallScan().Build());
    reader.Open(&stream);
    reader.GetScanInformation(properties);
    EXPECT_EQ(properties, reader.GetScanInformation());
    reader.Close();
    EXPECT_EQ(Failure([&] { reader.GetScanInformation(properties); }),
              "KXFileNotOpenException: No file open");
}

TEST(Opening, StaticScanInformationIsThatOfAnOpenReader) {
    ScanFileBuilder builder = SmallScan();
    builder.properties.scannerModel = L"a model";
    builder.properties.validPointCount = 12;
    const TemporaryFile file(L"static.qsn", builder.Build());
    const std::wstring path = file.Path();
    ScanProperties properties;
    QSNScanReader::GetScanInformation(properties, path);
    const QSNScanReader reader(path, 0);
    EXPECT_EQ(properties, reader.GetScanInformation());
    EXPECT_EQ(properties.scannerModel, L"a model");
    EXPECT_EQ(properties.messages, std::list<std::wstring>{L"hello"});
}

TEST(Opening, TablesStayReadableAfterClose) {
    MemoryScan scan(SmallScan().Build());
    scan.reader.Close();
    EXPECT_TRUE(scan.reader.IsComponentAvailable(kxbase::Range));
    EXPECT_EQ(scan.reader.GetMessageList().size(), 1U);
}

TEST(Opening, WriterRevisionTellsWhetherPreviewRatiosCanBeTrusted) {
    for (const auto& [revision, issue] :
         {std::pair(210U, true), std::pair(239U, true), std::pair(240U, false), std::pair(250U, false)}) {
        ScanFileBuilder file = SmallScan();
        file.writerRevision = revision;
        MemoryScan scan(file.Build());
        EXPECT_EQ(scan.reader.HasPreviewSamplingRatioIssue(), issue) << revision;
        EXPECT_EQ(scan.reader.GetScanInformation().writerRevision, revision);
    }
}

TEST(Opening, AccessorsGiveTheScanHeadersFields) {
    ScanFileBuilder file = SmallScan();
    file.properties.validPointCount = 321;
    file.properties.speckleCorrectionNeeded = true;
    file.properties.spatialSamplingDistance = 2.5F;
    file.properties.locked3D = true;
    const kxbase::RegistrationInformation registration(kxbase::Frame3D(), {1, 2, 3});
    file.properties.registration = registration;
    const kxbase::UUID scanUUID = kxbase::UUID::Generate();
    const kxbase::UUID parentUUID = kxbase::UUID::Generate();
    ByteList uuids;
    for (const auto& uuid : {scanUUID, parentUUID}) {
        for (const unsigned char byte : uuid.ToBytes())
            uuids.U8(byte);
    }
    file.Tail(ExtendedRecord(0x84968181ef2d2134ULL, uuids));
    MemoryScan scan(file.Build());
    EXPECT_EQ(scan.reader.GetValidPointCount(), 321U);
    EXPECT_TRUE(scan.reader.IsSpeckleCorrectionNeeded());
    EXPECT_EQ(scan.reader.GetSpatialSamplingDistance(), 2.5F);
    EXPECT_TRUE(scan.reader.Is3DLocked());
    EXPECT_EQ(scan.reader.GetRegistrationInformation(), registration);
    EXPECT_EQ(scan.reader.GetScanUUID(), scanUUID);
    EXPECT_EQ(scan.reader.GetParentUUID(), parentUUID);
}

}  // namespace
