// SPDX-License-Identifier: MIT
// PCD, PTS, LAS and packed PTX out, read back by little readers of these tests.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "PlaneFiles.h"
#include "SinkScan.h"

namespace kxexchange::testing {
namespace {

TEST(PcdSink, AGridIsAnOrganisedCloud) {
    const std::vector<Cell> cells = SinkCells();
    LossReport losses;
    const std::string pcd = Written("PCD", {Described()}, cells, {}, &losses);
    const std::string mark = "DATA binary\n";
    const size_t data = pcd.find(mark) + mark.size();
    std::map<std::string, std::string> header;
    for (size_t at = 0; at < data;) {
        const size_t end = pcd.find('\n', at);
        std::string line = pcd.substr(at, end - at);
        while (line.ends_with(' '))
            line.pop_back();
        header[line.substr(0, line.find(' '))] = line.substr(line.find(' ') + 1);
        at = end + 1;
    }
    EXPECT_EQ(header["WIDTH"], "12");
    EXPECT_EQ(header["HEIGHT"], "9");
    EXPECT_EQ(header["POINTS"], "108");
    EXPECT_EQ(header["FIELDS"], "x y z intensity rgb label");
    EXPECT_EQ(header["SIZE"], "4 4 4 4 4 4");
    double v[7];
    ASSERT_EQ(std::sscanf(header["VIEWPOINT"].c_str(), "%lf %lf %lf %lf %lf %lf %lf", v, v + 1, v + 2, v + 3,
                          v + 4, v + 5, v + 6),
              7);
    EXPECT_EQ(v[0], 100.25);
    EXPECT_NEAR(std::cos(2 * std::atan2(v[6], v[3])), 0.6, 1e-12);
    EXPECT_NEAR(std::sin(2 * std::atan2(v[6], v[3])), 0.8, 1e-12);
    ASSERT_EQ(pcd.size(), data + 108 * 24);
    for (size_t row = 0; row < kSinkRows; ++row) {
        for (size_t column = 0; column < kSinkColumns; ++column) {
            const size_t at = data + (row * kSinkColumns + column) * 24;
            const Cell& cell = Of(cells, row, column);
            EXPECT_EQ(std::isnan(At<float>(pcd, at)), !cell.valid);
            if (!cell.valid) continue;
            EXPECT_EQ(At<float>(pcd, at + 8), static_cast<float>(cell.z));
            EXPECT_EQ(At<float>(pcd, at + 12), static_cast<float>(cell.intensity));
            EXPECT_EQ(At<uint32_t>(pcd, at + 16),
                      static_cast<uint32_t>(cell.red << 16 | cell.green << 8 | cell.blue));
            EXPECT_EQ(At<uint32_t>(pcd, at + 20), cell.classification);
        }
    }
    // And our own reader has all of it back.
    const Scan scan = ReadScan(*SourceOf(pcd, "a.pcd"));
    ASSERT_EQ(scan.cells.size(), cells.size());
    for (size_t i = 0; i < cells.size(); ++i) {
        EXPECT_EQ(scan.cells[i].valid, cells[i].valid);
        EXPECT_EQ(scan.cells[i].x, static_cast<double>(static_cast<float>(cells[i].x)));
        EXPECT_EQ(scan.cells[i].classification, cells[i].classification);
    }
    EXPECT_EQ(scan.description.pose, Described().pose);
}

TEST(PcdSink, PointsWithoutAGridAreOneRow) {
    ScanDescription description = Described();
    description.columns = description.rows = 0;
    const std::vector<Cell> cells = SinkCells();
    const auto source = SourceOf(Written("PCD", {description}, cells), "a.pcd");
    EXPECT_EQ(source->OpenScan(0).points, Returns(cells));
    EXPECT_FALSE(source->OpenScan(0).HasGrid());
}

TEST(PcdSink, APoseThatAQuaternionCannotSayStandsInAComment) {
    ScanDescription description = Described();
    const double mirror[12] = {-1, 0, 0, 0, 1, 0, 0, 0, 1, 1 / 3.0, 0, 0};
    description.pose = kxbase::RegistrationInformation::FromValues(mirror);
    LossReport losses;
    std::string pcd = Written("PCD", {description}, SinkCells(), {}, &losses);
    ASSERT_NE(losses.Find("pose"), nullptr);
    EXPECT_EQ(losses.Find("pose")->fate, Fate::Converted);
    EXPECT_NE(pcd.find("\n# kxio-pose 1 -1 0 0 0 1 0 0 0 1 0.3333333333333333 0 0\n"), std::string::npos);
    EXPECT_EQ(SourceOf(pcd, "a.pcd")->OpenScan(0).pose, description.pose);
    // Whoever changes the VIEWPOINT is believed.
    const size_t at = pcd.find("VIEWPOINT 0.3333333333333333");
    ASSERT_NE(at, std::string::npos);
    pcd[at + 10] = '7';
    const auto source = SourceOf(pcd, "a.pcd");
    EXPECT_EQ(source->OpenScan(0).pose.Values()[9], 7 + 1 / 3.0);
    ASSERT_EQ(source->Warnings().size(), 1u);
    EXPECT_EQ(source->Warnings()[0], "VIEWPOINT and the comment kxio-pose differ; VIEWPOINT counts");
}

TEST(PcdSink, APoseThatAQuaternionSaysNeedsNoComment) {
    ScanDescription description = Described();
    description.pose = {};
    const std::string pcd = Written("PCD", {description}, SinkCells());
    EXPECT_EQ(pcd.find("kxio-pose"), std::string::npos);
    EXPECT_NE(pcd.find("\nVIEWPOINT 0 0 0 1 0 0 0\n"), std::string::npos);
}

TEST(PcdSink, AGridOfOneRowIsSaidToBeLost) {
    ScanDescription description = Described();
    description.rows = 1;
    kxbase::InMemoryStream stream;
    const auto sink = FindSinkFormat("PCD")->make(stream, {});
    sink->BeginScan(description);
    sink->WriteColumns(std::span<const Cell>(SinkCells()).first(kSinkColumns), kSinkColumns);
    sink->EndScan();
    sink->Finish();
    LossReport losses;
    sink->AddLosses(losses);
    ASSERT_NE(losses.Find("grid"), nullptr);
    EXPECT_EQ(losses.Find("grid")->fate, Fate::Lost);
}

// Two points, the first with an intensity that is none.
TEST(FormatsOfPoints, IntensitiesThatMeanNothingAreCountedWhereTheyBecomeOrdinaryOnes) {
    const auto source = SourceOf(
        "ply\nformat ascii 1.0\nobj_info num_cols 2\nobj_info num_rows 1\nelement vertex 2\n"
        "property float x\nproperty float y\nproperty float z\nproperty float intensity\n"
        "element range_grid 2\nproperty list uchar int vertex_indices\nend_header\n"
        "1 2 3 nan\n4 5 6 7\n1 0\n1 1\n",
        "a.ply");
    TempFolder folder;
    for (const SinkFormat& format : SinkFormats()) {
        ScanFileExport file(folder.Path() / ("a" + std::string(format.endings[0])), format, {});
        const ExportReport report = file.Add(*source, 0);
        file.Commit();
        const LossEntry* const loss = report.losses.Find("invalid intensities");
        const bool marks =
            format.name == "PCD" || format.name == "NPY" || format.name == "NPZ" || format.name == "EXR";
        ASSERT_EQ(loss == nullptr, marks) << format.name;
        if (loss) {
            EXPECT_EQ(loss->detail, "1 are written like any other") << format.name;
        }
    }
    std::vector<Cell> back;
    const auto pcd = OpenScanSource(folder.Path() / "a.pcd");
    pcd->OpenScan(0);
    ASSERT_EQ(pcd->ReadColumns(2, back), 1u);
    EXPECT_TRUE(back.at(0).intensityInvalid);
    EXPECT_FALSE(back.at(1).intensityInvalid);
    EXPECT_EQ(back.at(1).intensity, 7);
}

TEST(FormatsOfOneScan, RefuseASecondOne) {
    for (const char* format : {"PCD", "NPY", "NPZ", "PNG", "EXR"}) {
        EXPECT_THROW(Written(format, {Described(), Described()}, SinkCells()), kxbase::KXWritingException)
            << format;
    }
}

TEST(PtsSink, CountsItsPointsAndSpreadsIntensities) {
    const std::vector<Cell> cells = SinkCells();
    LossReport losses;
    const std::string pts = Written("PTS", {Described(), Described(false)}, cells, {}, &losses);
    const auto source = SourceOf(pts, "a.pts");
    EXPECT_EQ(source->ScanCount(), 2u);
    EXPECT_EQ(source->OpenScan(1).points, Returns(cells));
    EXPECT_FALSE(source->OpenScan(1).color.present);
    EXPECT_TRUE(source->OpenScan(0).color.present);
    std::vector<Cell> points;
    source->ReadColumns(1, points);
    size_t at = 0;
    for (const Cell& cell : cells) {
        if (!cell.valid) continue;
        EXPECT_EQ(points[at].intensity, std::round(cell.intensity * 4095) - 2048);
        EXPECT_EQ(points[at].x, cell.x);
        EXPECT_EQ(points[at].blue, cell.blue);
        ++at;
    }
    EXPECT_EQ(at, points.size());
    ASSERT_NE(losses.Find("intensity"), nullptr);
    EXPECT_EQ(losses.Find("intensity")->inverse, "intensity = 0 + (value + 2048) / 4095");
}

TEST(PtsSink, WholeIntensitiesOfItsOwnRangeStay) {
    ScanDescription description = Described(false);
    description.intensity.minimum = -2048;
    description.intensity.maximum = 2047;
    description.intensity.numbers = NumberKind::Integer;
    std::vector<Cell> cells = SinkCells();
    for (Cell& cell : cells)
        cell.intensity = std::round(cell.intensity * 4095) - 2048;
    LossReport losses;
    const auto source = SourceOf(Written("PTS", {description}, cells, {}, &losses), "a.pts");
    source->OpenScan(0);
    std::vector<Cell> points;
    source->ReadColumns(1, points);
    EXPECT_EQ(points[0].intensity,
              std::find_if(cells.begin(), cells.end(), [](const Cell& c) { return c.valid; })->intensity);
    EXPECT_EQ(losses.Find("intensity")->fate, Fate::Kept);
}

TEST(LasSink, HeaderAndPointsSayWhatTheScanSays) {
    const std::vector<Cell> cells = SinkCells();
    for (const bool color : {false, true}) {
        LossReport losses;
        const std::string las = Written("LAS", {Described(color), Described(color)}, cells, {}, &losses);
        EXPECT_EQ(las.substr(0, 4), "LASF");
        EXPECT_EQ(At<uint16_t>(las, 6), 0x10);
        EXPECT_EQ(las[24], 1);
        EXPECT_EQ(las[25], 4);
        EXPECT_EQ(At<uint16_t>(las, 94), 375);
        const auto data = At<uint32_t>(las, 96);
        EXPECT_EQ(las[104], color ? 7 : 6);
        const size_t length = At<uint16_t>(las, 105);
        EXPECT_EQ(length, color ? 36u : 30u);
        EXPECT_EQ(At<uint32_t>(las, 107), 0u);
        const uint64_t points = At<uint64_t>(las, 247);
        EXPECT_EQ(points, 2 * Returns(cells));
        EXPECT_EQ(At<uint64_t>(las, 255), points);
        ASSERT_EQ(las.size(), data + points * length);
        double least[3] = {1e300, 1e300, 1e300}, greatest[3] = {-1e300, -1e300, -1e300};
        size_t at = data;
        for (uint16_t scan = 1; scan <= 2; ++scan) {
            for (const Cell& cell : cells) {
                if (!cell.valid) continue;
                const double place[3] = {cell.x, cell.y, cell.z};
                for (size_t axis = 0; axis < 3; ++axis) {
                    const double value = At<int32_t>(las, at + 4 * axis) * At<double>(las, 131 + 8 * axis) +
                                         At<double>(las, 155 + 8 * axis);
                    EXPECT_NEAR(value, place[axis], 0.5001e-4);
                    least[axis] = std::min(least[axis], value);
                    greatest[axis] = std::max(greatest[axis], value);
                }
                EXPECT_EQ(At<uint16_t>(las, at + 12), std::round(cell.intensity * 65535));
                EXPECT_EQ(las[at + 14], 0x11);
                EXPECT_EQ(las[at + 16], cell.classification);
                EXPECT_EQ(At<uint16_t>(las, at + 20), scan);
                if (color) {
                    EXPECT_EQ(At<uint16_t>(las, at + 30), cell.red * 257);
                }
                at += length;
            }
        }
        for (size_t axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(At<double>(las, 179 + 16 * axis), greatest[axis]);
            EXPECT_EQ(At<double>(las, 187 + 16 * axis), least[axis]);
        }
        EXPECT_EQ(losses.Find("intensity")->fate, Fate::Converted);
        EXPECT_NE(losses.Find("intensity")->inverse.find("value x"), std::string::npos);
    }
}

TEST(LasSink, TheForeseenLossesNameTheGrid) {
    const LossReport losses = ForeseeLosses(Described(), FindSinkFormat("LAS")->capabilities);
    ASSERT_NE(losses.Find("grid"), nullptr);
    EXPECT_EQ(losses.Find("grid")->fate, Fate::Lost);
    EXPECT_EQ(losses.Find("pose")->fate, Fate::Converted);
}

TEST(LasSink, IntensitiesOfUnknownRangeAreSurveyedAndClampedOnesCounted) {
    ScanDescription description = Described(false);
    description.intensity.minimum.reset();
    description.intensity.maximum.reset();
    std::vector<Cell> cells = SinkCells();
    for (Cell& cell : cells)
        cell.intensity = 7;
    Cell& last = *std::find_if(cells.rbegin(), cells.rend(), [](const Cell& c) { return c.valid; });
    last.intensity = 1e6;  // far outside of what the first columns show
    LossReport losses;
    Written("LAS", {description}, cells, {}, &losses);
    EXPECT_NE(losses.Find("intensity")->detail.find("1 values lie outside"), std::string::npos);
}

TEST(LasSink, WorldCoordinatesGetAnOffsetAndWhatDoesNotFitIsRefused) {
    std::vector<Cell> cells = SinkCells();
    for (Cell& cell : cells) {
        if (cell.valid) cell.x += 4.5e6;
    }
    ScanDescription description = Described(false);
    description.pose = {};
    const std::string las = Written("LAS", {description}, cells);
    const auto first = std::find_if(cells.begin(), cells.end(), [](const Cell& c) { return c.valid; });
    EXPECT_NEAR(At<int32_t>(las, 375) * 1e-4 + At<double>(las, 155), first->x, 0.6e-4);
    std::find_if(cells.rbegin(), cells.rend(), [](const Cell& c) { return c.valid; })->x = -1e9;
    EXPECT_THROW(Written("LAS", {description}, cells), kxbase::KXWritingException);
}

TEST(PtxSink, GzipAndSeveralScansComeBack) {
    const std::vector<Cell> cells = SinkCells();
    SinkOptions options;
    options.gzip = true;
    options.threads = 3;
    ScanDescription plain = Described(false);
    plain.classification.present = false;
    const std::string packed = Written("PTX", {plain, plain}, cells, options);
    EXPECT_EQ(packed.substr(0, 2), "\x1f\x8b");
    const auto source = SourceOf(packed, "a.ptx.gz");
    EXPECT_EQ(source->ScanCount(), 2u);
    const Scan scan = ReadScan(*source, 1);
    EXPECT_EQ(scan.description.pose, plain.pose);
    for (size_t i = 0; i < cells.size(); ++i)
        EXPECT_EQ(scan.cells[i].y, cells[i].y);
}

TEST(PtxSink, LongTextBecomesSeveralMembersOfOneText) {
    const Sweep sweep{.columns = 400, .rows = 300};
    const std::vector<Cell> cells = MakeSweep(sweep);
    ScanDescription description = Described(false);
    description.columns = 400;
    description.rows = 300;
    std::string texts[2];
    for (const bool gzip : {false, true}) {
        kxbase::InMemoryStream stream;
        SinkOptions options;
        options.gzip = gzip;
        options.threads = 2;
        const auto sink = FindSinkFormat("PTX")->make(stream, options);
        sink->BeginScan(description);
        sink->WriteColumns(cells, 400);
        sink->EndScan();
        sink->Finish();
        texts[gzip ? 1 : 0].assign(stream.GetBytes().begin(), stream.GetBytes().end());
    }
    EXPECT_GT(texts[0].size(), size_t{3} << 20);
    EXPECT_LT(texts[1].size(), texts[0].size() / 2 + texts[0].size() / 4);
    const Scan plain = ReadScan(*SourceOf(texts[0])), packed = ReadScan(*SourceOf(texts[1], "a.ptx.gz"));
    for (size_t i = 0; i < cells.size(); ++i)
        ASSERT_EQ(plain.cells[i].x, packed.cells[i].x);
}

}  // namespace
}  // namespace kxexchange::testing
