// SPDX-License-Identifier: MIT
// What an import stores, reports and leaves behind.
#include "kxexchange/ImportScan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <sstream>

#include "ImportPlan.h"
#include "RoundTrip.h"
#include "TextFormat.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace kxexchange::testing {
namespace {

using kxbase::ComponentType;

std::vector<Cell> SmallSweepCells(bool holes = true) {
    Sweep sweep;
    sweep.columns = 40;
    sweep.rows = 30;
    sweep.azimuthStep = -0.01;
    sweep.angleStep = -0.01;
    sweep.missing = holes ? 0.3 : 0;
    return MakeSweep(sweep);
}

std::string SmallText(bool color = true) {
    return PtxText(SmallSweepCells(), 40, 30, color);
}

// A progress sink that stops at the n-th call and remembers all it was told.
class Watcher final : public ProgressSink {
public:
    explicit Watcher(uint64_t stopAt = std::numeric_limits<uint64_t>::max()) : m_stopAt(stopAt) {}
    bool Update(uint64_t cellsDone, uint64_t cellsTotal, uint64_t bytesDone) override {
        if (cellsDone < done || bytesDone < bytes) grew = false;
        done = cellsDone;
        total = cellsTotal;
        bytes = bytesDone;
        return ++calls < m_stopAt;
    }
    uint64_t calls = 0, done = 0, total = 0, bytes = 0;
    bool grew = true;

private:
    uint64_t m_stopAt;
};

// Passes a source on, calling `before` ahead of every block of the n-th opening.
class WrappedSource final : public ScanSource {
public:
    WrappedSource(std::unique_ptr<ScanSource> source, std::function<void(int opening)> before)
        : m_source(std::move(source)), m_before(std::move(before)) {}
    std::string FormatName() const override { return m_source->FormatName(); }
    std::string Name() const override { return m_source->Name(); }
    uint64_t ScanCount() override { return m_source->ScanCount(); }
    ScanDescription OpenScan(uint64_t index) override {
        ++m_opening;
        ScanDescription description = m_source->OpenScan(index);
        if (adjust) adjust(m_opening, description);
        return description;
    }
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override {
        m_before(m_opening);
        return m_source->ReadColumns(std::min<uint64_t>(maxColumns, 3), cells);
    }
    uint64_t BytesRead() const override { return m_source->BytesRead(); }
    uint64_t FileBytes() const override { return m_source->FileBytes(); }

    std::function<void(int opening, ScanDescription&)> adjust;

private:
    std::unique_ptr<ScanSource> m_source;
    std::function<void(int)> m_before;
    int m_opening = 0;
};

ImportOptions WithThreads(int threads) {
    ImportOptions options;
    options.threads = threads;
    options.patchWidth = options.patchHeight = 8;
    return options;
}

TEST(ImportScan, CellsBecomeRangeAnglesIntensityAndColour) {
    // Two columns, three rows from below; the middle of the first column saw nothing.
    std::vector<Cell> cells;
    for (const double h : {0.5, 0.4}) {
        for (const double v : {1.9, 1.7, 1.5}) {
            Cell cell = PolarCell(2.5, h, v);
            cell.intensity = 0.25;
            cell.red = 10;
            cell.green = 20;
            cell.blue = 30;
            cells.push_back(cell);
        }
    }
    cells[1] = {};
    cells[1].intensity = 0.5;
    const TempFolder folder;
    const auto source = SourceOf(PtxText(cells, 2, 3, true), "some/where/Room \xc3\xa4.ptx");
    const ImportReport report = ImportScan(*source, 0, folder / "a.qsn");
    EXPECT_EQ(report.cells, 6U);
    EXPECT_EQ(report.returns, 5U);
    EXPECT_NEAR(report.greatestRange, 2.5, 1e-12);
    EXPECT_TRUE(report.warnings.empty());
    EXPECT_LT(report.maxHorizontalResidual, 1e-6);
    EXPECT_LT(report.maxVerticalResidual, 1e-6);
    EXPECT_NEAR(report.precision.greatestHorizontal, 0.5, 1e-9);

    const kxio::QSNScanReader reader(kxbase::Decode_UTF8((folder / "a.qsn").string()));
    const kxio::ScanAccess access(reader);
    const kxbase::GridTopology& grid = access.Grid();
    EXPECT_EQ(grid.columns, 2U);
    EXPECT_EQ(grid.rows, 3U);
    EXPECT_NEAR(grid.columnStartAngle, 0.5, 1e-6);
    EXPECT_NEAR(grid.columnAngularStep, 0.1, 1e-6);
    EXPECT_NEAR(grid.rowStartAngle, 1.5, 1e-6);
    EXPECT_NEAR(grid.rowAngularStep, 0.2, 1e-6);
    EXPECT_EQ(reader.GetValidPointCount(), 5U);

    const auto range = access.ReadPatch<float>(kxbase::Range, 0, 0);
    const auto vertical = access.ReadPatch<float>(kxbase::VerticalAngle, 0, 0);
    const auto horizontal = access.ReadPatch<float>(kxbase::HorizontalAngle, 0, 0);
    const auto luminance16 = access.ReadPatch<uint16_t>(kxbase::Luminance16, 0, 0);
    const auto luminance8 = access.ReadPatch<uint8_t>(kxbase::Luminance8, 0, 0);
    const auto color = access.ReadPatch<kxio::Rgb8>(kxbase::Color, 0, 0);
    ASSERT_EQ(range.size(), 6U);
    for (size_t row = 0; row < 3; ++row) {
        for (size_t column = 0; column < 2; ++column) {
            const size_t at = 2 * row + column;
            // Rows are turned round: the first is the one nearest to the zenith.
            EXPECT_NEAR(vertical[at], 1.5 + 0.2 * static_cast<double>(row), 1.1e-6);
            EXPECT_NEAR(horizontal[at], 0.5 - 0.1 * static_cast<double>(column), 1.1e-6);
            const bool empty = row == 1 && column == 0;
            EXPECT_NEAR(range[at], empty ? 0 : 2500, 0.051);
            EXPECT_EQ(luminance16[at], empty ? 0 : 16384);
            EXPECT_EQ(luminance8[at], empty ? 0 : 64);
            EXPECT_EQ(color[at], empty ? kxio::Rgb8{} : (kxio::Rgb8{10, 20, 30}));
        }
    }
    // Cells without a return have exactly the grid's own angles.
    const auto own = static_cast<float>(static_cast<double>(grid.rowStartAngle) +
                                        static_cast<double>(grid.rowAngularStep));
    EXPECT_NEAR(vertical[2], own, 0.6e-6);

    std::vector<std::string> messages;
    for (const std::wstring& text : reader.GetMessageList())
        messages.push_back(kxbase::Encode_UTF8(text));
    EXPECT_EQ(messages, (std::vector<std::string>{
                            "Imported from Room \xc3\xa4.ptx, scan 1",
                            "kxio-layout 1 columns=2 rows=3 order=forward gridrows=3 segments=0+3@near:2- "
                            "intensity=unit empty=0.5 source=PTX uuid=made"}));
}

TEST(ImportScan, RegistrationIsStoredToTheLastBit) {
    const std::string text =
        "1\n1\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n0.3333333333333333 -0.9 1e-17 0\n0.1 0.7 0.2 0\n.5 .5 1 0\n"
        "637012.2412345678 -849028.31 431.6600000000001 1\n1 1 1 1\n";
    const TempFolder folder;
    ImportScan(*SourceOf(text), 0, folder / "a.qsn");
    const kxio::QSNScanReader reader((folder / "a.qsn").wstring());
    const double expected[12] = {
        0.3333333333333333, -0.9, 1e-17, 0.1, 0.7, 0.2, .5, .5, 1, 637012.2412345678, -849028.31,
        431.6600000000001};
    EXPECT_EQ(reader.GetScanInformation().registration,
              kxbase::RegistrationInformation::FromValues(expected));
    CheckRoundTripOfText(text);
}

TEST(ImportScan, TheThreadCountChangesNoValue) {
    const TempFolder folder;
    std::vector<std::vector<float>> layers;
    for (const int threads : {1, 2, 5, 0}) {
        ImportScan(*SourceOf(SmallText()), 0, folder / "a.qsn", WithThreads(threads));
        const kxio::QSNScanReader reader((folder / "a.qsn").wstring());
        const kxio::ScanAccess access(reader);
        std::vector<float> values(40 * 30);
        std::vector<float> all;
        for (const auto component : {kxbase::Range, kxbase::VerticalAngle, kxbase::HorizontalAngle}) {
            access.ReadLayer<float>(component, values);
            all.insert(all.end(), values.begin(), values.end());
        }
        layers.push_back(all);
        EXPECT_EQ(layers.back(), layers.front()) << threads;
    }
}

// The only random bytes of a file.
std::string WithoutIdentifier(const std::filesystem::path& path) {
    std::string bytes = ReadFile(path);
    const auto uuid = kxio::QSNScanReader(path.wstring(), 0).GetScanUUID().ToBytes();
    const std::string random(uuid.begin(), uuid.end());
    const size_t at = bytes.find(random);
    EXPECT_NE(at, std::string::npos);
    EXPECT_EQ(bytes.find(random, at + 1), std::string::npos);
    return bytes.replace(at, random.size(), random.size(), '#');
}

TEST(ImportScan, TheThreadCountChangesNoByte) {
    const TempFolder folder;
    ImportOptions options = WithThreads(1);
    options.patchWidth = options.patchHeight = 128;  // large enough for a team of threads
    std::string text = "150\n300\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n";
    for (int column = 0; column < 150; ++column) {
        for (int row = 0; row < 300; ++row) {
            const double azimuth = -0.01 * column, elevation = 0.005 * row - 0.7;
            const double range = 5 + 0.001 * (column * 31 % 17 + row * 7 % 13);
            std::ostringstream line;
            line << range * std::cos(elevation) * std::cos(azimuth) << ' '
                 << range * std::cos(elevation) * std::sin(azimuth) << ' ' << range * std::sin(elevation)
                 << ' ' << (column * row % 100) / 100.0 << '\n';
            text += (column + row) % 11 == 0 ? std::string("0 0 0 0.5\n") : line.str();
        }
    }
    std::string first;
    for (const int threads : {1, 2, 3, 4, 8, 0, 2, 2}) {
        options.threads = threads;
        ImportScan(*SourceOf(text), 0, folder / "a.qsn", options);
        const std::string bytes = WithoutIdentifier(folder / "a.qsn");
        if (first.empty()) first = bytes;
        EXPECT_TRUE(bytes == first) << threads;
    }
}

TEST(ImportScan, ProgressCountsBothPassesAndOnlyGrows) {
    for (const int threads : {1, 2}) {
        const TempFolder folder;
        Watcher watcher;
        const auto source = SourceOf(SmallText());
        ImportScan(*source, 0, folder / "a.qsn", WithThreads(threads), &watcher);
        EXPECT_TRUE(watcher.grew);
        EXPECT_EQ(watcher.total, 2U * 40 * 30);
        EXPECT_EQ(watcher.done, watcher.total);
        EXPECT_EQ(watcher.bytes, source->BytesRead());
    }
}

TEST(ImportScan, CancellingLeavesNothingBehind) {
    for (const int threads : {1, 2}) {
        Watcher all;
        {
            const TempFolder folder;
            ImportScan(*SourceOf(SmallText()), 0, folder / "a.qsn", WithThreads(1), &all);
        }
        for (uint64_t call = 1; call <= all.calls; ++call) {
            const TempFolder folder;
            Watcher watcher(call);
            try {
                ImportScan(*SourceOf(SmallText()), 0, folder / "a.qsn", WithThreads(threads), &watcher);
                // With a thread of its own the parser may be done before the n-th call.
                EXPECT_NE(threads, 1) << call;
            } catch (const CancelledException& e) {
                EXPECT_STREQ(e.what(), "Import was cancelled");
                EXPECT_TRUE(Entries(folder).empty());
            }
        }
    }
}

TEST(ImportScan, AFailureOfEitherPassArrivesWithItsTypeAndLeavesNothingBehind) {
    for (const int threads : {1, 2}) {
        for (const int badOpening : {1, 2}) {
            const TempFolder folder;
            int blocks = 0;
            WrappedSource source(SourceOf(SmallText()), [&](int opening) {
                if (opening == badOpening && ++blocks == 5) throw SourceFormatException("damaged here");
            });
            try {
                ImportScan(source, 0, folder / "a.qsn", WithThreads(threads));
                FAIL();
            } catch (const SourceFormatException& e) {
                EXPECT_STREQ(e.what(), "damaged here");
            }
            EXPECT_TRUE(Entries(folder).empty());
        }
    }
}

TEST(ImportScan, ASourceThatChangesBetweenThePassesIsRefused) {
    const TempFolder folder;
    WrappedSource source(SourceOf(SmallText()), [](int) {});
    source.adjust = [](int opening, ScanDescription& description) {
        if (opening == 2) description.rows += 1;
    };
    EXPECT_THROW(ImportScan(source, 0, folder / "a.qsn"), SourceFormatException);
    EXPECT_TRUE(Entries(folder).empty());
}

TEST(ImportScan, ASourceWithFewerColumnsThanItSaysIsRefused) {
    const TempFolder folder;
    WrappedSource source(SourceOf(SmallText()), [](int) {});
    source.adjust = [](int, ScanDescription& description) { description.columns += 1; };
    EXPECT_THROW(ImportScan(source, 0, folder / "a.qsn"), SourceFormatException);
    EXPECT_TRUE(Entries(folder).empty());
}

TEST(ImportScan, AScanWithoutGridIsRefused) {
    const TempFolder folder;
    WrappedSource source(SourceOf(SmallText()), [](int) {});
    source.adjust = [](int, ScanDescription& description) { description.columns = description.rows = 0; };
    try {
        ImportScan(source, 0, folder / "a.qsn");
        FAIL();
    } catch (const kxbase::KXBadInputException& e) {
        EXPECT_STREQ(e.what(), "Scan has no grid");
    }
}

TEST(ImportScan, AnOlderFileStaysUntilTheNewOneIsComplete) {
    const TempFolder folder;
    WriteFile(folder / "a.qsn", "older");
    Watcher watcher(3);
    EXPECT_THROW(ImportScan(*SourceOf(SmallText()), 0, folder / "a.qsn", WithThreads(1), &watcher),
                 CancelledException);
    EXPECT_EQ(ReadFile(folder / "a.qsn"), "older");
    ImportScan(*SourceOf(SmallText()), 0, folder / "a.qsn");
    EXPECT_GT(ReadFile(folder / "a.qsn").size(), 1000U);
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"a.qsn"}));
}

TEST(ImportScan, AnOutputThatCannotBeOpenedSaysSo) {
    const TempFolder folder;
    EXPECT_THROW(ImportScan(*SourceOf(SmallText()), 0, folder / "missing" / "a.qsn"),
                 kxbase::KXFileNotOpenException);
    // A folder under the target's name cannot be replaced.
    std::filesystem::create_directory(folder / "b.qsn");
    EXPECT_THROW(ImportScan(*SourceOf(SmallText()), 0, folder / "b.qsn"), kxbase::KXWritingException);
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"b.qsn"}));
}

TEST(ImportScan, TheScanAskedForIsImported) {
    const TempFolder folder;
    const auto source = SourceOf(PtxHeader(1, 1) + "1 0 0 0\n" + SmallText());
    EXPECT_EQ(ImportScan(*source, 1, folder / "a.qsn").cells, 1200U);
    EXPECT_EQ(ImportScan(*source, 0, folder / "a.qsn").cells, 1U);
    EXPECT_THROW(ImportScan(*source, 2, folder / "b.qsn"), kxbase::KXIndexOutOfBoundsException);
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"a.qsn"}));
}

TEST(ImportScan, OptionsOutsideTheirRangeAreRefusedBeforeAnythingIsRead) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::function<void(ImportOptions&)> bad[] = {
        [](ImportOptions& o) { o.patchWidth = 0; },
        [](ImportOptions& o) { o.patchHeight = 0; },
        [](ImportOptions& o) { o.patchWidth = 16385; },
        [](ImportOptions& o) { o.patchWidth = o.patchHeight = 16384; },
        [](ImportOptions& o) { o.rangeScale = 0; },
        [](ImportOptions& o) { o.rangeScale = -0.1; },
        [&](ImportOptions& o) { o.verticalScale = nan; },
        [](ImportOptions& o) { o.horizontalScale = 1e-9; },
        [](ImportOptions& o) { o.horizontalScale = 1; },
        [](ImportOptions& o) { o.rangeCodec = Codec::Jpeg; },
        [](ImportOptions& o) { o.angleCodec = Codec::Jpeg; },
        [](ImportOptions& o) { o.intensityCodec = Codec::Jpeg; },
        [](ImportOptions& o) { o.compressionLevel = 10; },
        [](ImportOptions& o) { o.compressionLevel = -2; },
        [](ImportOptions& o) { o.threads = -1; },
        [](ImportOptions& o) { o.threads = 100000; },
    };
    const TempFolder folder;
    for (const auto& spoil : bad) {
        ImportOptions options;
        spoil(options);
        const auto source = SourceOf(SmallText());
        EXPECT_THROW(ImportScan(*source, 0, folder / "a.qsn", options), kxbase::KXBadInputException);
        EXPECT_EQ(source->BytesRead(), 0U);
    }
    EXPECT_TRUE(Entries(folder).empty());
}

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

TEST(ImportScan, ANameBeyondAsciiIsWrittenAndRead) {
    const TempFolder folder;
    const std::filesystem::path path = folder.Path() / std::filesystem::path(u8"Aufnahme \u4e03.qsn");
    ImportScan(*SourceOf(SmallText()), 0, path);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(ExportScan(path, folder.Path() / std::filesystem::path(u8"\u4e03.ply"), "PLY").cells, 1200U);
}

}  // namespace
}  // namespace kxexchange::testing
