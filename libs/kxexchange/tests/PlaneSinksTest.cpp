// SPDX-License-Identifier: MIT
// NPY, NPZ, PNG and OpenEXR out, read back by little readers of these tests.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>

#include "PlaneFiles.h"
#include "SinkScan.h"

namespace kxexchange::testing {
namespace {

TEST(FormatsOfPlanes, RefuseAScanWithoutGridAndUnknownPlanes) {
    ScanDescription description = Described();
    description.columns = description.rows = 0;
    for (const char* format : {"NPY", "NPZ", "PNG", "EXR"}) {
        kxbase::InMemoryStream stream;
        EXPECT_THROW(FindSinkFormat(format)->make(stream, {})->BeginScan(description),
                     kxbase::KXBadInputException);
    }
    SinkOptions options;
    options.plane = "colour-of-magic";
    for (const char* format : {"NPY", "PNG"}) {
        kxbase::InMemoryStream stream;
        EXPECT_THROW(FindSinkFormat(format)->make(stream, options)->BeginScan(Described()),
                     kxbase::KXBadInputException);
    }
}

TEST(NpySink, OnePlaneIsAnArray) {
    const std::vector<Cell> cells = SinkCells();
    const Array range = ParseNpy(Written("NPY", {Described()}, cells));
    EXPECT_EQ(range.type, "<f4");
    ASSERT_EQ(range.rows, kSinkRows);
    ASSERT_EQ(range.columns, kSinkColumns);
    ASSERT_EQ(range.data.size(), 4 * kSinkColumns * kSinkRows);
    SinkOptions options;
    options.plane = "intensity";
    LossReport losses;
    losses.Add({"colour", Fate::Kept, {}, {}});
    const Array intensity = ParseNpy(Written("NPY", {Described()}, cells, options, &losses));
    EXPECT_EQ(intensity.type, "<f8");
    EXPECT_EQ(losses.Find("colour")->fate, Fate::Lost);
    for (size_t row = 0; row < kSinkRows; ++row) {
        for (size_t column = 0; column < kSinkColumns; ++column) {
            const Cell& cell = Of(cells, row, column);
            const auto value = range.Get<float>(row, column);
            EXPECT_EQ(std::isnan(value), !cell.valid);
            if (!cell.valid) continue;
            EXPECT_NEAR(static_cast<double>(value),
                        std::sqrt(cell.x * cell.x + cell.y * cell.y + cell.z * cell.z), 1e-5);
            EXPECT_EQ(intensity.Get<double>(row, column), cell.intensity);
        }
    }
}

TEST(NpzSink, HoldsAllPlanes) {
    const std::vector<Cell> cells = SinkCells();
    const auto members = Unzip(Written("NPZ", {Described()}, cells));
    ASSERT_EQ(members.size(), 9u);
    const Array azimuth = ParseNpy(members.at("azimuth.npy")),
                elevation = ParseNpy(members.at("elevation.npy")), range = ParseNpy(members.at("range.npy")),
                red = ParseNpy(members.at("red.npy")), classes = ParseNpy(members.at("classification.npy")),
                valid = ParseNpy(members.at("valid.npy"));
    EXPECT_EQ(red.type, "|u1");
    for (size_t row = 0; row < kSinkRows; ++row) {
        for (size_t column = 0; column < kSinkColumns; ++column) {
            const Cell& cell = Of(cells, row, column);
            EXPECT_EQ(valid.Get<uint8_t>(row, column), cell.valid ? 1 : 0);
            EXPECT_EQ(red.Get<uint8_t>(row, column), cell.red);
            EXPECT_EQ(classes.Get<uint8_t>(row, column), cell.classification);
            if (!cell.valid) continue;
            const double r = static_cast<double>(range.Get<float>(row, column));
            const double a = static_cast<double>(azimuth.Get<float>(row, column));
            const double e = static_cast<double>(elevation.Get<float>(row, column));
            EXPECT_NEAR(r * std::cos(e) * std::cos(a), cell.x, 1e-4);
            EXPECT_NEAR(r * std::cos(e) * std::sin(a), cell.y, 1e-4);
            EXPECT_NEAR(r * std::sin(e), cell.z, 1e-4);
        }
    }
    ScanDescription plain = Described(false);
    plain.intensity.present = plain.classification.present = false;
    EXPECT_EQ(Unzip(Written("NPZ", {plain}, cells)).size(), 4u);
}

// A range is a distance from the scanner: a plane takes no pose by itself.
TEST(FormatsOfPlanes, StayInTheInstrumentsFrameUnlessAskedOtherwise) {
    const std::vector<Cell> cells = SinkCells();
    std::string text = PtxText(cells, kSinkColumns, kSinkRows);
    const size_t at = text.find("0 0 0 1\n");
    ASSERT_NE(at, std::string::npos);
    text.replace(at, 8, "100 0 0 1\n");
    const auto source = SourceOf(text);
    for (const bool asked : {false, true}) {
        TempFolder folder;
        ExportOptions options;
        if (asked) options.registration = RegistrationUse::Apply;
        ScanFileExport file(folder.Path() / "a.npy", *FindSinkFormat("NPY"), options);
        const ExportReport report = file.Add(*source, 0);
        file.Commit();
        ASSERT_TRUE(report.losses.Find("pose"));
        EXPECT_EQ(report.losses.Find("pose")->fate, asked ? Fate::Converted : Fate::Lost);
        const Array range = ParseNpy(ReadFile(folder.Path() / "a.npy"));
        for (size_t row = 0; row < kSinkRows; ++row) {
            const Cell& cell = Of(cells, row, 0);
            if (!cell.valid) continue;
            EXPECT_NEAR(static_cast<double>(range.Get<float>(row, 0)),
                        std::hypot(cell.x + (asked ? 100 : 0), cell.y, cell.z), 1e-4);
        }
    }
}

TEST(PngSink, RangesAreMillimetres) {
    const std::vector<Cell> cells = SinkCells();
    const Picture picture = ParsePng(Written("PNG", {Described()}, cells));
    ASSERT_EQ(picture.width, kSinkColumns);
    ASSERT_EQ(picture.height, kSinkRows);
    EXPECT_EQ(picture.bits, 16);
    EXPECT_EQ(picture.text, "plane=range offset=0 scale=0.001 empty=0");
    for (size_t row = 0; row < kSinkRows; ++row) {
        for (size_t column = 0; column < kSinkColumns; ++column) {
            const Cell& cell = Of(cells, row, column);
            const double range = std::sqrt(cell.x * cell.x + cell.y * cell.y + cell.z * cell.z);
            EXPECT_EQ(picture.Get(row, column), cell.valid ? std::round(range * 1000) : 0);
        }
    }
}

TEST(PngSink, FarRangesTakeACoarserStep) {
    std::vector<Cell> cells = SinkCells();
    Cell& far = *std::find_if(cells.begin(), cells.end(), [](const Cell& c) { return c.valid; });
    far.x = 300;
    far.y = far.z = 0;
    const Picture picture = ParsePng(Written("PNG", {Described()}, cells));
    EXPECT_EQ(picture.text, "plane=range offset=0 scale=0.005 empty=0");
}

TEST(PngSink, ColoursIntensitiesAndClassesAreExactWhereTheyFit) {
    std::vector<Cell> cells = SinkCells();
    for (Cell& cell : cells)
        cell.intensity = std::round(cell.intensity * 255);
    SinkOptions options;
    options.plane = "color";
    const Picture color = ParsePng(Written("PNG", {Described()}, cells, options));
    options.plane = "intensity";
    LossReport losses;
    losses.Add({"intensity", Fate::Converted, {}, {}});
    const Picture intensity = ParsePng(Written("PNG", {Described()}, cells, options, &losses));
    options.plane = "classification";
    const Picture classes = ParsePng(Written("PNG", {Described()}, cells, options));
    EXPECT_EQ(color.channels, 3);
    EXPECT_EQ(intensity.bits, 8);
    EXPECT_EQ(losses.Find("intensity")->fate, Fate::Kept);
    for (size_t row = 0; row < kSinkRows; ++row) {
        for (size_t column = 0; column < kSinkColumns; ++column) {
            const Cell& cell = Of(cells, row, column);
            EXPECT_EQ(color.Get(row, column, 0), cell.red);
            EXPECT_EQ(color.Get(row, column, 2), cell.blue);
            EXPECT_EQ(intensity.Get(row, column), cell.valid ? cell.intensity : 0);
            EXPECT_EQ(classes.Get(row, column), cell.classification);
        }
    }
    ScanDescription deep = Described();
    deep.colorBits = 16;
    for (Cell& cell : cells)
        cell.red = static_cast<uint16_t>(cell.red * 250 + 3);
    options.plane = "color";
    const Picture sixteen = ParsePng(Written("PNG", {deep}, cells, options));
    EXPECT_EQ(sixteen.bits, 16);
    EXPECT_EQ(sixteen.Get(3, 4, 0), Of(cells, 3, 4).red);
}

TEST(PngSink, SharesOfOneGoThroughTheMappingThatTheTextNames) {
    const std::vector<Cell> cells = SinkCells();
    SinkOptions options;
    options.plane = "intensity";
    const Picture picture = ParsePng(Written("PNG", {Described()}, cells, options));
    double offset = 0, scale = 0;
    ASSERT_EQ(std::sscanf(picture.text.c_str(), "plane=intensity offset=%lf scale=%lf", &offset, &scale), 2);
    for (size_t row = 0; row < kSinkRows; ++row) {
        for (size_t column = 0; column < kSinkColumns; ++column) {
            const Cell& cell = Of(cells, row, column);
            if (cell.valid) {
                EXPECT_NEAR(offset + picture.Get(row, column) * scale, cell.intensity, 0.5001 * scale);
            }
        }
    }
}

TEST(ExrSink, ChannelsHoldThePlanes) {
    const std::vector<Cell> cells = SinkCells();
    TempFolder folder;
    const auto path = folder.Path() / "a.exr";
    WriteFile(path, Written("EXR", {Described()}, cells));
    const Channels channels = ReadExr(path);
    EXPECT_EQ(channels.values.size(), 9u);
    ASSERT_EQ(channels.rows, kSinkRows);
    ASSERT_EQ(channels.columns, kSinkColumns);
    const auto &range = channels.values.at("range"), &green = channels.values.at("G"),
               &intensity = channels.values.at("intensity");
    for (size_t row = 0; row < kSinkRows; ++row) {
        for (size_t column = 0; column < kSinkColumns; ++column) {
            const Cell& cell = Of(cells, row, column);
            const size_t at = row * kSinkColumns + column;
            EXPECT_EQ(std::isnan(range[at]), !cell.valid);
            EXPECT_EQ(green[at], static_cast<float>(cell.green / 255.0));
            if (!cell.valid) continue;
            EXPECT_NEAR(static_cast<double>(range[at]), std::hypot(std::hypot(cell.x, cell.y), cell.z), 1e-5);
            EXPECT_EQ(intensity[at], static_cast<float>(cell.intensity));
        }
    }
}

}  // namespace
}  // namespace kxexchange::testing
