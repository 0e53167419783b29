// SPDX-License-Identifier: MIT
// What an import stores, reports and leaves behind; what of the values arrives is tested apart.
#include "kxexchange/ImportScan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <sstream>

#include "RoundTrip.h"
#include "SmallSweep.h"
#include "kxbase/UTF8.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace kxexchange::testing {
namespace {

using kxbase::ComponentType;

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

TEST(ImportScan, ANameBeyondAsciiIsWrittenAndRead) {
    const TempFolder folder;
    const std::filesystem::path path = folder.Path() / std::filesystem::path(u8"Aufnahme \u4e03.qsn");
    ImportScan(*SourceOf(SmallText()), 0, path);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(ExportScan(path, folder.Path() / std::filesystem::path(u8"\u4e03.ply"), "PLY").cells, 1200U);
}

}  // namespace
}  // namespace kxexchange::testing
