// SPDX-License-Identifier: MIT
// Files made by the writer, read back.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "SampleScans.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/HistogramHeader.h"
#include "kxio/QSNScanWriter.h"
#include "support/TemporaryFile.h"

namespace {

using namespace kxtest;
using kxbase::Range;
using kxio::ScanAccess;

kxbase::GridTopology Grid(uint32_t columns, uint32_t rows, uint32_t patchWidth, uint32_t patchHeight) {
    kxbase::GridTopology grid;
    grid.columnAngularStep = 0.001F;
    grid.rowAngularStep = 0.002F;
    grid.columns = columns;
    grid.rows = rows;
    grid.patchWidth = patchWidth;
    grid.patchHeight = patchHeight;
    return grid;
}

template <class T>
kxio::FlatPatchDescriptor Flat(kxbase::ComponentType component, std::vector<T>& values,
                               kxcodecs::QKXChunkCodec& codec, double scale = 1.0) {
    kxio::FlatPatchDescriptor flat(component, sizeof(T), kxio::RowMajor, scale, &codec);
    flat.data = reinterpret_cast<unsigned char*>(values.data());
    flat.size = values.size();
    return flat;
}

uint16_t IntensityAt(uint32_t row, uint32_t column) {
    return static_cast<uint16_t>(row * 300 + column);
}

TEST(WrittenScan, IsReadBackCellByCell) {
    const kxbase::GridTopology grid = Grid(50, 37, 16, 8);
    const TemporaryFile file(L"written.qsn");
    kxcodecs::ZLibChunkCodec zlib;
    kxcodecs::SnappyChunkCodec snappy;
    {
        kxio::QSNScanWriter writer;
        writer.CreateNew(file.Path(), grid);
        writer.AddMessage(L"written \U0001F4D0");
        for (uint32_t row = 0; row < grid.PatchesPerColumn(); ++row) {
            for (uint32_t column = 0; column < grid.PatchesPerRow(); ++column) {
                auto ranges = PatchValues<float>(grid, row, column, RangeAt);
                auto intensities = PatchValues<uint16_t>(grid, row, column, IntensityAt);
                auto colors = PatchValues<kxio::Rgb8>(grid, row, column, ColorAt);
                auto range = Flat(Range, ranges, zlib, 0.1);
                auto intensity = Flat(kxbase::Luminance16, intensities, snappy);
                auto color = Flat(kxbase::Color, colors, zlib);
                writer.AddPatch({&range, &intensity, &color}, row, column);
            }
        }
        writer.EndCreation();
    }
    const kxio::QSNScanReader reader(file.Path());
    const ScanAccess access(reader);
    std::vector<float> ranges(50 * 37);
    std::vector<uint16_t> intensities(50 * 37);
    std::vector<kxio::Rgb8> colors(50 * 37);
    for (const unsigned threads : {1U, 3U}) {
        const kxio::ReadOptions options{kxio::MissingPatches::Throw, threads};
        access.ReadLayer<float>(Range, ranges, options);
        access.ReadLayer<uint16_t>(kxbase::Luminance16, intensities, options);
        access.ReadLayer<kxio::Rgb8>(kxbase::Color, colors, options);
        for (uint32_t row = 0; row < 37; ++row) {
            for (uint32_t column = 0; column < 50; ++column) {
                const uint32_t cell = row * 50 + column;
                ASSERT_NEAR(ranges[cell], RangeAt(row, column), 0.05 + 1e-3);
                ASSERT_EQ(intensities[cell], IntensityAt(row, column));
                ASSERT_EQ(colors[cell], ColorAt(row, column));
            }
        }
    }
    EXPECT_EQ(reader.GetMessageList(), std::list<std::wstring>{L"written \U0001F4D0"});
    EXPECT_EQ(reader.GetScanInformation().componentValue[0], 0.1);
    EXPECT_EQ(reader.GetScanInformation().componentCodecs.at(kxbase::Luminance16), "Snappy");
    EXPECT_EQ(reader.GetValidPointCount(), 50U * 37U);
    EXPECT_FALSE(reader.HasPreviewSamplingRatioIssue());
    EXPECT_FALSE(reader.HasRegistrationBeenModified());
    // The preview holds every cell of so small a scan.
    const auto preview = access.ReadPreview<float>(Range);
    EXPECT_EQ(preview.width, reader.GetScanInformation().grid.previewWidth);
    EXPECT_EQ(uint64_t{preview.width} * preview.height, preview.values.size());
    EXPECT_EQ(preview.values[0], RangeAt(0, 0));
    const auto limits = access.ReadLimits();
    ASSERT_TRUE(limits.has_value());
    EXPECT_EQ(limits->minimum, 1.0F);
    EXPECT_EQ(limits->patches.size(), grid.PatchCount());
    const kxio::Luminance16HistogramHeader histogram(access.ReadHistogramRecord(kxbase::Luminance16));
    uint64_t counted = 0;
    for (const auto& [patch, counts] : histogram.GetHistogram()) {
        for (const auto& [value, count] : counts)
            counted += count;
    }
    EXPECT_EQ(counted, 50U * 37U);
    Bytes rgb;
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_TRUE(reader.GetThumbnailRGB(rgb, width, height));
    EXPECT_EQ(rgb.size(), size_t{3} * width * height);
}

TEST(WrittenScan, PatchesThatNeverCameAreEmptyAndShareAChunk) {
    kxbase::InMemoryStream stream;
    kxcodecs::ZLibChunkCodec zlib;
    const kxbase::GridTopology grid = Grid(16, 16, 4, 4);
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, grid);
    for (const uint32_t index : {5U, 3U, 12U}) {
        std::vector<float> ranges(16, static_cast<float>(index));
        auto range = Flat(Range, ranges, zlib, 0.001);
        writer.AddPatch({&range}, index);
    }
    writer.EndCreation();
    kxio::QSNScanReader reader(&stream);
    const ScanAccess access(reader);
    const auto summary = access.Summarise();
    ASSERT_EQ(summary.size(), 1U);
    EXPECT_EQ(summary[0].storedPatches, 3U);
    EXPECT_EQ(summary[0].emptyPatches, 13U);
    EXPECT_EQ(summary[0].absentPatches, 0U);
    std::vector<float> ranges(256, -1.0F);
    EXPECT_EQ(access.ReadLayer<float>(Range, ranges), (kxio::ReadReport{16, 0, 0}));
    EXPECT_NEAR(ranges[4 * 16 + 4], 5.0F, 1e-5);
    EXPECT_EQ(ranges[0], 0.0F);
    EXPECT_EQ(std::count(ranges.begin(), ranges.end(), 0.0F), 13 * 16);
    // In the order of the file: as they came, the shared chunk last.
    std::vector<kxbase::ImageCoordinates> list;
    reader.GetOrderedPatchList(list, Range);
    ASSERT_EQ(list.size(), 16U);
    EXPECT_EQ(list[0], (kxbase::ImageCoordinates{1, 1}));
    EXPECT_EQ(list[1], (kxbase::ImageCoordinates{0, 3}));
    EXPECT_EQ(list[2], (kxbase::ImageCoordinates{3, 0}));
    EXPECT_EQ(list[3], (kxbase::ImageCoordinates{0, 0}));
}

TEST(WrittenScan, UnfinishedFileDoesNotOpen) {
    kxbase::InMemoryStream stream;
    kxcodecs::SnappyChunkCodec snappy;
    std::vector<float> ranges(16, 7.0F);
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, Grid(8, 4, 4, 4));
    auto range = Flat(Range, ranges, snappy);
    writer.AddPatch({&range}, 0, 1);
    OpenReader reader;
    EXPECT_EQ(Failure([&] { reader.Open(&stream); }), "KXHeaderReadingException: Invalid scan headers");
}

// Bytes of the whole chunks that a walk from byte 92 on finds, one record after the other.
std::vector<uint64_t> WalkedChunks(const Bytes& bytes) {
    kxbase::InMemoryStream in(bytes);
    std::vector<uint64_t> chunks;
    kxio::DataChunkHeader record;
    in.Seek(92);
    while (record.Read(&in) != 0 && record.byteCount <= in.GetSize() - in.Tell()) {
        chunks.push_back(record.byteCount);
        in.SeekForward(record.byteCount);
    }
    return chunks;
}

TEST(WrittenScan, UnfinishedFileIsWalkedChunkByChunk) {
    kxbase::InMemoryStream stream;
    kxcodecs::SnappyChunkCodec snappy;
    std::vector<uint64_t> ends;
    {
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, Grid(12, 4, 4, 4));
        for (const unsigned index : {2U, 0U, 1U}) {
            std::vector<float> ranges(16, static_cast<float>(index + 1));
            auto range = Flat(Range, ranges, snappy);
            writer.AddPatch({&range}, index);
            ends.push_back(stream.GetBytes().size());
        }
    }
    const Bytes bytes = stream.GetBytes();
    EXPECT_EQ(GetMainField(bytes, MainField::FirstChunk), 92U);
    for (const size_t field : {MainField::ScanHeader, MainField::FirstExtendedHeader, MainField::ChunkDataEnd,
                               MainField::Thumbnail, MainField::LookupTable, MainField::PreviewLookupTable,
                               MainField::BoundingInformation})
        EXPECT_EQ(GetMainField(bytes, field), 0U) << field;
    EXPECT_EQ(OpenFailure(bytes), "KXHeaderReadingException: Invalid scan headers");
    // Cut anywhere, every chunk that is whole is found.
    for (size_t size = 92; size <= bytes.size(); ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        const auto whole = std::count_if(ends.begin(), ends.end(), [&](uint64_t end) { return end <= size; });
        ASSERT_EQ(WalkedChunks(cut).size(), static_cast<size_t>(whole)) << size;
        EXPECT_EQ(OpenFailure(cut), "KXHeaderReadingException: Invalid scan headers");
    }
}

TEST(WrittenScan, WithoutItsTableGivesThePatchesThatCame) {
    kxbase::InMemoryStream written;
    kxcodecs::SnappyChunkCodec snappy;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&written, Grid(12, 8, 4, 4));
    for (const unsigned index : {4U, 0U}) {
        std::vector<float> ranges(16, static_cast<float>(index + 1));
        auto range = Flat(Range, ranges, snappy);
        writer.AddPatch({&range}, index);
    }
    writer.EndCreation();
    Bytes bytes = written.GetBytes();
    SetMainField(bytes, MainField::LookupTable, 0);
    kxbase::InMemoryStream stream(bytes);
    OpenReader reader;
    EXPECT_EQ(Failure([&] { reader.Open(&stream); }), "KXIncompleteFileException: Lookup table not found");
    reader.FailSafeInit();
    const ScanAccess access(reader);
    EXPECT_EQ(access.ReadPatch<float>(Range, 1, 1), std::vector<float>(16, 5.0F));
    EXPECT_EQ(access.ReadPatch<float>(Range, 0, 0), std::vector<float>(16, 1.0F));
    // The empty patches share a chunk that no walk can give a place.
    std::vector<float> layer(96);
    EXPECT_EQ(access.ReadLayer<float>(Range, layer, {kxio::MissingPatches::ZeroAbsent}),
              (kxio::ReadReport{2, 4, 0}));
}

TEST(WrittenScan, WithoutAGridGivesItsStoredPatches) {
    kxbase::InMemoryStream stream;
    kxcodecs::SnappyChunkCodec snappy;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream);
    for (const unsigned size : {3U, 5U}) {
        std::vector<float> ranges(size, static_cast<float>(size));
        auto range = Flat(Range, ranges, snappy);
        writer.AddPatch({&range}, size - 3);
    }
    writer.EndCreation();
    kxio::QSNScanReader reader(&stream);
    const ScanAccess access(reader);
    EXPECT_EQ(access.ReadStoredPatch<float>(Range, 0, 0).values, std::vector<float>(3, 3.0F));
    EXPECT_EQ(access.ReadStoredPatch<float>(Range, 0, 2).values, std::vector<float>(5, 5.0F));
}

TEST(WrittenScan, GridWhoseRowsWereNeverToldOpensAndHasNoPatches) {
    kxbase::InMemoryStream stream;
    kxcodecs::SnappyChunkCodec snappy;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, Grid(8, 0, 4, 4));
    std::vector<float> ranges(16, 7.0F);
    auto range = Flat(Range, ranges, snappy);
    writer.AddPatch({&range}, 1, 1);
    writer.EndCreation();
    const kxio::QSNScanReader reader(&stream);
    EXPECT_EQ(reader.GetPatchNumber(), 0U);
    EXPECT_TRUE(reader.IsComponentAvailable(Range));
    // Reported, but no patch of it can be asked for its codec.
    EXPECT_EQ(reader.GetScanInformation().componentCodecs.at(Range), "");
    Bytes chunk;
    EXPECT_EQ(Failure([&] { reader.GetPatchCompressed(1, 1, chunk, Range); }),
              "KXUnreadablePatchException: Index 3 is outside bounds");
}

RC_GTEST_PROP(WrittenScanProperties, AnyGridAnyOrderAnyCodecReadsBack, ()) {
    const auto side = rc::gen::inRange<uint32_t>(1, 24);
    const kxbase::GridTopology grid = Grid(*side, *side, *side, *side);
    const uint64_t seed = *rc::gen::arbitrary<uint64_t>();
    std::vector<uint32_t> order(grid.PatchCount());
    std::iota(order.begin(), order.end(), 0U);
    std::mt19937_64 random(seed);
    std::shuffle(order.begin(), order.end(), random);
    order.resize(random() % (order.size() + 1));

    kxcodecs::ZLibChunkCodec zlib;
    kxcodecs::SnappyChunkCodec snappy;
    kxcodecs::QKXChunkCodec& codec = random() % 2 == 0 ? static_cast<kxcodecs::QKXChunkCodec&>(zlib) : snappy;
    kxbase::InMemoryStream stream;
    kxio::QSNScanWriter writer;
    writer.CreateNew(&stream, grid);
    std::vector<uint64_t> expected(uint64_t{grid.columns} * grid.rows, 0);
    for (const uint32_t index : order) {
        std::vector<uint64_t> values(uint64_t{grid.patchWidth} * grid.patchHeight);
        for (uint64_t& value : values)
            value = random() >> (random() % 64);
        const uint32_t firstRow = index / grid.PatchesPerRow() * grid.patchHeight;
        const uint32_t firstColumn = index % grid.PatchesPerRow() * grid.patchWidth;
        for (uint32_t row = firstRow; row < std::min(grid.rows, firstRow + grid.patchHeight); ++row) {
            for (uint32_t column = firstColumn;
                 column < std::min(grid.columns, firstColumn + grid.patchWidth); ++column) {
                expected[uint64_t{row} * grid.columns + column] =
                    values[(row - firstRow) * grid.patchWidth + column - firstColumn];
            }
        }
        auto segment = Flat(kxbase::Segment, values, codec);
        writer.AddPatch({&segment}, index);
    }
    writer.EndCreation();
    const kxio::QSNScanReader reader(&stream);
    RC_ASSERT(reader.IsComponentAvailable(kxbase::Segment) == !order.empty());
    if (order.empty()) return;
    std::vector<uint64_t> values(expected.size());
    const auto threads = static_cast<unsigned>(1 + random() % 3);
    ScanAccess(reader).ReadLayer<uint64_t>(kxbase::Segment, values, {kxio::MissingPatches::Throw, threads});
    RC_ASSERT(values == expected);
}

}  // namespace
