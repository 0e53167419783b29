// SPDX-License-Identifier: MIT
// Records of an E57 file on their way into the columns of a grid.
#include <gtest/gtest.h>

#include "BuiltE57.h"

namespace {

using namespace kxexchange;
using kxexchange::plain::Builder;
using kxexchange::plain::Keepsake;
using kxexchange::plain::Open;
using kxexchange::plain::Ordered;
using kxexchange::testing::ReadScan;
using kxexchange::testing::Scan;

TEST(E57Source, GridsComeFilledInColumnOrder) {
    Builder builder;
    builder.Scan(
        "<cartesianX type=\"ScaledInteger\" minimum=\"0\" maximum=\"255\" scale=\"0.001\"/>"
        "<cartesianY type=\"Integer\" minimum=\"7\" maximum=\"7\"/>"
        "<cartesianZ type=\"Integer\" minimum=\"0\" maximum=\"0\"/>"
        "<rowIndex type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
        "<columnIndex type=\"Integer\" minimum=\"-100\" maximum=\"155\"/>",
        {{1, 2, 3}, {}, {}, {11, 10, 12}, {100, 102, 102}});
    const auto source = Open(builder.File());
    const Scan scan = ReadScan(*source);
    EXPECT_EQ(scan.description.columns, 3U);
    EXPECT_EQ(scan.description.rows, 3U);
    EXPECT_EQ(scan.description.points, 9U);
    EXPECT_EQ(Keepsake(scan.description, "e57-first-row"), "10");
    EXPECT_EQ(Keepsake(scan.description, "e57-first-column"), "none");  // 100 - 100
    ASSERT_EQ(scan.cells.size(), 9U);
    for (uint64_t column = 0; column < 3; ++column) {
        for (uint64_t row = 0; row < 3; ++row) {
            const Cell& cell = scan.At(column, row);
            const double x = column == 0 && row == 1   ? 0.001
                             : column == 2 && row == 0 ? 0.002
                             : column == 2 && row == 2 ? 0.003
                                                       : 0;
            EXPECT_EQ(cell.valid, x != 0);
            EXPECT_EQ(cell.x, x);
            EXPECT_EQ(cell.y, x != 0 ? 7 : 0);
        }
    }
    EXPECT_TRUE(source->Warnings().empty());
}

TEST(E57Source, RecordsOfAnyOrderAreSortedIntoTheirColumns) {
    const std::vector<unsigned char> orders[] = {
        {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11},  // columns
        {3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8},  // columns, rows downwards
        {0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11},  // rows
        {11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0},  // backwards
        {5, 0, 11, 3, 8, 1, 9, 2, 7, 4, 10, 6},  // anyhow
    };
    for (const auto& places : orders) {
        const auto source = Open(Ordered(places).File());
        for (int pass = 0; pass < 2; ++pass) {
            const Scan scan = ReadScan(*source);
            ASSERT_EQ(scan.cells.size(), 12U);
            for (size_t i = 0; i < 12; ++i)
                EXPECT_EQ(scan.cells[places[i]].x, static_cast<double>(i + 1));
        }
        // A column at a time, too.
        source->OpenScan(0);
        std::vector<Cell> cells;
        for (size_t column = 0; column < 3; ++column) {
            ASSERT_EQ(source->ReadColumns(1, cells), 1U);
            ASSERT_EQ(cells.size(), 4U);
            for (const Cell& cell : cells)
                EXPECT_EQ(places[static_cast<size_t>(cell.x) - 1] / 4U, column);
        }
        EXPECT_EQ(source->ReadColumns(1, cells), 0U);
    }
}

TEST(E57Source, TheFileInWhichRecordsAreSortedIsGoneAfterwards) {
    const TempFolder folder;
    SourceOptions options;
    options.temporaryFolder = folder.Path();
    {
        const auto source = Open(Ordered({0, 4, 8, 1, 5, 9}).File(), options);
        const Scan scan = ReadScan(*source);
        EXPECT_EQ(scan.cells.size(), 6U);
        EXPECT_EQ(kxexchange::testing::Entries(folder).size(), 1U);
    }
    EXPECT_TRUE(kxexchange::testing::Entries(folder).empty());
    options.temporaryFolder = folder / "nowhere";
    const auto source = Open(Ordered({0, 4, 8, 1, 5, 9}).File(), options);
    source->OpenScan(0);
    std::vector<Cell> cells;
    EXPECT_THROW(source->ReadColumns(1, cells), kxbase::KXFileNotOpenException);
}

TEST(E57Source, OfTwoRecordsForOnePlaceTheFirstIsKept) {
    for (const auto& places : {std::vector<unsigned char>{0, 3, 3, 4, 7, 3}, {0, 3, 3, 3, 4, 7}}) {
        const auto source = Open(Ordered(places).File());
        const Scan scan = ReadScan(*source);
        EXPECT_EQ(scan.description.rows, 4U);
        EXPECT_EQ(scan.At(0, 3).x, 2);
        ASSERT_EQ(source->Warnings().size(), 1U);
        EXPECT_TRUE(source->Warnings()[0].starts_with("2 records name a place")) << source->Warnings()[0];
    }
}

TEST(E57Source, DeclaredIndexBoundsMakeTheGridAndAreWidenedWhereTheyAreWrong) {
    Builder builder = Ordered({0, 1, 4, 5});
    builder.Extra(
        "<indexBounds type=\"Structure\"><rowMinimum type=\"Integer\">-1</rowMinimum><rowMaximum "
        "type=\"Integer\">6</rowMaximum><columnMinimum type=\"Integer\"/><columnMaximum "
        "type=\"Integer\">4</columnMaximum></indexBounds>");
    auto source = Open(builder.File());
    ScanDescription description = source->OpenScan(0);
    EXPECT_EQ(description.columns, 5U);
    EXPECT_EQ(description.rows, 8U);
    EXPECT_EQ(Keepsake(description, "e57-first-row"), "-1");
    EXPECT_TRUE(source->Warnings().empty());

    Builder narrow = Ordered({0, 1, 4, 5});
    narrow.Extra(
        "<indexBounds type=\"Structure\"><rowMinimum type=\"Integer\"/><rowMaximum "
        "type=\"Integer\"/><columnMinimum type=\"Integer\"/><columnMaximum "
        "type=\"Integer\">4</columnMaximum></indexBounds>");
    source = Open(narrow.File());
    description = source->OpenScan(0);
    EXPECT_EQ(description.rows, 2U);
    EXPECT_EQ(description.columns, 5U);
    EXPECT_EQ(source->Warnings(),
              std::vector<std::string>{
                  "Records lie outside the index bounds of the file; the grid is as large as they need"});
}

TEST(E57Source, AGridFarLargerThanItsRecordsIsRefused) {
    Builder builder = Ordered({0, 1, 4, 5});
    builder.Extra(
        "<indexBounds type=\"Structure\"><rowMinimum type=\"Integer\"/><rowMaximum "
        "type=\"Integer\">2147483646</rowMaximum><columnMinimum type=\"Integer\"/><columnMaximum "
        "type=\"Integer\">2147483646</columnMaximum></indexBounds>");
    const auto source = Open(builder.File());
    try {
        source->OpenScan(0);
        FAIL() << "was not refused";
    } catch (const SourceFormatException& e) {
        EXPECT_EQ(e.Context().field, "indexBounds");
        EXPECT_NE(e.Context().detail.find("for 4 records"), std::string::npos);
    }
}

}  // namespace
