// SPDX-License-Identifier: MIT
// What of the values arrives: codecs, scales, colours, intensities.
#include <gtest/gtest.h>

#include <cmath>

#include "ImportPlan.h"
#include "RoundTrip.h"
#include "SmallSweep.h"
#include "TextFormat.h"
#include "kxbase/UTF8.h"
#include "kxexchange/ImportScan.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace kxexchange::testing {
namespace {

using kxbase::ComponentType;

TEST(ImportScan, CodecsAndComponentsFollowTheOptions) {
    const TempFolder folder;
    ImportOptions options;
    options.rangeCodec = Codec::Snappy;
    options.intensityCodec = Codec::Snappy;
    options.colorCodec = Codec::Jpeg;
    ImportScan(*SourceOf(SmallText()), 0, folder / "a.qsn", options);
    {
        const kxio::QSNScanReader reader((folder / "a.qsn").wstring());
        const std::map<ComponentType, std::string> expected{
            {kxbase::Range, "Snappy"},         {kxbase::VerticalAngle, "Grid"},
            {kxbase::HorizontalAngle, "Grid"}, {kxbase::Luminance8, "Snappy"},
            {kxbase::Luminance16, "Snappy"},   {kxbase::Color, "JPEG"}};
        EXPECT_EQ(reader.GetScanInformation().componentCodecs, expected);
        EXPECT_TRUE(reader.IsHistogramAvailable(kxbase::Luminance16));
    }
    options.intensity = options.color = false;
    const ImportReport report = ImportScan(*SourceOf(SmallText()), 0, folder / "a.qsn", options);
    EXPECT_EQ(report.intensity.kind, IntensityMapping::Kind::None);
    {
        const kxio::QSNScanReader reader((folder / "a.qsn").wstring());
        EXPECT_EQ(
            reader.GetAvailableComponents(),
            (std::vector<ComponentType>{kxbase::Range, kxbase::VerticalAngle, kxbase::HorizontalAngle}));
    }
    options = {};
    options.histograms = false;
    ImportScan(*SourceOf(SmallText()), 0, folder / "a.qsn", options);
    const kxio::QSNScanReader reader((folder / "a.qsn").wstring());
    EXPECT_FALSE(reader.IsHistogramAvailable(kxbase::Luminance16));
}

TEST(ImportScan, GridAndZstdCodecsKeepWhatZLibKeeps) {
    const TempFolder folder;
    ImportOptions options;
    options.rangeCodec = options.angleCodec = options.intensityCodec = options.colorCodec = Codec::Zlib;
    ImportScan(*SourceOf(SmallText()), 0, folder / "plain.qsn", options);
    options.rangeCodec = Codec::Grid;
    options.angleCodec = Codec::GridFast;
    options.intensityCodec = Codec::Grid;
    options.colorCodec = Codec::Zstd;
    options.compressionLevel = 9;
    ImportScan(*SourceOf(SmallText()), 0, folder / "grid.qsn", options);
    const kxio::QSNScanReader plainReader((folder / "plain.qsn").wstring());
    const kxio::QSNScanReader gridReader((folder / "grid.qsn").wstring());
    const std::map<ComponentType, std::string> expected{
        {kxbase::Range, "Grid"},      {kxbase::VerticalAngle, "Grid"}, {kxbase::HorizontalAngle, "Grid"},
        {kxbase::Luminance8, "Grid"}, {kxbase::Luminance16, "Grid"},   {kxbase::Color, "Zstd"}};
    EXPECT_EQ(gridReader.GetScanInformation().componentCodecs, expected);
    const kxio::ScanAccess plain(plainReader), grid(gridReader);
    for (const ComponentType component : plain.Components()) {
        const uint32_t bytes = plain.ElementBytes(component);
        std::vector<unsigned char> fromPlain(plain.GetGridRect().CellCount() * bytes),
            fromGrid(fromPlain.size());
        plain.ReadRectBytes(component, plain.GetGridRect(), bytes, fromPlain);
        grid.ReadRectBytes(component, grid.GetGridRect(), bytes, fromGrid);
        EXPECT_EQ(fromGrid, fromPlain) << static_cast<uint32_t>(component);
    }
}

TEST(ImportScan, LossyColourStaysClose) {
    // Smooth colours, as JPEG wants them.
    std::vector<Cell> cells = SmallSweepCells(false);
    for (size_t i = 0; i < cells.size(); ++i) {
        cells[i].red = static_cast<uint8_t>(100 + i / 30);
        cells[i].green = static_cast<uint8_t>(80 + i % 30);
        cells[i].blue = 60;
    }
    const TempFolder folder;
    WriteFile(folder / "a.ptx", PtxText(cells, 40, 30, true));
    ImportOptions options;
    options.colorCodec = Codec::Jpeg;
    CheckRoundTrip(folder / "a.ptx", options, false);
    ImportScan(*OpenScanSource(folder / "a.ptx"), 0, folder / "a.qsn", options);
    ExportScan(folder / "a.qsn", folder / "b.ptx", "PTX");
    const Scan back = ReadScan(*OpenScanSource(folder / "b.ptx"));
    for (size_t i = 0; i < cells.size(); ++i) {
        ASSERT_NEAR(back.cells[i].red, cells[i].red, 12);
        ASSERT_NEAR(back.cells[i].green, cells[i].green, 12);
        ASSERT_NEAR(back.cells[i].blue, cells[i].blue, 12);
    }
}

TEST(ImportScan, CoarseScalesAreWithinTheirBound) {
    for (const double scale : {0.001, 1.0, 5.0, 100.0}) {
        ImportOptions options;
        options.rangeScale = scale;
        options.verticalScale = 1e-4;
        options.horizontalScale = 1e-3;
        Sweep sweep;
        sweep.wobble = 0.2;
        const std::string text = PtxText(MakeSweep(sweep), sweep.columns, sweep.rows);
        const RoundTripResult result = CheckRoundTripOfText(text, options);
        EXPECT_EQ(result.imported.precision.rangeScale, scale);
        EXPECT_GT(result.greatestShift, 1e-4);
    }
}

TEST(ImportScan, ARangeScaleThatDoesNotFitIsMadeCoarserWithAWarning) {
    EXPECT_EQ(FittingRangeScale(0.1, 200), 0.1);
    EXPECT_EQ(FittingRangeScale(0.1, 214000), 0.1);
    EXPECT_EQ(FittingRangeScale(0.1, 215000), 0.2);
    EXPECT_EQ(FittingRangeScale(0.1, 1e6), 0.5);
    EXPECT_EQ(FittingRangeScale(0.3, 1e6), 0.5);
    EXPECT_EQ(FittingRangeScale(0.7, 1e6), 0.7);
    EXPECT_EQ(FittingRangeScale(0.1, 2e6), 1);
    EXPECT_NEAR(FittingRangeScale(0.1, 1e12), 500000, 1e-6);

    std::vector<Cell> cells = SmallSweepCells();
    for (Cell& cell : cells) {
        if (cell.valid) cell.x += 1e6;
    }
    const std::string text = PtxText(cells, 40, 30);
    const RoundTripResult result = CheckRoundTripOfText(text);
    EXPECT_EQ(result.imported.precision.rangeScale, 0.5);
    ASSERT_EQ(result.imported.warnings.size(), 2U);
    const std::string range = ShortestText(std::ceil(result.imported.greatestRange));
    EXPECT_EQ(result.imported.warnings[0],
              "Ranges up to " + range + " m do not fit the range scale of 0.1 mm; stored at 0.5 mm");
    const std::string moved = "Points up to " + range + " m from the origin may move by up to ";
    EXPECT_EQ(result.imported.warnings[1].substr(0, moved.size()), moved);
    const TempFolder folder;
    ImportScan(*SourceOf(text), 0, folder / "a.qsn");
    const kxio::QSNScanReader reader((folder / "a.qsn").wstring());
    ASSERT_EQ(reader.GetWarningList().size(), 2U);
    EXPECT_EQ(kxbase::Encode_UTF8(reader.GetWarningList().front()), result.imported.warnings[0]);
}

TEST(ImportScan, AReturnAtTheOriginStaysAReturn) {
    const TempFolder folder;
    const std::string text = PtxHeader(1, 3) + "0.00001 0 0 0.5\n0 0 0 0.5\n0 0 -1e-30 0.5\n";
    const ImportReport report = ImportScan(*SourceOf(text), 0, folder / "a.qsn");
    EXPECT_EQ(report.returns, 2U);
    EXPECT_EQ(report.warnings,
              (std::vector<std::string>{"2 returns nearer than half a range step are stored at one step"}));
    CheckRoundTripOfText(text);
}

TEST(ImportScan, CellsWithoutAReturnKeepTheirOneIntensity) {
    const auto export_ = [](const std::string& text, std::vector<std::string>* warnings) {
        const TempFolder folder;
        *warnings = ImportScan(*SourceOf(text), 0, folder / "a.qsn").warnings;
        ExportScan(folder / "a.qsn", folder / "b.ptx", "PTX");
        return ReadScan(*OpenScanSource(folder / "b.ptx"));
    };
    std::vector<std::string> warnings;
    const Scan same = export_(PtxHeader(1, 3) + "0 0 0 -3.5\n1 1 1 0.25\n0 0 0 -3.5\n", &warnings);
    EXPECT_TRUE(warnings.empty());
    EXPECT_EQ(same.cells[0].intensity, -3.5);
    EXPECT_EQ(same.cells[2].intensity, -3.5);
    const Scan differ = export_(PtxHeader(1, 3) + "0 0 0 0.25\n1 1 1 0.25\n0 0 0 0.5\n", &warnings);
    EXPECT_EQ(warnings,
              (std::vector<std::string>{
                  "Cells without a return carry intensities that differ, or colours; these are not kept"}));
    EXPECT_EQ(differ.cells[0].intensity, 0);
}

TEST(ImportScan, IntensitiesOfEveryRangeComeBack) {
    struct Range {
        double least, greatest;
        bool whole;
    };
    for (const Range& range : {Range{0, 255, true},
                               {0, 4095, true},
                               {0, 65535, true},
                               {-2048, 2047, true},
                               {-32768, 32767, true},
                               {0, 1, false},
                               {-30.5, 11.25, false},
                               {0, 1e6, true}}) {
        std::vector<Cell> cells = SmallSweepCells();
        for (Cell& cell : cells) {
            const double value = range.least + cell.intensity * (range.greatest - range.least);
            cell.intensity = range.whole ? std::round(value) : value;
            if (!cell.valid) cell.intensity = 0.5;
        }
        const RoundTripResult result = CheckRoundTripOfText(PtxText(cells, 40, 30));
        if (range.whole && range.greatest - range.least <= 65535) {
            EXPECT_EQ(result.imported.intensity.Bound(), 0);
        }
    }
}

}  // namespace
}  // namespace kxexchange::testing
