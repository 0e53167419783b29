// SPDX-License-Identifier: MIT
// The table of formats in the documentation is the one in the code, and every cell of it is so.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <sstream>

#include "QsnSource.h"
#include "ReadBack.h"
#include "TestTools.h"
#include "kxcodecs/JPEG.h"

namespace kxexchange::testing {
namespace {

using Row = std::vector<std::string>;

struct Column {
    const char* name;
    Fate FormatCapabilities::*fate;
};
constexpr Column kTableColumns[] = {
    {"grid", &FormatCapabilities::grid},
    {"no returns", &FormatCapabilities::noReturns},
    {"pose", &FormatCapabilities::pose},
    {"intensity", &FormatCapabilities::intensity},
    {"colour", &FormatCapabilities::color},
    {"classes", &FormatCapabilities::classes},
    {"several scans", &FormatCapabilities::severalScans},
    {"images", &FormatCapabilities::images},
};

Row Cells(const std::string& line) {
    Row cells;
    std::istringstream in(line);
    std::string cell;
    std::getline(in, cell, '|');  // in front of the first bar
    while (std::getline(in, cell, '|')) {
        const size_t first = cell.find_first_not_of(' '), last = cell.find_last_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    return cells;
}

std::vector<Row> DocumentedTable() {
    std::istringstream in(ReadFile(std::filesystem::path(KXIO_SOURCE_DIR) / "docs" / "exchange.md"));
    std::vector<Row> rows;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        if (line == "<!-- end of capabilities -->") return rows;
        if (inside && line.rfind("|---", 0) != 0) rows.push_back(Cells(line));
        inside = inside || line == "<!-- capabilities -->";
    }
    ADD_FAILURE() << "the table is not in docs/exchange.md";
    return {};
}

Row RowOf(const std::string& name, const FormatCapabilities& can) {
    Row row{name};
    for (const Column& column : kTableColumns)
        row.push_back(FateText(can.*column.fate));
    return row;
}

TEST(FormatTable, TheDocumentationSaysWhatTheCodeSays) {
    const std::vector<Row> documented = DocumentedTable();
    ASSERT_FALSE(documented.empty());
    Row head{"format"};
    for (const Column& column : kTableColumns)
        head.push_back(column.name);
    EXPECT_EQ(documented[0], head);
    std::vector<Row> expected{head, RowOf("QSN", QsnSource::Capabilities())};
    for (const SinkFormat& format : SinkFormats())
        expected.push_back(RowOf(std::string(format.name), format.capabilities));
    std::map<std::string, Row> rows;
    for (const Row& row : documented)
        rows[row.empty() ? "" : row[0]] = row;
    for (const Row& row : expected)
        EXPECT_EQ(rows[row[0]], row) << row[0];
    EXPECT_EQ(documented.size(), expected.size()) << "a format too many in the documentation";
}

constexpr uint64_t kGridColumns = 7, kGridRows = 5;

std::vector<Cell> FullCells() {
    Sweep sweep;
    sweep.columns = kGridColumns;
    sweep.rows = kGridRows;
    sweep.missing = 0.25;
    std::vector<Cell> cells = MakeSweep(sweep);
    for (size_t i = 0; i < cells.size(); ++i) {
        cells[i].intensity = cells[i].valid ? static_cast<double>(i * 30) : 0.0;
        cells[i].classification = static_cast<uint8_t>(cells[i].valid ? i % 7 : 0);
        // Single precision holds them too.
        cells[i].x = static_cast<double>(static_cast<float>(cells[i].x));
        cells[i].y = static_cast<double>(static_cast<float>(cells[i].y));
        cells[i].z = static_cast<double>(static_cast<float>(cells[i].z));
    }
    return cells;
}

uint64_t Returns() {
    const std::vector<Cell> cells = FullCells();
    return static_cast<uint64_t>(
        std::count_if(cells.begin(), cells.end(), [](const Cell& cell) { return cell.valid; }));
}

constexpr double kGreatestIntensity = 30.0 * kGridColumns * kGridRows;

std::vector<unsigned char> Jpeg() {
    const std::vector<unsigned char> pixels(3 * 8 * 4, 90);
    std::vector<unsigned char> jpeg;
    EXPECT_TRUE(kxcodecs::JPEG::Encode(pixels.data(), 8, 4, 80, jpeg));
    return jpeg;
}

ScanDescription FullScan() {
    ScanDescription description;
    description.columns = kGridColumns;
    description.rows = kGridRows;
    description.points = kGridColumns * kGridRows;
    description.coordinates.present = description.intensity.present = true;
    description.color.present = description.classification.present = true;
    description.coordinates.numbers = NumberKind::Single;
    description.coordinates.maximum = 40;
    description.intensity.numbers = NumberKind::Integer;
    description.intensity.minimum = 0;
    description.intensity.maximum = kGreatestIntensity;
    const double pose[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 1 / 3.0, -20.1, 1e-3};
    description.pose = kxbase::RegistrationInformation::FromValues(pose);
    ImageDescription image;
    image.name = "view";
    image.byteCount = Jpeg().size();
    image.load = Jpeg;
    description.images.push_back(image);
    return description;
}

class OneScanSource final : public ScanSource {
public:
    std::string FormatName() const override { return "TEST"; }
    std::string Name() const override { return "test"; }
    uint64_t ScanCount() override { return 1; }
    ScanDescription OpenScan(uint64_t) override {
        m_done = false;
        return FullScan();
    }
    uint64_t ReadColumns(uint64_t, std::vector<Cell>& cells) override {
        cells = m_done ? std::vector<Cell>() : FullCells();
        return std::exchange(m_done, true) ? 0 : kGridColumns;
    }
    uint64_t BytesRead() const override { return 0; }
    uint64_t FileBytes() const override { return 1; }

private:
    bool m_done = false;
};

// One scan with everything, written and read back: what the table calls kept is the same, what it calls
// converted is there within the bound, and what it calls lost is not there.
class EveryFormat : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        if (IsQsn()) {
            m_can = QsnSource::Capabilities();
        } else {
            m_can = FindSinkFormat(GetParam())->capabilities;
        }
    }
    bool IsQsn() const { return GetParam() == "QSN"; }
    // A file of single planes holds one of them, whatever the table says about the format.
    bool IsOnePlane() const { return GetParam() == "NPY" || GetParam() == "PNG"; }

    std::filesystem::path Write(const SinkOptions& sinkOptions, uint64_t scans) {
        OneScanSource source;
        if (IsQsn()) {
            const auto path = m_folder / "a.qsn";
            m_losses = ImportScan(source, 0, path).losses;
            return path;
        }
        const SinkFormat& format = *FindSinkFormat(GetParam());
        const auto path = m_folder / ("a" + std::string(format.endings[0]));
        ExportOptions options;
        options.sink = sinkOptions;
        options.sink.threads = 1;
        ScanFileExport file(path, format, options);
        for (uint64_t i = 0; i < scans; ++i)
            m_losses = file.Add(source, 0).losses;
        file.Commit();
        return path;
    }
    ReadBackScan Back(uint64_t scans = 1) {
        return ReadBack(GetParam(), [&](const SinkOptions& options) { return Write(options, scans); });
    }

    // Pairs of the cells given and those that came back: all where the grid is kept, else the returns.
    using Pairs = std::vector<std::pair<Cell, Cell>>;
    Pairs Paired(const ReadBackScan& back) const {
        Pairs pairs;
        size_t at = 0;
        for (const Cell& cell : FullCells()) {
            if (m_can.grid != Fate::Kept && !cell.valid) continue;
            if (at == back.cells.size()) {
                ADD_FAILURE() << "only " << at << " cells came back";
                break;
            }
            pairs.emplace_back(cell, back.cells[at++]);
        }
        return pairs;
    }
    Fate Told(const char* field) const {
        const LossEntry* const entry = m_losses.Find(field);
        EXPECT_NE(entry, nullptr) << field;
        return entry ? entry->fate : Fate::Lost;
    }

    TempFolder m_folder;
    FormatCapabilities m_can;
    LossReport m_losses;
};

TEST_P(EveryFormat, TheGridAndCellsWithoutAReturnComeBackOrAreGone) {
    const ReadBackScan back = Back();
    EXPECT_EQ(Told("grid"), m_can.grid);
    if (m_can.grid == Fate::Kept) {
        EXPECT_EQ(back.columns, kGridColumns);
        EXPECT_EQ(back.rows, kGridRows);
    } else {
        EXPECT_EQ(back.columns * back.rows, 0U);
    }
    EXPECT_EQ(back.points, std::vector<uint64_t>{Returns()});
    EXPECT_EQ(back.cells.size(), m_can.noReturns == Fate::Kept ? kGridColumns * kGridRows : Returns());
    for (const auto& [given, got] : Paired(back))
        ASSERT_EQ(got.valid, given.valid);
}

TEST_P(EveryFormat, ThePoseIsKeptOrAppliedOrLost) {
    const ReadBackScan back = Back();
    EXPECT_EQ(Told("pose"), m_can.pose);
    const kxbase::RegistrationInformation pose = FullScan().pose;
    if (m_can.pose == Fate::Kept) {
        EXPECT_EQ(back.pose, pose);  // to the last bit
    } else if (back.pose) {
        EXPECT_EQ(*back.pose, kxbase::RegistrationInformation());
    }
    // In steps of a picture's millimetres and of a text's or LAS's tenths; .qsn files have steps too.
    const double bound = GetParam() == "PNG" ? 5e-3 : 3e-4;
    for (const auto& [given, got] : Paired(back)) {
        if (!given.valid) continue;
        Cell expected = given;
        if (m_can.pose == Fate::Converted) {
            // A quarter turn: x' = -y + tx, y' = x + ty.
            expected.x = -given.y + 1 / 3.0;
            expected.y = given.x - 20.1;
            expected.z = given.z + 1e-3;
        }
        ASSERT_NEAR(got.x, expected.x, bound);
        ASSERT_NEAR(got.y, expected.y, bound);
        ASSERT_NEAR(got.z, expected.z, bound);
    }
}

TEST_P(EveryFormat, IntensityIsKeptOrGoesThroughAStraightLine) {
    const ReadBackScan back = Back();
    EXPECT_EQ(back.intensity, m_can.intensity != Fate::Lost);
    const Pairs pairs = Paired(back);
    if (m_can.intensity == Fate::Kept) {
        for (const auto& [given, got] : pairs)
            ASSERT_TRUE(!given.valid || got.intensity == given.intensity);
        return;
    }
    // The line through the first and the last return.
    std::vector<std::pair<double, double>> values;
    for (const auto& [given, got] : pairs) {
        if (given.valid) values.emplace_back(given.intensity, got.intensity);
    }
    const auto [x0, y0] = values.front();
    const auto [x1, y1] = values.back();
    ASSERT_GT(y1, y0);
    const double slope = (x1 - x0) / (y1 - y0);
    for (const auto& [x, y] : values)
        ASSERT_NEAR(x0 + (y - y0) * slope, x, 1.5 * kGreatestIntensity / 4095);
}

TEST_P(EveryFormat, ColoursAreKeptWithinTheTable) {
    const ReadBackScan back = Back();
    EXPECT_EQ(back.color, m_can.color != Fate::Lost);
    if (!IsOnePlane()) {
        EXPECT_EQ(Told("colour"), m_can.color);
    }
    for (const auto& [given, got] : Paired(back)) {
        if (!given.valid) continue;
        ASSERT_EQ(got.red, given.red * back.colorScale);
        ASSERT_EQ(got.green, given.green * back.colorScale);
        ASSERT_EQ(got.blue, given.blue * back.colorScale);
    }
}

TEST_P(EveryFormat, ClassesAreKeptOrLost) {
    const ReadBackScan back = Back();
    EXPECT_EQ(back.classes, m_can.classes != Fate::Lost);
    if (!IsOnePlane()) {
        EXPECT_EQ(Told("classes"), m_can.classes);
    }
    if (m_can.classes != Fate::Kept) return;
    for (const auto& [given, got] : Paired(back))
        ASSERT_TRUE(!given.valid || got.classification == given.classification);
}

TEST_P(EveryFormat, SeveralScansStayApartOrRunTogetherOrAreRefused) {
    if (IsQsn()) {
        // There is no way to give it a second one: OUT_1, OUT_2 and so on are files of their own.
        EXPECT_EQ(m_can.severalScans, Fate::Lost);
        EXPECT_EQ(Back().points.size(), 1U);
        return;
    }
    switch (m_can.severalScans) {
        case Fate::Kept:
            EXPECT_EQ(Back(3).points, std::vector<uint64_t>(3, Returns()));
            break;
        case Fate::Converted:
            EXPECT_EQ(Back(3).points, std::vector<uint64_t>{3 * Returns()});
            break;
        case Fate::Lost:
            EXPECT_THROW(Back(2), kxbase::KXBadInputException);
            EXPECT_TRUE(Entries(m_folder).empty());
            break;
    }
}

TEST_P(EveryFormat, ImagesAreKeptOrLost) {
    const ReadBackScan back = Back();
    EXPECT_EQ(back.images, m_can.images == Fate::Lost ? 0U : 1U);
    if (!IsQsn()) {
        EXPECT_EQ(Told("images"), m_can.images);
    }
    const std::vector<unsigned char> jpeg = Jpeg();
    const std::string file = ReadFile(m_folder / Entries(m_folder).front());
    const auto found =
        std::search(file.begin(), file.end(), jpeg.begin(), jpeg.end(),
                    [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; });
    EXPECT_EQ(found != file.end(), m_can.images != Fate::Lost);
}

std::vector<std::string> Names() {
    std::vector<std::string> names{"QSN"};
    for (const SinkFormat& format : SinkFormats())
        names.emplace_back(format.name);
    return names;
}
INSTANTIATE_TEST_SUITE_P(Sinks, EveryFormat, ::testing::ValuesIn(Names()),
                         [](const auto& tested) { return tested.param; });

}  // namespace
}  // namespace kxexchange::testing
