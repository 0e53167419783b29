// SPDX-License-Identifier: MIT
// The table of formats in the documentation is the one in the code, and what it calls kept comes back.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <sstream>

#include "QsnSource.h"
#include "TestTools.h"

namespace kxexchange::testing {
namespace {

using Row = std::vector<std::string>;

struct Column {
    const char* name;
    Fate FormatCapabilities::*fate;
};
constexpr Column kColumns[] = {
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
    for (const Column& column : kColumns)
        row.push_back(FateText(can.*column.fate));
    return row;
}

TEST(FormatTable, TheDocumentationSaysWhatTheCodeSays) {
    const std::vector<Row> documented = DocumentedTable();
    ASSERT_FALSE(documented.empty());
    Row head{"format"};
    for (const Column& column : kColumns)
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
        cells[i].intensity = cells[i].valid ? static_cast<double>(i * 3) : 0.0;
        cells[i].classification = static_cast<uint8_t>(cells[i].valid ? i % 7 : 0);
        // Single precision holds them too.
        cells[i].x = static_cast<double>(static_cast<float>(cells[i].x));
        cells[i].y = static_cast<double>(static_cast<float>(cells[i].y));
        cells[i].z = static_cast<double>(static_cast<float>(cells[i].z));
    }
    return cells;
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
    description.intensity.maximum = 3.0 * kGridColumns * kGridRows;
    const double pose[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 1 / 3.0, -20.1, 1e-3};
    description.pose = kxbase::RegistrationInformation::FromValues(pose);
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

class EveryFormat : public ::testing::TestWithParam<std::string> {
protected:
    // The scan written as this format and read again; nothing when the format is not read.
    void RoundTrip(uint64_t scans) {
        const SinkFormat& format = *FindSinkFormat(GetParam());
        m_can = format.capabilities;
        bool read = false;
        for (const SourceFormat& source : SourceFormats())
            read = read || source.name == format.name;
        if (!read) GTEST_SKIP() << GetParam() << " is written only";
        const std::filesystem::path path = m_folder / ("a" + std::string(format.endings[0]));
        OneScanSource source;
        ExportOptions options;
        options.sink.threads = 1;
        ScanFileExport file(path, format, options);
        for (uint64_t i = 0; i < scans; ++i)
            file.Add(source, 0);
        file.Commit();
        SourceOptions sourceOptions;
        sourceOptions.coordinateKind = CoordinateKind::Cartesian;
        m_source = OpenScanSource(path, sourceOptions);
        m_back.description = m_source->OpenScan(0);
        std::vector<Cell> piece;
        while (m_source->ReadColumns(3, piece) != 0)
            m_back.cells.insert(m_back.cells.end(), piece.begin(), piece.end());
        if (m_back.description.coordinateKind == CoordinateKind::Spherical) ToCartesian(m_back.cells);
    }

    TempFolder m_folder;
    FormatCapabilities m_can;
    std::unique_ptr<ScanSource> m_source;
    Scan m_back;
};

TEST_P(EveryFormat, WhatTheTableCallsKeptComesBack) {
    RoundTrip(1);
    if (IsSkipped()) return;
    const std::vector<Cell> given = FullCells();
    const ScanDescription& description = m_back.description;
    EXPECT_EQ(description.HasGrid(), m_can.grid == Fate::Kept);
    if (m_can.pose == Fate::Kept) {
        EXPECT_EQ(description.pose, FullScan().pose);
    }
    EXPECT_EQ(description.intensity.present, m_can.intensity != Fate::Lost);
    EXPECT_EQ(description.color.present, m_can.color != Fate::Lost);
    EXPECT_EQ(description.classification.present, m_can.classes != Fate::Lost);
    if (!description.HasGrid()) return;
    ASSERT_EQ(m_back.cells.size(), given.size());
    for (size_t i = 0; i < given.size(); ++i) {
        const Cell& cell = m_back.cells[i];
        ASSERT_EQ(cell.valid, given[i].valid) << i;
        if (!cell.valid) continue;
        ASSERT_NEAR(cell.x, given[i].x, 1e-6) << i;
        ASSERT_NEAR(cell.y, given[i].y, 1e-6) << i;
        ASSERT_NEAR(cell.z, given[i].z, 1e-6) << i;
        if (m_can.intensity == Fate::Kept) {
            ASSERT_EQ(cell.intensity, given[i].intensity) << i;
        }
        const unsigned factor = description.colorBits == 16 ? 257 : 1;
        if (m_can.color == Fate::Kept) {
            ASSERT_EQ(cell.red, given[i].red * factor) << i;
        }
        if (m_can.classes == Fate::Kept) {
            ASSERT_EQ(cell.classification, given[i].classification) << i;
        }
    }
}

TEST_P(EveryFormat, SeveralScansStayApartWhereTheTableSaysSo) {
    if (FindSinkFormat(GetParam())->capabilities.severalScans != Fate::Kept)
        GTEST_SKIP() << GetParam() << " does not keep several scans apart";
    RoundTrip(3);
    if (!IsSkipped()) {
        EXPECT_EQ(m_source->ScanCount(), 3U);
    }
}

std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const SinkFormat& format : SinkFormats())
        names.emplace_back(format.name);
    return names;
}
INSTANTIATE_TEST_SUITE_P(Sinks, EveryFormat, ::testing::ValuesIn(Names()),
                         [](const auto& tested) { return tested.param; });

}  // namespace
}  // namespace kxexchange::testing
