// SPDX-License-Identifier: MIT
// What reading costs: operations on the stream, bytes, and the lock.
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <optional>
#include <string>

#include "SampleScans.h"
#include "kxio/HistogramHeader.h"
#include "reader/Locks.h"
#include "support/CountingStream.h"
#include "support/TemporaryFile.h"

namespace {

using namespace kxtest;
using kxbase::Range;

constexpr int kMostOperationsOfAnOpen = 40;
constexpr int kMostOperationsOfAPatch = 2;
constexpr size_t kHistogramBytes = 300'000;
constexpr size_t kPreviewSide = 200;
constexpr size_t kThumbnailBytes = 70'000;

float AngleAt(uint32_t row, uint32_t column) {
    return static_cast<float>(row + column) * 1e-3F;
}
uint16_t Luminance16At(uint32_t row, uint32_t column) {
    return static_cast<uint16_t>(row * 100 + column);
}
uint32_t ClassAt(uint32_t row, uint32_t column) {
    return row ^ column;
}

// Ten components, messages, a large preview, thumbnail and histograms.
Bytes FullScan(uint32_t columns, uint32_t rows, uint32_t patchSide, unsigned messages = 5) {
    ScanFileBuilder file(columns, rows, patchSide, patchSide);
    AddLayer<float>(file, 1, RangeAt, 10.0F);
    AddLayer<float>(file, 2, AngleAt);
    AddLayer<float>(file, 3, AngleAt);
    AddLayer<uint8_t>(file, 4, LuminanceAt);
    AddLayer<uint16_t>(file, 5, Luminance16At);
    AddLayer<kxio::Rgb8>(file, 6, ColorAt);
    AddLayer<uint32_t>(file, 18, ClassAt);
    // Different values everywhere, so that the chunk is as long as they are.
    std::vector<float> preview(kPreviewSide * kPreviewSide);
    for (size_t i = 0; i < preview.size(); ++i)
        preview[i] = static_cast<float>(i * 7919 % 10007);
    file.Preview(1, SnappyChunk(preview, kPreviewSide, kPreviewSide));
    file.Thumbnail(Bytes(kThumbnailBytes, 9), 10, 10);
    file.Limits(1, 2, std::vector<std::pair<float, float>>(file.properties.grid.PatchCount(), {1, 2}));
    for (unsigned i = 0; i < messages; ++i)
        file.Message("message " + std::to_string(i));
    file.Tail(ExtendedRecord(kxio::Luminance8HistogramHeader::Type, Bytes(kHistogramBytes, 1)));
    file.Tail(ExtendedRecord(kxio::Luminance16HistogramHeader::Type, Bytes(kHistogramBytes, 2)));
    file.Message("last");
    return file.Build();
}

struct CountedScan {
    explicit CountedScan(const Bytes& bytes) : stream(bytes), reader(&stream) {}
    CountingStream stream;
    OpenReader reader;
};

uint64_t StoredBytes(const kxio::QSNScanReader& reader, kxbase::ComponentType component, uint32_t index) {
    return kxio::ScanAccess(reader).PatchEntries(component)[index].byteCount;
}

TEST(CostOfOpening, IsBoundedWhateverTheSizeOfTheFile) {
    std::vector<int> operations;
    for (const uint32_t side : {16U, 64U, 320U}) {
        const Bytes bytes = FullScan(side, side, 8);
        CountedScan scan(bytes);
        EXPECT_EQ(scan.reader.GetAvailableComponents().size(), 7U);
        EXPECT_EQ(scan.reader.GetAvailableHistograms().size(), 2U);
        EXPECT_EQ(scan.reader.GetMessageList().size(), 6U);
        EXPECT_LE(scan.stream.Operations(), kMostOperationsOfAnOpen) << side;
        operations.push_back(scan.stream.reads);
    }
    // The largest table does not fit a window, and no window holds two records any more.
    EXPECT_LE(operations.back(), operations.front() + 2);
}

TEST(CostOfOpening, ThousandMessagesAreReadInBlocks) {
    CountedScan scan(FullScan(16, 16, 8, 1000));
    EXPECT_EQ(scan.reader.GetMessageList().size(), 1001U);
    EXPECT_LE(scan.stream.Operations(), kMostOperationsOfAnOpen);
}

TEST(CostOfOpening, LeavesHistogramsPreviewsThumbnailAndChunksUnread) {
    const Bytes bytes = FullScan(64, 64, 32);
    ASSERT_GT(bytes.size(), 2 * kHistogramBytes + kPreviewSide * kPreviewSide * 4 + kThumbnailBytes);
    CountedScan scan(bytes);
    EXPECT_LT(scan.stream.bytesRead, 200'000U);
}

TEST(CostOfOpening, SizeIsAskedOnce) {
    CountedScan scan(FullScan(64, 64, 32));
    EXPECT_EQ(scan.stream.sizes, 1);
}

TEST(CostOfAPatch, IsOneSeekAndOneReadOfItsOwnBytes) {
    CountedScan scan(FullScan(64, 48, 16));
    const kxio::ScanAccess access(scan.reader);
    for (const kxbase::ComponentType component : scan.reader.GetAvailableComponents()) {
        for (uint32_t index = 0; index < 12; ++index) {
            scan.stream.Reset();
            access.ReadPatchBytes(component, index / 4, index % 4, access.ElementBytes(component));
            EXPECT_LE(scan.stream.Operations(), kMostOperationsOfAPatch);
            EXPECT_EQ(scan.stream.bytesRead, StoredBytes(scan.reader, component, index));
        }
    }
}

TEST(CostOfAPatch, PointsCostTheThreeChunksTheyAreMadeOf) {
    CountedScan scan(FullScan(64, 48, 16));
    uint64_t stored = 0;
    for (const auto component : {kxbase::Range, kxbase::VerticalAngle, kxbase::HorizontalAngle})
        stored += StoredBytes(scan.reader, component, 5);
    scan.stream.Reset();
    std::vector<kxbase::tBaseXYZPoint<float>> points;
    scan.reader.Get3DPatch(1, 1, points, false);
    EXPECT_EQ(points.size(), 256U);
    EXPECT_EQ(scan.stream.Operations(), 3 * kMostOperationsOfAPatch);
    EXPECT_EQ(scan.stream.bytesRead, stored);
}

TEST(CostOfALayer, IsTheCostOfItsPatches) {
    CountedScan scan(FullScan(64, 48, 16));
    scan.stream.Reset();
    std::vector<float> layer(64 * 48);
    kxio::ScanAccess(scan.reader).ReadLayer<float>(Range, layer);
    EXPECT_EQ(scan.stream.Operations(), 12 * kMostOperationsOfAPatch);
}

TEST(CostOfOnePart, HistogramCostsItsOwnRecord) {
    CountedScan scan(FullScan(64, 48, 16));
    scan.stream.Reset();
    const auto record = kxio::ScanAccess(scan.reader).ReadHistogramRecord(kxbase::Luminance16);
    EXPECT_EQ(record.GetDataBufferSize(), kHistogramBytes);
    EXPECT_EQ(scan.stream.bytesRead, record.HeaderSize());
    EXPECT_LE(scan.stream.Operations(), 4);
}

TEST(CostOfOnePart, PreviewCostsItsOwnChunk) {
    CountedScan scan(FullScan(64, 48, 16));
    const kxio::ScanAccess access(scan.reader);
    scan.stream.Reset();
    EXPECT_EQ(access.ReadPreview<float>(Range).width, kPreviewSide);
    EXPECT_EQ(scan.stream.bytesRead, access.PreviewEntry(Range)->byteCount);
    EXPECT_LE(scan.stream.Operations(), 2);
}

TEST(CostOfOnePart, ThumbnailCostsItsRecordAndTheMainHeader) {
    CountedScan scan(FullScan(64, 48, 16));
    scan.stream.Reset();
    Bytes jpeg;
    EXPECT_TRUE(scan.reader.GetThumbnailJPEG(jpeg));
    EXPECT_EQ(jpeg.size(), kThumbnailBytes);
    EXPECT_LT(scan.stream.bytesRead, kThumbnailBytes + 200);
    EXPECT_LE(scan.stream.Operations(), 9);
}

TEST(CostOfOnePart, LimitsCostTheirOwnRecord) {
    CountedScan scan(FullScan(64, 48, 16));
    scan.stream.Reset();
    EXPECT_EQ(kxio::ScanAccess(scan.reader).ReadLimits()->patches.size(), 12U);
    EXPECT_EQ(scan.stream.bytesRead, 16U + 12 + 12 * 8);
}

// How many reads this process has asked the system for; nothing where the system does not tell.
std::optional<uint64_t> SystemReads() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    uint64_t value = 0;
    while (counters >> name >> value) {
        if (name == "syscr:") return value;
    }
    return std::nullopt;
}

// Reads of the system during a call, without those that counting costs.
template <class Call>
std::optional<uint64_t> CountSystemReads(Call call) {
    const auto first = SystemReads();
    const auto before = SystemReads();
    call();
    const auto after = SystemReads();
    if (!first || !before || !after) return std::nullopt;
    return *after - *before - (*before - *first);
}

TEST(CostOfAFile, OpenTakesFewSystemReadsAndAPatchOne) {
    const TemporaryFile file(L"scan.qsn", FullScan(320, 320, 8));
    std::optional<kxio::QSNScanReader> reader;
    const auto open = CountSystemReads([&] { reader.emplace(file.Path(), 0); });
    if (!open) GTEST_SKIP() << "this system does not count reads in /proc/self/io";
    EXPECT_LE(*open, 40U);
    Bytes chunk;
    EXPECT_EQ(CountSystemReads([&] { reader->GetPatchCompressed(7, chunk, Range); }), 1U);
    std::vector<float> patch(64);
    const kxio::ScanAccess access(*reader);
    access.ReadPatch<float>(Range, 0, 1, patch);  // what the runtime reads once, it has read then
    EXPECT_EQ(CountSystemReads([&] { access.ReadPatch<float>(Range, 0, 0, patch); }), 1U);
}

TEST(FileLock, IsHeldWhileALentStreamIsRead) {
    CountingStream stream(FullScan(64, 48, 16));
    int reads = 0;
    stream.onRead = [&] {
        ++reads;
        const bool free = std::async(std::launch::async, [] {
                              const std::unique_lock lock(kxio::FileAccessLock(), std::try_to_lock);
                              return lock.owns_lock();
                          }).get();
        EXPECT_FALSE(free);
    };
    const kxio::QSNScanReader reader(&stream);
    const kxio::ScanAccess access(reader);
    access.ReadPatch<float>(Range, 0, 0);
    access.ReadPreview<float>(Range);
    access.ReadLimits();
    access.ReadHistogramRecord(kxbase::Luminance8);
    Bytes jpeg;
    reader.GetThumbnailJPEG(jpeg);
    kxbase::tBasePolarPoint<float> min;
    kxbase::tBasePolarPoint<float> max;
    reader.GetScanBoundingBox(min, max);
    EXPECT_GT(reads, 15);
}

TEST(FileLock, IsNotTakenForAFileThatTheReaderOpened) {
    const TemporaryFile file(L"scan.qsn", FullScan(64, 48, 16));
    std::unique_lock lock(kxio::FileAccessLock());
    auto work = std::async(std::launch::async, [&] {
        const kxio::QSNScanReader reader(file.Path(), 0);
        const kxio::ScanAccess access(reader);
        Bytes jpeg;
        reader.GetThumbnailJPEG(jpeg);
        kxbase::tBasePolarPoint<float> min;
        kxbase::tBasePolarPoint<float> max;
        reader.GetScanBoundingBox(min, max);
        return access.ReadPatch<float>(Range, 0, 0).size() + access.ReadPreview<float>(Range).values.size() +
               access.ReadLimits()->patches.size() +
               access.ReadHistogramRecord(kxbase::Luminance8).GetDataBufferSize() + jpeg.size();
    });
    const bool done = work.wait_for(std::chrono::minutes(1)) == std::future_status::ready;
    lock.unlock();
    EXPECT_TRUE(done);
    EXPECT_EQ(work.get(), 256 + kPreviewSide * kPreviewSide + 12 + kHistogramBytes + kThumbnailBytes);
}

TEST(RememberedSize, FileThatHasGrownSinceIsReadToItsNewEnd) {
    const Bytes bytes = FullScan(64, 48, 16);
    const TemporaryFile file(L"scan.qsn", bytes);
    const kxio::QSNScanReader reader(file.Path(), 0);
    Bytes longer = bytes;
    longer.resize(bytes.size() + 1000, 5);
    file.Write(longer);
    EXPECT_EQ(kxio::ScanAccess(reader).GetFileSize(), longer.size());
    EXPECT_EQ(kxio::ScanAccess(reader).ReadPatch<float>(Range, 2, 3).size(), 256U);
}

TEST(RememberedSize, FileThatHasShrunkSinceEndsTheReadWithItsOwnText) {
    const Bytes bytes = FullScan(64, 48, 16);
    const TemporaryFile file(L"scan.qsn", bytes);
    const OpenReader reader(file.Path(), 0);
    const auto entry = kxio::ScanAccess(reader).PatchEntries(Range)[11];
    file.Write(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(entry.position) + 20));
    Bytes chunk{1};
    const auto read = [&] { reader.GetPatchCompressed(2, 3, chunk, Range); };
    EXPECT_EQ(Failure(read), "KXUnreadablePatchException: Cannot read file");
    EXPECT_TRUE(chunk.empty());
    EXPECT_EQ(FailureContext(read).detail,
              "20 of " + std::to_string(entry.byteCount) + " bytes could be read");
}

}  // namespace
