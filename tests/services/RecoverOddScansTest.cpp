// SPDX-License-Identifier: MIT
// Scans that recovery meets once in a while: turning the other way, with more of something than one expects,
// or with records that lie in the wrong places.
#include <gtest/gtest.h>

#include "RecoveredFile.h"
#include "kxbase/kxOutFile.h"
#include "kxcodecs/JPEG.h"
#include "kxio/QSNFileRecovery.h"

namespace {

using namespace recovery_test;
using kxio::RecoveredGrid;
using kxtest::ByteList;
using kxtest::ScanFileBuilder;

template <class T>
Bytes ChunkOf(const std::vector<T>& values, uint32_t width, uint32_t height) {
    return kxtest::SnappyChunk(values, width, height);
}

/// Ranges and angles of 8 x 8 cells in patches of 4 x 4, whose angles change by these steps.
Bytes Turning(float columnStep, float rowStep, bool vertical = true) {
    ScanFileBuilder file(8, 8, 4, 4);
    for (uint32_t r = 0; r < 2; ++r) {
        for (uint32_t c = 0; c < 2; ++c) {
            std::vector<float> ranges(16, 5000.0F), down(16), across(16);
            for (uint32_t i = 0; i < 16; ++i) {
                across[i] = 1.5F + columnStep * static_cast<float>(4 * c + i % 4);
                down[i] = 1.0F + rowStep * static_cast<float>(4 * r + i / 4);
            }
            file.Chunk(1, r, c, ChunkOf(ranges, 4, 4));
            if (vertical) file.Chunk(2, r, c, ChunkOf(down, 4, 4));
            file.Chunk(3, r, c, ChunkOf(across, 4, 4));
        }
    }
    return file.Build();
}

TEST(RecoverOddScans, AnglesThatTurnTheOtherWayAreSaid) {
    const Recovered usual(Unfinished(Turning(-0.01F, 0.01F)));
    EXPECT_TRUE(usual.report.anglesFitted);
    EXPECT_FALSE(usual.Warns("the grid can only say"));
    const Recovered other(Unfinished(Turning(0.01F, -0.01F)));
    EXPECT_TRUE(other.report.anglesFitted);
    EXPECT_TRUE(
        other.Warns("the horizontal angles grow with the column; the grid can only say that they fall"));
    EXPECT_TRUE(other.Warns("the vertical angles fall with the row; the grid can only say that they grow"));
    EXPECT_NEAR(other.report.grid.columnAngularStep, 0.01F, 1e-6F);
    EXPECT_NEAR(other.report.grid.rowAngularStep, 0.01F, 1e-6F);
}

TEST(RecoverOddScans, OneKindOfAnglesAloneIsFittedAndTheOtherMissed) {
    const Recovered recovered(Unfinished(Turning(-0.01F, 0.01F, false)));
    EXPECT_FALSE(recovered.report.anglesFitted);
    EXPECT_TRUE(recovered.Warns("no vertical angles to fit the rows of the grid to"));
    EXPECT_FALSE(recovered.Warns("no horizontal angles"));
    EXPECT_NEAR(recovered.report.grid.columnStartAngle, 1.5F, 1e-4F);
}

TEST(RecoverOddScans, AnglesThatAreNoFloatsOrNoWholePatchesTellNothing) {
    ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, ChunkOf(std::vector<float>(16, 5000.0F), 4, 4));
    file.Chunk(2, 0, 0, ChunkOf(std::vector<double>(16, 1.0), 4, 4));
    file.Chunk(3, 0, 0, ChunkOf(std::vector<float>(8, 1.0F), 8, 1));
    const Recovered recovered(Unfinished(file.Build()));
    EXPECT_FALSE(recovered.report.anglesFitted);
    EXPECT_TRUE(recovered.Warns("no horizontal angles"));
    EXPECT_TRUE(recovered.Warns("no vertical angles"));
}

TEST(RecoverOddScans, ListsWithoutAGridKeepTheirWidthWhenTheLastAreLost) {
    ScanFileBuilder file(6, 1, 1, 1);
    for (uint32_t c = 0; c < 6; ++c)
        file.Chunk(1, 0, c, ChunkOf(std::vector<float>(10 + c, 5000.0F), 10 + c, 1));
    const Bytes whole = file.Build();
    Bytes damaged = whole;
    const auto chunks = ChunksOf(whole);
    for (const size_t lost : {size_t{4}, size_t{5}})
        Zero(damaged, chunks[lost].record, chunks[lost].end);
    const Recovered recovered(damaged);
    EXPECT_EQ(recovered.report.grid.columns, 6U);
    EXPECT_EQ(recovered.reader.GetScanInformation().grid.columns, 6U);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_TRUE(recovered.Holds(whole, chunks[i]));
    // With none left at all there is nothing to keep the place with.
    Zero(damaged, chunks[0].record, chunks[5].end);
    const Recovered empty(damaged);
    EXPECT_EQ(empty.report.chunksRecovered, 0U);
}

TEST(RecoverOddScans, ClassesAndSegmentsAreCountedAnew) {
    for (const bool segments : {false, true}) {
        ScanFileBuilder file(4, 4, 4, 4);
        if (segments)
            file.Chunk(19, 0, 0, ChunkOf(std::vector<uint64_t>(16, 70), 4, 4));
        else
            file.Chunk(18, 0, 0, ChunkOf(std::vector<uint32_t>(16, 7), 4, 4));
        const Recovered recovered(Unfinished(file.Build()));
        const auto& rebuilt = recovered.report.rebuilt;
        EXPECT_NE(std::find(rebuilt.begin(), rebuilt.end(), "histograms"), rebuilt.end());
        EXPECT_TRUE(recovered.reader.IsHistogramAvailable(segments ? kxbase::Segment : kxbase::Class));
    }
}

TEST(RecoverOddScans, OfSeveralScanHeadersTheNamedOneIsTaken) {
    ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, ChunkOf(std::vector<float>(16, 5000.0F), 4, 4));
    kxio::ScanHeader other;
    other.properties = file.properties;
    other.properties.scannerModel = L"the other";
    file.properties.scannerModel = L"the one";
    const Bytes more = kxtest::Written(other);
    // In front of the one that the main header names, and, where no main header is left, behind it.
    const Recovered named(file.RawBytes(more).Build());
    EXPECT_EQ(named.reader.GetScanInformation().scannerModel, L"the one");
    EXPECT_TRUE(named.Warns("several scan headers found"));
    Bytes headless = ByteList().Raw(file.Build()).Raw(more);
    Zero(headless, 0, 92);
    const Recovered last(headless);
    EXPECT_EQ(last.reader.GetScanInformation().scannerModel, L"the other");
    EXPECT_TRUE(last.Warns("several scan headers found"));
}

TEST(RecoverOddScans, LinksThatLeadNowhereAndImagesThatAreNoneAreLeftOut) {
    ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, ChunkOf(std::vector<float>(16, 5000.0F), 4, 4));
    file.Thumbnail(Bytes(100, 0x11), 8, 8);
    for (const uint64_t kind : {0xbfb6c3129e0b3496ULL})
        file.Tail(kxtest::ExtendedRecord(kind, ByteList().Text("no identifier")));
    file.Message("kept");
    const Recovered recovered(file.Build());
    const kxio::ScanProperties& p = recovered.reader.GetScanInformation();
    EXPECT_TRUE(p.hqLinks.empty() && p.erLinks.empty() && p.hdrLinks.empty());
    EXPECT_EQ(p.messages, (std::list<std::wstring>{L"kept"}));
    EXPECT_FALSE(recovered.report.thumbnailKept);
}

TEST(RecoverOddScans, VeryLargeExtendedRecordsAreNotCopied) {
    ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, ChunkOf(std::vector<float>(16, 5000.0F), 4, 4));
    file.Message("kept");
    file.Tail(kxtest::ExtendedRecord(0x1234, Bytes((16 << 20) + 1, 5)));
    const Recovered recovered(file.Build());
    EXPECT_TRUE(recovered.Warns("1 very large extended records (histograms, as a rule) were not copied"));
    EXPECT_EQ(recovered.report.extendedRecordsFound, 2U);
    EXPECT_EQ(recovered.reader.GetScanInformation().messages, (std::list<std::wstring>{L"kept"}));
    EXPECT_LT(recovered.out.GetBytes().size(), 1U << 20);
}

TEST(RecoverOddScans, ATailWithAGapBetweenItsRecordsIsCollectedAllTheSame) {
    ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, ChunkOf(std::vector<float>(16, 5000.0F), 4, 4));
    file.Message("one").Tail(Bytes(33, 0xee)).Message("two");
    const Recovered recovered(file.Build());
    EXPECT_EQ(recovered.reader.GetScanInformation().messages, (std::list<std::wstring>{L"one", L"two"}));
}

TEST(RecoverOddScans, MoreComponentsThanAnybodyHasAreCutToTheCommonOnes) {
    ScanFileBuilder file(8, 4, 4, 4);
    // 300 kinds with one patch, and two with two.
    for (uint32_t component = 1000; component < 1300; ++component)
        file.Chunk(component, 0, 0, ChunkOf(std::vector<uint8_t>(16, 1), 4, 4));
    for (const uint32_t component : {1U, 4U}) {
        for (const uint32_t column : {0U, 1U}) {
            if (component == 1)
                file.Chunk(1, 0, column, ChunkOf(std::vector<float>(16, 5000.0F), 4, 4));
            else
                file.Chunk(4, 0, column, ChunkOf(std::vector<uint8_t>(16, 9), 4, 4));
        }
    }
    const Recovered recovered(Unfinished(file.Build()));
    EXPECT_TRUE(recovered.Warns("only 256 of 302 components were recovered"));
    EXPECT_EQ(recovered.reader.GetAvailableComponents().size(), 256U);
    EXPECT_EQ(recovered.Of(kxbase::Range).recovered, 2U);
    EXPECT_EQ(recovered.Of(kxbase::Luminance8).recovered, 2U);
}

TEST(RecoverOddScans, ChunksOfTwoShapesLeaveTheGridAtWholePatches) {
    // The last column has values up to its second cell, but one of its chunks is of another shape.
    ScanFileBuilder file(6, 4, 4, 4);
    std::vector<uint8_t> part(16, 0);
    for (const size_t i : {0U, 1U, 4U, 5U})
        part[i] = 3;
    for (const bool odd : {false, true}) {
        ScanFileBuilder scan = file;
        scan.Chunk(4, 0, 0, ChunkOf(std::vector<uint8_t>(16, 9), 4, 4));
        scan.Chunk(4, 0, 1, odd ? ChunkOf(part, 8, 2) : ChunkOf(part, 4, 4));
        scan.Chunk(5, 0, 0, ChunkOf(std::vector<uint16_t>(16, 9), 4, 4));
        const Recovered recovered(Unfinished(scan.Build()));
        EXPECT_EQ(recovered.report.grid.columns, odd ? 8U : 6U);
        EXPECT_EQ(recovered.Warns("the grid ends with the last column and row that hold a value: 6 x "),
                  !odd);
    }
}

TEST(RecoverOddScans, AFileThatSomebodyElseWritesIsNotExportedInto) {
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", SampleScan().Write());
    const kxbase::kxOutFile held(folder / "points.txt");
    ASSERT_TRUE(held.IsOpen());
    kxio::QSNFileRecovery recovery(folder / "scan.qsn");
    try {
        recovery.ExportAscii(folder / "points.txt");
        ADD_FAILURE() << "two wrote one file";
    } catch (const kxbase::KXException& e) {
        EXPECT_NE(e.Describe().find("another one is writing or editing it"), std::string::npos)
            << e.Describe();
    }
}

}  // namespace
