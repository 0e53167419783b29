// SPDX-License-Identifier: MIT
#include "kxio/RecoverToFile.h"

#include <gtest/gtest.h>

#include "RecoveredFile.h"
#include "kxbase/Exceptions.h"
#include "kxio/HistogramHeader.h"
#include "support/CountingStream.h"

namespace {

using kxbase::ComponentType;
using kxbase::InMemoryStream;
using kxio::RecoveredGrid;
using kxio::RecoveryReport;
using namespace recovery_test;

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

TEST(RecoverToFile, WhatLiesBehindABadSectorIsRecovered) {
    const Bytes original = SampleScan().Write();
    const auto chunks = ChunksOf(original);
    const uint64_t from = 4096 * 2;
    const uint64_t to = from + 4096;
    kxtest::CountingStream disk(original);
    disk.refusedFrom = from;
    disk.refusedEnd = to;
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
