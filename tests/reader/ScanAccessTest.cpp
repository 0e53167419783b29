// SPDX-License-Identifier: MIT
#include "kxio/ScanAccess.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "SampleScans.h"

namespace {

using kxbase::Range;
using kxio::MissingPatches;
using kxio::PatchRect;
using kxio::QSNScanReader;
using kxio::ReadReport;
using kxio::Rgb8;
using kxio::ScanAccess;
using namespace kxtest;

struct Access : MemoryScan {
    explicit Access(const ScanFileBuilder& file) : MemoryScan(file.Build()), cells(reader) {}
    ScanAccess cells;
};

// Cells of a rectangle in the order in which they are given.
std::vector<float> Expected(const PatchRect& rect) {
    std::vector<float> values;
    for (uint32_t row = 0; row < rect.rows; ++row) {
        for (uint32_t column = 0; column < rect.columns; ++column)
            values.push_back(RangeAt(rect.firstRow + row, rect.firstColumn + column));
    }
    return values;
}

TEST(ScanAccess, TellsGridAndComponents) {
    Access scan(SmallScan());
    EXPECT_EQ(scan.cells.Grid().columns, 10U);
    EXPECT_EQ(scan.cells.Components(), (std::vector{Range, kxbase::Luminance8, kxbase::Color}));
    EXPECT_TRUE(scan.cells.Has(kxbase::Color));
    EXPECT_FALSE(scan.cells.Has(kxbase::Class));
    EXPECT_EQ(scan.cells.ElementBytes(Range), 4U);
    EXPECT_EQ(scan.cells.ElementBytes(kxbase::Color), 3U);
    EXPECT_EQ(scan.cells.GetGridRect(), (PatchRect{0, 0, 7, 10}));
}

TEST(ScanAccess, PatchRectanglesAreCutToTheGrid) {
    Access scan(SmallScan());
    EXPECT_EQ(scan.cells.GetPatchRect(0, 0), (PatchRect{0, 0, 3, 4}));
    EXPECT_EQ(scan.cells.GetPatchRect(1, 2), (PatchRect{3, 8, 3, 2}));
    EXPECT_EQ(scan.cells.GetPatchRect(2, 2), (PatchRect{6, 8, 1, 2}));
    EXPECT_EQ(Failure([&] { scan.cells.GetPatchRect(3, 0); }),
              "KXIndexOutOfBoundsException: Patch out of range");
    EXPECT_EQ(Failure([&] { scan.cells.GetPatchRect(0, 3); }),
              "KXIndexOutOfBoundsException: Patch out of range");
}

TEST(ScanAccess, PatchGivesItsCellsInTheGrid) {
    Access scan(SmallScan());
    for (uint32_t row = 0; row < 3; ++row) {
        for (uint32_t column = 0; column < 3; ++column) {
            const PatchRect rect = scan.cells.GetPatchRect(row, column);
            EXPECT_EQ(scan.cells.ReadPatch<float>(Range, row, column), Expected(rect));
            std::vector<float> values(rect.CellCount());
            EXPECT_EQ(scan.cells.ReadPatch<float>(Range, row, column, values), (ReadReport{1, 0, 0}));
            EXPECT_EQ(values, Expected(rect));
        }
    }
}

class AccessThreads : public testing::TestWithParam<unsigned> {
protected:
    kxio::ReadOptions m_options{MissingPatches::Throw, GetParam()};
};

TEST_P(AccessThreads, LayerHoldsEveryCellInItsPlace) {
    Access scan(SmallScan());
    std::vector<float> values(70);
    EXPECT_EQ(scan.cells.ReadLayer<float>(Range, values, m_options), (ReadReport{9, 0, 0}));
    EXPECT_EQ(values, Expected({0, 0, 7, 10}));
}

TEST_P(AccessThreads, RowsComeInFullWidth) {
    Access scan(SmallScan());
    std::vector<float> values(40);
    EXPECT_EQ(scan.cells.ReadRows<float>(Range, 2, 4, values, m_options), (ReadReport{6, 0, 0}));
    EXPECT_EQ(values, Expected({2, 0, 4, 10}));
}

TEST_P(AccessThreads, ColumnsComeInFullHeight) {
    Access scan(SmallScan());
    std::vector<float> values(42);
    EXPECT_EQ(scan.cells.ReadColumns<float>(Range, 3, 6, values, m_options), (ReadReport{9, 0, 0}));
    EXPECT_EQ(values, Expected({0, 3, 7, 6}));
}

TEST_P(AccessThreads, FirstBadPatchByIndexIsReported) {
    ScanFileBuilder file = SmallScan();
    for (const uint32_t index : {7U, 2U, 5U})
        file.Entry0(1, index, 0, 0);
    Access scan(file);
    std::vector<float> values(70);
    const auto read = [&] { scan.cells.ReadLayer<float>(Range, values, m_options); };
    EXPECT_EQ(Failure(read), "KXUnreadablePatchException: Patch not in file");
    EXPECT_EQ(FailureContext(read).record, "patch 2 (row 0, column 2) of component Range");
}

INSTANTIATE_TEST_SUITE_P(Counts, AccessThreads, testing::Values(1, 2, 3, 16, 0, 100000));

RC_GTEST_PROP(ScanAccessProperties, AnyRectangleOfAnyGridComesOutRight, ()) {
    const auto side = rc::gen::inRange<uint32_t>(1, 12);
    ScanFileBuilder file(*side, *side, *side, *side);
    AddLayer<float>(file, 1, RangeAt);
    Access scan(file);
    const kxbase::GridTopology grid = scan.cells.Grid();
    PatchRect rect;
    rect.firstRow = *rc::gen::inRange<uint32_t>(0, grid.rows + 1);
    rect.firstColumn = *rc::gen::inRange<uint32_t>(0, grid.columns + 1);
    rect.rows = *rc::gen::inRange<uint32_t>(0, grid.rows - rect.firstRow + 1);
    rect.columns = *rc::gen::inRange<uint32_t>(0, grid.columns - rect.firstColumn + 1);
    std::vector<float> values(rect.CellCount());
    const auto threads = *rc::gen::inRange<unsigned>(1, 4);
    const ReadReport report =
        scan.cells.ReadRect<float>(Range, rect, values, {MissingPatches::Throw, threads});
    RC_ASSERT(values == Expected(rect));
    RC_ASSERT(report.Complete());
    RC_ASSERT((report.decoded == 0) == values.empty());
}

TEST(ScanAccess, EveryElementTypeIsRead) {
    ScanFileBuilder file(2, 2, 2, 2);
    file.Chunk(1, 0, 0, LiteralChunk(ByteList().F32(1.5F).F32(2).F32(3).F32(4), 2, 2));
    file.Chunk(4, 0, 0, LiteralChunk(Hex("01 02 03 ff"), 2, 2));
    file.Chunk(5, 0, 0, LiteralChunk(Hex("01 00 02 00 03 00 ff ff"), 2, 2));
    file.Chunk(6, 0, 0, LiteralChunk(Hex("01 02 03 04 05 06 07 08 09 0a 0b 0c"), 2, 2));
    file.Chunk(8, 0, 0, LiteralChunk(ByteList().F64(0.25).F64(2).F64(3).F64(4), 2, 2));
    file.Chunk(18, 0, 0, LiteralChunk(ByteList().U32(7).U32(8).U32(9).U32(0xffffffffU), 2, 2));
    file.Chunk(19, 0, 0, LiteralChunk(ByteList().U64(1).U64(2).U64(3).U64(0x100000001U), 2, 2));
    Access scan(file);
    EXPECT_EQ(scan.cells.ReadPatch<float>(Range, 0, 0), (std::vector<float>{1.5F, 2, 3, 4}));
    EXPECT_EQ(scan.cells.ReadPatch<uint8_t>(kxbase::Luminance8, 0, 0), (std::vector<uint8_t>{1, 2, 3, 255}));
    EXPECT_EQ(scan.cells.ReadPatch<uint16_t>(kxbase::Luminance16, 0, 0),
              (std::vector<uint16_t>{1, 2, 3, 65535}));
    EXPECT_EQ(scan.cells.ReadPatch<Rgb8>(kxbase::Color, 0, 0),
              (std::vector<Rgb8>{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}}));
    EXPECT_EQ(scan.cells.ReadPatch<double>(kxbase::Component8, 0, 0), (std::vector<double>{0.25, 2, 3, 4}));
    EXPECT_EQ(scan.cells.ReadPatch<uint32_t>(kxbase::Class, 0, 0),
              (std::vector<uint32_t>{7, 8, 9, 0xffffffffU}));
    EXPECT_EQ(scan.cells.ReadPatch<uint64_t>(kxbase::Segment, 0, 0),
              (std::vector<uint64_t>{1, 2, 3, 0x100000001ULL}));
}

TEST(ScanAccess, QuantisedValuesArriveAsWhatTheyStandFor) {
    ScanFileBuilder file(10, 7, 4, 3);
    AddLayer<float>(
        file, 1,
        [](uint32_t row, uint32_t column) {
            return static_cast<float>(row) + 0.1F * static_cast<float>(column);
        },
        1000.0F);
    Access scan(file);
    std::vector<float> values(70);
    scan.cells.ReadLayer<float>(Range, values);
    for (uint32_t cell = 0; cell < 70; ++cell)
        EXPECT_NEAR(values[cell], static_cast<float>(cell / 10) + 0.1F * static_cast<float>(cell % 10),
                    0.0005001);
}

TEST(ScanAccess, OtherElementSizeIsABadInput) {
    Access scan(SmallScan());
    std::vector<double> doubles(70);
    std::vector<uint8_t> bytes(70, 9);
    EXPECT_EQ(Failure([&] { scan.cells.ReadLayer<double>(Range, doubles); }),
              "KXBadInputException: Wrong element size");
    EXPECT_EQ(Failure([&] { scan.cells.ReadLayer<uint8_t>(Range, bytes); }),
              "KXBadInputException: Wrong element size");
    EXPECT_EQ(Failure([&] { scan.cells.ReadPatch<uint16_t>(kxbase::Color, 0, 0); }),
              "KXBadInputException: Wrong element size");
    EXPECT_EQ(Failure([&] { scan.cells.ReadPreview<double>(Range); }),
              "KXBadInputException: Wrong element size");
    EXPECT_EQ(Failure([&] {
                  scan.cells.ReadRectBytes(Range, {0, 0, 1, 1}, 0, {});
              }),
              "KXBadInputException: Wrong element size");
    EXPECT_EQ(bytes, std::vector<uint8_t>(70, 9));
}

TEST(ScanAccess, OutputOfAnotherSizeIsABadInput) {
    Access scan(SmallScan());
    for (const size_t size : {size_t{0}, size_t{69}, size_t{71}}) {
        std::vector<float> values(size);
        EXPECT_EQ(Failure([&] { scan.cells.ReadLayer<float>(Range, values); }),
                  "KXBadInputException: Wrong output size");
    }
    std::vector<unsigned char> odd(70 * 4 + 1);
    EXPECT_EQ(Failure([&] { scan.cells.ReadRectBytes(Range, scan.cells.GetGridRect(), 4, odd); }),
              "KXBadInputException: Wrong output size");
}

TEST(ScanAccess, CellsOutsideTheGridAreRefused) {
    Access scan(SmallScan());
    std::vector<float> values(70);
    const std::string text = "KXIndexOutOfBoundsException: Cells out of range";
    EXPECT_EQ(Failure([&] { scan.cells.ReadRows<float>(Range, 1, 7, values); }), text);
    EXPECT_EQ(Failure([&] { scan.cells.ReadRows<float>(Range, 0xffffffffU, 7, values); }), text);
    EXPECT_EQ(Failure([&] { scan.cells.ReadColumns<float>(Range, 1, 10, values); }), text);
    EXPECT_EQ(Failure([&] { scan.cells.ReadColumns<float>(Range, 8, 0xffffffffU, values); }), text);
    EXPECT_EQ(Failure([&] { scan.cells.ReadPatch<float>(Range, 3, 0); }),
              "KXIndexOutOfBoundsException: Patch out of range");
}

TEST(ScanAccess, AbsentComponentCannotBeUsed) {
    Access scan(SmallScan());
    std::vector<uint32_t> values(70);
    const std::string text = "KXComponentNotInFileException: Cannot use this component";
    EXPECT_EQ(Failure([&] { scan.cells.ReadLayer<uint32_t>(kxbase::Class, values); }), text);
    EXPECT_EQ(Failure([&] { scan.cells.ReadPatch<uint32_t>(kxbase::Class, 0, 0); }), text);
    EXPECT_EQ(Failure([&] { scan.cells.ReadPreview<uint32_t>(kxbase::Class); }),
              "KXUnreadablePatchException: Patch not in file");
}

TEST(ScanAccess, NoCellsNeedNoPatch) {
    ScanFileBuilder file(10, 7, 4, 3);
    file.Component(1);
    Access scan(file);
    std::vector<float> none;
    EXPECT_EQ(scan.cells.ReadRows<float>(Range, 7, 0, none), ReadReport{});
    EXPECT_EQ(scan.cells.ReadColumns<float>(Range, 0, 0, none), ReadReport{});
}

TEST(ScanAccess, GridWithCellsButWithoutPatchesIsRefused) {
    ScanFileBuilder file(10, 7, 4, 3);
    AddLayer<float>(file, 1, RangeAt);
    file.properties.grid.patchWidth = 0;
    Access scan(file);
    std::vector<float> values(70);
    EXPECT_EQ(Failure([&] { scan.cells.ReadLayer<float>(Range, values); }),
              "KXUnreadablePatchException: Index 0 is outside bounds");
}

// Patch 1 absent, patch 4 damaged, patch 6 beyond the end of the file.
ScanFileBuilder BrokenScan() {
    ScanFileBuilder file = SmallScan();
    file.Entry0(1, 1, 0, 0);
    file.Chunk(1, 1, 1, LiteralChunk(Bytes(47, 1), 47, 1));
    file.Entry0(1, 6, 1 << 30, 100);
    return file;
}

TEST(ScanAccess, BadPatchesThrowUnlessZerosAreWanted) {
    Access scan(BrokenScan());
    std::vector<float> values(70, -1.0F);
    EXPECT_EQ(Failure([&] { scan.cells.ReadLayer<float>(Range, values); }),
              "KXUnreadablePatchException: Patch not in file");
    EXPECT_EQ(Failure([&] { scan.cells.ReadLayer<float>(Range, values, {MissingPatches::ZeroAbsent}); }),
              "KXUnreadablePatchException: Patch cannot be decoded");
}

TEST(ScanAccess, RescueGivesZerosForBadPatchesAndCountsThem) {
    Access scan(BrokenScan());
    for (const unsigned threads : {1U, 3U}) {
        std::vector<float> values(70, -1.0F);
        const ReadReport report =
            scan.cells.ReadLayer<float>(Range, values, {MissingPatches::ZeroUnreadable, threads});
        EXPECT_EQ(report, (ReadReport{6, 1, 2}));
        EXPECT_FALSE(report.Complete());
        for (uint32_t row = 0; row < 7; ++row) {
            for (uint32_t column = 0; column < 10; ++column) {
                const uint32_t patch = row / 3 * 3 + column / 4;
                const bool bad = patch == 1 || patch == 4 || patch == 6;
                EXPECT_EQ(values[row * 10 + column], bad ? 0.0F : RangeAt(row, column));
            }
        }
    }
}

TEST(ScanAccess, DamagedPatchDecodedInPlaceBecomesZerosToo) {
    // The patch fills its place in the output, so it is decoded there; half of it arrives.
    ScanFileBuilder file(4, 3, 4, 3);
    Bytes chunk = LiteralChunk(Bytes(48, 0x55), 4, 3);
    chunk.resize(chunk.size() - 10);
    file.Chunk(1, 0, 0, chunk);
    Access scan(file);
    std::vector<float> values(12, 5.0F);
    EXPECT_EQ(scan.cells.ReadLayer<float>(Range, values, {MissingPatches::ZeroUnreadable}),
              (ReadReport{0, 0, 1}));
    EXPECT_EQ(values, std::vector<float>(12, 0.0F));
}

TEST(ScanAccess, ChunkOfAnotherElementCountCannotBeDecoded) {
    for (const Bytes& chunk :
         {SnappyChunk(std::vector<float>(11, 1), 11, 1), SnappyChunk(std::vector<float>(24, 1), 8, 3),
          SnappyChunk(std::vector<uint16_t>(12, 1), 4, 3), SnappyChunk(std::vector<double>(12, 1), 4, 3),
          SnappyChunk(std::vector<float>(1000, 0), 100, 10)}) {
        ScanFileBuilder file(4, 3, 4, 3);
        file.Chunk(1, 0, 0, chunk);
        Access scan(file);
        std::vector<float> values(12, 5.0F);
        EXPECT_EQ(Failure([&] { scan.cells.ReadLayer<float>(Range, values); }),
                  "KXUnreadablePatchException: Patch cannot be decoded");
        EXPECT_EQ(Failure([&] { scan.cells.ReadPatch<float>(Range, 0, 0); }),
                  "KXUnreadablePatchException: Patch cannot be decoded");
    }
}

TEST(ScanAccess, EmptyPatchOfAnotherElementSizeIsZeros) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 2.0F), 4, 3));
    file.SharedChunk(1, {1}, SnappyChunk(Bytes(12, 0), 4, 3));
    Access scan(file);
    std::vector<float> values(24, 5.0F);
    EXPECT_EQ(scan.cells.ReadLayer<float>(Range, values), (ReadReport{2, 0, 0}));
    EXPECT_EQ(values[3], 2.0F);
    EXPECT_EQ(values[4], 0.0F);
    EXPECT_EQ(scan.cells.ReadPatch<float>(Range, 0, 1), std::vector<float>(12, 0.0F));
}

TEST(ScanAccess, UnfixedElementSizeIsThatOfTheFirstStoredChunk) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.Entry0(10, 0, 0, 0);
    file.Chunk(10, 0, 1, SnappyChunk(std::vector<uint16_t>(12, 7), 4, 3));
    file.Component(11);
    Access scan(file);
    EXPECT_EQ(scan.cells.ElementBytes(kxbase::Component10), 2U);
    EXPECT_EQ(scan.cells.ElementBytes(kxbase::Component11), 0U);
    EXPECT_EQ(scan.cells.ReadPatch<uint16_t>(kxbase::Component10, 0, 1), std::vector<uint16_t>(12, 7));
    EXPECT_EQ(Failure([&] { scan.cells.ReadPatch<float>(kxbase::Component10, 0, 1); }),
              "KXBadInputException: Wrong element size");
}

TEST(ScanAccess, StoredPatchComesInItsOwnShape) {
    ScanFileBuilder file(2, 1, 1, 1);  // as a scan without a grid: one cell a patch
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>{1, 2, 3, 4, 5}, 5, 1, 10.0F));
    Access scan(file);
    const kxio::PreviewImage<float> patch = scan.cells.ReadStoredPatch<float>(Range, 0, 0);
    EXPECT_EQ(patch.width, 5U);
    EXPECT_EQ(patch.height, 1U);
    ASSERT_EQ(patch.values.size(), 5U);
    EXPECT_NEAR(patch.values[4], 5.0F, 1e-5);
    EXPECT_EQ(Failure([&] { scan.cells.ReadPatch<float>(Range, 0, 0); }),
              "KXUnreadablePatchException: Patch cannot be decoded");
    EXPECT_EQ(Failure([&] { scan.cells.ReadStoredPatch<float>(Range, 0, 1); }),
              "KXUnreadablePatchException: Patch not in file");
    EXPECT_EQ(Failure([&] { scan.cells.ReadStoredPatch<double>(Range, 0, 0); }),
              "KXBadInputException: Wrong element size");
}

TEST(ScanAccess, PreviewHasItsOwnSize) {
    Access scan(SmallScan());
    const kxio::PreviewImage<float> image = scan.cells.ReadPreview<float>(Range);
    EXPECT_EQ(image.width, 3U);
    EXPECT_EQ(image.height, 2U);
    EXPECT_EQ(image.values, (std::vector<float>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(Failure([&] { scan.cells.ReadPreview<Rgb8>(kxbase::Color); }),
              "KXUnreadablePatchException: Patch not in file");
}

TEST(ScanAccess, PreviewNeedsNoPatches) {
    Access scan(SmallScan().Preview(18, SnappyChunk(std::vector<uint32_t>{5, 6}, 2, 1)));
    EXPECT_FALSE(scan.cells.Has(kxbase::Class));
    EXPECT_EQ(scan.cells.ReadPreview<uint32_t>(kxbase::Class).values, (std::vector<uint32_t>{5, 6}));
}

TEST(ScanAccess, DamagedPreviewCannotBeDecoded) {
    ScanFileBuilder file = SmallScan();
    Bytes chunk = LiteralChunk(Bytes(6, 1), 3, 2);
    chunk.pop_back();
    file.Preview(4, chunk);
    Access scan(file);
    const auto read = [&] { scan.cells.ReadPreview<uint8_t>(kxbase::Luminance8); };
    EXPECT_EQ(Failure(read), "KXUnreadablePatchException: Patch cannot be decoded");
    EXPECT_EQ(FailureContext(read).record, "preview of component Luminance8");
    EXPECT_TRUE(FailureContext(read).offset.has_value());
}

TEST(ScanAccess, SummaryCountsChunksPatchesAndBytes) {
    ScanFileBuilder file(16, 3, 4, 3);
    const Bytes own = SnappyChunk(std::vector<float>(12, 2.0F), 4, 3);
    const Bytes empty = SnappyChunk(std::vector<float>(12, 0.0F), 4, 3);
    file.Chunk(1, 0, 0, own);
    file.SharedChunk(1, {1, 3}, empty);
    file.Component(7);
    Access scan(file);
    const std::vector<kxio::ComponentSummary> summary = scan.cells.Summarise();
    ASSERT_EQ(summary.size(), 2U);
    EXPECT_EQ(summary[0].component, Range);
    EXPECT_EQ(summary[0].codec, "Snappy");
    EXPECT_EQ(summary[0].elementBytes, 4U);
    EXPECT_EQ(summary[0].storedPatches, 1U);
    EXPECT_EQ(summary[0].emptyPatches, 2U);
    EXPECT_EQ(summary[0].absentPatches, 1U);
    EXPECT_EQ(summary[0].storedBytes, own.size() + empty.size());
    EXPECT_EQ(summary[1].codec, "");
    EXPECT_EQ(summary[1].elementBytes, 16U);
    EXPECT_EQ(summary[1].absentPatches, 4U);
    EXPECT_EQ(summary[1].storedBytes, 0U);
}

TEST(ScanAccess, ChunkHeaderIsReadWithoutItsPayload) {
    ScanFileBuilder file(8, 3, 4, 3);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 2.0F), 4, 3, 100.0F));
    file.Chunk(1, 0, 1, Bytes(20, 1));
    Access scan(file);
    const kxcodecs::ChunkHeaderInfo header = scan.cells.ReadChunkHeader(Range, 0, 0);
    EXPECT_EQ(header.codecId, kSnappyCodec);
    EXPECT_EQ(header.width, 4U);
    EXPECT_EQ(header.step, 100.0F);
    EXPECT_EQ(Failure([&] { scan.cells.ReadChunkHeader(Range, 0, 1); }),
              "KXUnreadablePatchException: Patch cannot be decoded");
    EXPECT_EQ(Failure([&] { scan.cells.ReadChunkHeader(Range, 0, 2); }),
              "KXIndexOutOfBoundsException: Patch out of range");
    EXPECT_EQ(Failure([&] { scan.cells.ReadChunkHeader(kxbase::Class, 0, 0); }),
              "KXUnreadablePatchException: Patch not in database");
}

TEST(ScanAccess, LimitsAreThoseOfTheRecord) {
    Access scan(SmallScan().Limits(1.5F, 6004.0F, {{1.5F, 2.0F}, {0.0F, 0.0F}}));
    const std::optional<kxio::ScanLimits> limits = scan.cells.ReadLimits();
    ASSERT_TRUE(limits.has_value());
    EXPECT_EQ(limits->minimum, 1.5F);
    EXPECT_EQ(limits->maximum, 6004.0F);
    ASSERT_EQ(limits->patches.size(), 2U);
    EXPECT_EQ(limits->patches[0], (kxio::MinMaxPair{1.5F, 2.0F}));
    EXPECT_FALSE(Access(SmallScan()).cells.ReadLimits().has_value());
}

TEST(ScanAccess, LimitsThatCannotBeReadAreAnError) {
    Bytes bytes = SmallScan().Build();
    SetMainField(bytes, MainField::BoundingInformation, 92);
    MemoryScan scan(bytes);
    EXPECT_EQ(Failure([&] { ScanAccess(scan.reader).ReadLimits(); }),
              "KXIncompleteFileException: No bounding information found");
}

TEST(ScanAccess, TellsHeadersAndFileSize) {
    const Bytes bytes = SmallScan().Build();
    MemoryScan scan(bytes);
    const ScanAccess access(scan.reader);
    EXPECT_EQ(access.GetFileSize(), bytes.size());
    EXPECT_EQ(access.GetMainHeader().firstChunkPosition, 92U);
    EXPECT_EQ(access.GetScanHeader().GetVersion(), 270U);
}

TEST(ScanAccess, PatchSidesOfTheHeaderAreNoReasonToAllocate) {
    // One honest little chunk under a grid that claims one patch of four thousand million cells a side.
    ScanFileBuilder file(4, 3, 4, 3);
    file.Chunk(1, 0, 0, SnappyChunk(std::vector<float>(12, 2.0F), 4, 3));
    for (uint32_t kxbase::GridTopology::*side :
         {&kxbase::GridTopology::columns, &kxbase::GridTopology::rows, &kxbase::GridTopology::patchWidth,
          &kxbase::GridTopology::patchHeight})
        file.properties.grid.*side = 0xffffffffU;
    Access scan(file);
    EXPECT_EQ(Failure([&] { scan.cells.ReadPatch<float>(Range, 0, 0); }),
              "KXUnreadablePatchException: Patch cannot be decoded");
}

}  // namespace
