// SPDX-License-Identifier: MIT
// Points without a grid put back on one, against the grid they came from.
#include "kxexchange/Regrid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numbers>
#include <random>

#include "TestTools.h"

namespace kxexchange::testing {

namespace {

constexpr double kPi = std::numbers::pi;

// Points in memory, as a source without grid.
class CloudSource final : public ScanSource {
public:
    explicit CloudSource(std::vector<Cell> points) : m_points(std::move(points)) {}
    std::string FormatName() const override { return "CLOUD"; }
    std::string Name() const override { return "cloud"; }
    uint64_t ScanCount() override { return 1; }
    ScanDescription OpenScan(uint64_t) override {
        m_next = 0;
        ScanDescription description;
        description.points = m_points.size();
        description.coordinates.present = description.intensity.present = true;
        return description;
    }
    uint64_t ReadColumns(uint64_t, std::vector<Cell>& cells) override {
        const size_t count = std::min<size_t>(10000, m_points.size() - m_next);
        const auto begin = m_points.begin() + static_cast<std::ptrdiff_t>(m_next);
        cells.assign(begin, begin + static_cast<std::ptrdiff_t>(count));
        m_next += count;
        return count == 0 ? 0 : 1;
    }
    uint64_t BytesRead() const override { return 0; }
    uint64_t FileBytes() const override { return 0; }

private:
    std::vector<Cell> m_points;
    size_t m_next = 0;
};

struct Outcome {
    RegridReport report;
    double rate = 0;  // of the original points that are where the others of their column and row are
};

// Drops the grid, mixes the points, puts them back and compares. Each point carries its number as intensity.
Outcome Compare(const std::vector<Cell>& cells, uint64_t rows) {
    std::vector<Cell> points;
    for (size_t i = 0; i < cells.size(); ++i) {
        if (!cells[i].valid) continue;
        points.push_back(cells[i]);
        points.back().intensity = static_cast<double>(i);
    }
    const size_t count = points.size();
    std::shuffle(points.begin(), points.end(), std::mt19937(11));
    RegridSource source(std::make_unique<CloudSource>(std::move(points)));
    const Scan scan = ReadScan(source);
    Outcome outcome;
    outcome.report = *source.Report();
    EXPECT_EQ(outcome.report.points, count);
    EXPECT_EQ(outcome.report.placed + outcome.report.collided + outcome.report.leftOut, count);
    EXPECT_EQ(source.Warnings().size(), 1u);
    // Which column of the new grid most points of an old column are in, and the same of rows.
    std::map<uint64_t, std::map<uint64_t, uint64_t>> columnVotes, rowVotes;
    struct Placed {
        uint64_t column, row, newColumn, newRow;
    };
    std::vector<Placed> placed;
    for (size_t i = 0; i < scan.cells.size(); ++i) {
        if (!scan.cells[i].valid) continue;
        const auto original = static_cast<uint64_t>(scan.cells[i].intensity);
        placed.push_back(
            {original / rows, original % rows, i / scan.description.rows, i % scan.description.rows});
        ++columnVotes[placed.back().column][placed.back().newColumn];
        ++rowVotes[placed.back().row][placed.back().newRow];
    }
    EXPECT_EQ(placed.size(), outcome.report.placed);
    const auto majority = [](const std::map<uint64_t, uint64_t>& votes) {
        return std::max_element(votes.begin(), votes.end(),
                                [](const auto& a, const auto& b) { return a.second < b.second; })
            ->first;
    };
    std::map<uint64_t, uint64_t> columnOf, rowOf;
    for (const auto& [column, votes] : columnVotes)
        columnOf[column] = majority(votes);
    for (const auto& [row, votes] : rowVotes)
        rowOf[row] = majority(votes);
    uint64_t same = 0;
    for (const Placed& p : placed)
        same += columnOf[p.column] == p.newColumn && rowOf[p.row] == p.newRow ? 1 : 0;
    outcome.rate = static_cast<double>(same) / static_cast<double>(count);
    return outcome;
}

Outcome CompareFile(const std::string& name) {
    const auto path = SharedData(name);
    if (path.empty()) return {};
    const auto source = OpenScanSource(path);
    const Scan scan = ReadScan(*source);
    return Compare(scan.cells, scan.description.rows);
}

void Tell(const char* name, const Outcome& outcome) {
    std::printf(
        "%s: %llu x %llu, steps %.4f and %.4f degrees%s, %.2f %% in their old cells, %.2f %% collided\n",
        name, static_cast<unsigned long long>(outcome.report.columns),
        static_cast<unsigned long long>(outcome.report.rows), outcome.report.columnStep * 180 / kPi,
        outcome.report.rowStep * 180 / kPi, outcome.report.unevenRows ? " (uneven rows)" : "",
        100 * outcome.rate,
        100 * static_cast<double>(outcome.report.collided) / static_cast<double>(outcome.report.points));
}

TEST(Regrid, ASweepWithGapsFindsItsGridAgain) {
    Sweep sweep;
    sweep.columns = 240;
    sweep.rows = 180;
    sweep.azimuthStep = -2 * kPi / 720;
    sweep.angleStep = -0.006;
    sweep.firstAngle = 2.0;
    sweep.missing = 0.3;
    sweep.wobble = 0.1;
    const Outcome outcome = Compare(MakeSweep(sweep), sweep.rows);
    Tell("sweep", outcome);
    EXPECT_EQ(outcome.report.columns, 240u);
    EXPECT_EQ(outcome.report.rows, 180u);
    EXPECT_NEAR(outcome.report.columnStep, 2 * kPi / 720, 1e-5);
    EXPECT_NEAR(outcome.report.rowStep, 0.006, 1e-5);
    EXPECT_GT(outcome.rate, 0.99);
}

TEST(Regrid, AFullTurnClosesAndColumnsMayDrift) {
    Sweep sweep;
    sweep.columns = 500;
    sweep.rows = 120;
    sweep.azimuthStep = -2 * kPi / 500;
    sweep.angleStep = -0.012;
    sweep.firstAngle = 2.2;
    sweep.azimuthDrift = 0.02;  // 1.6 columns
    const Outcome outcome = Compare(MakeSweep(sweep), sweep.rows);
    Tell("turn", outcome);
    EXPECT_EQ(outcome.report.columns, 500u);
    EXPECT_EQ(outcome.report.rows, 120u);
    EXPECT_GT(outcome.rate, 0.98);
}

TEST(Regrid, RealScansFindTheirCellsAgain) {
    struct Case {
        const char* file;
        uint64_t columns, rows;
        double leastSame, mostCollided;
    };
    bool any = false;
    // Street: rows at uneven elevations. Tilt: readings of the instrument itself stand in columns of their
    // own. Forest: rows bend by more than their distance, so that neighbours take each other's cells.
    for (const Case& c : {Case{"pump_345x1074.ptx.gz", 345, 1074, 0.9999, 0.0001},
                          Case{"street_a_1024x128.ptx.gz", 1024, 129, 0.999, 0.0001},
                          Case{"tilt_226x360.ptx.gz", 269, 360, 0.99, 0.005},
                          Case{"forest_a_290x2103.ptx.gz", 291, 2101, 0.4, 0.05}}) {
        if (SharedData(c.file).empty()) continue;
        any = true;
        const Outcome outcome = CompareFile(c.file);
        Tell(c.file, outcome);
        EXPECT_EQ(outcome.report.columns, c.columns) << c.file;
        EXPECT_EQ(outcome.report.rows, c.rows) << c.file;
        EXPECT_GE(outcome.rate, c.leastSame) << c.file;
        EXPECT_LE(static_cast<double>(outcome.report.collided),
                  c.mostCollided * static_cast<double>(outcome.report.points))
            << c.file;
        EXPECT_EQ(outcome.report.leftOut, 0u) << c.file;
    }
    if (!any) GTEST_SKIP() << "the folder of sample scans is not beside the project";
}

// The file of a program that dropped rows and columns, imported as a scan.
TEST(Regrid, ARealPlyWithoutItsGridBecomesTheScanThatItWas) {
    const auto path = SharedData("pumpARowColumnIndexNoInvalidPoints.e57");
    if (path.empty()) GTEST_SKIP() << "the folder of sample scans is not beside the project";
    SourceOptions cartesian;
    cartesian.coordinateKind = CoordinateKind::Cartesian;
    const auto e57 = OpenScanSource(path, cartesian);
    const Scan scan = ReadScan(*e57);
    TempFolder folder;
    const auto ply = folder.Path() / "pump.ply";
    ScanFileExport file(ply, *FindSinkFormat("PLY"), {});
    file.Add(*e57, 0);
    file.Commit();
    ASSERT_FALSE(OpenScanSource(ply)->OpenScan(0).HasGrid());
    RegridSource source(OpenScanSource(ply));
    const Scan back = ReadScan(source);
    ASSERT_EQ(back.description.columns, scan.description.columns);
    ASSERT_EQ(back.description.rows, scan.description.rows);
    EXPECT_TRUE(back.description.unheld.empty());
    uint64_t wrong = 0;
    for (uint64_t column = 0; column < scan.description.columns; ++column) {
        for (uint64_t row = 0; row < scan.description.rows; ++row) {
            // The instrument turned the other way.
            const Cell& was = scan.At(column, row);
            const Cell& is = back.At(scan.description.columns - 1 - column, row);
            const bool same =
                was.valid == is.valid && (!was.valid || (std::abs(was.x - is.x) < 1e-5 &&
                                                         std::abs(was.y - is.y) < 1e-5 && was.red == is.red));
            wrong += same ? 0 : 1;
        }
    }
    EXPECT_EQ(wrong, 0u);
    const ImportReport report = ImportScan(source, 0, folder.Path() / "pump.qsn");
    EXPECT_EQ(report.returns, source.Report()->placed);
}

TEST(Regrid, PointsThatFindNoCellAreInTheLossReport) {
    Sweep sweep;
    sweep.columns = 100;
    sweep.rows = 80;
    sweep.azimuthStep = -2 * kPi / 400;
    sweep.firstAngle = 2.2;
    std::vector<Cell> points = MakeSweep(sweep);
    for (size_t i = 0; i < 50; ++i) {
        points.push_back(points[40 * i]);
        points.push_back({});
        points.back().valid = true;  // at the origin
    }
    RegridSource source(std::make_unique<CloudSource>(points));
    const ScanDescription description = source.OpenScan(0);
    EXPECT_EQ(source.Report()->collided, 50u);
    EXPECT_EQ(source.Report()->leftOut, 50u);
    const LossReport losses = ForeseeLosses(description, FindSinkFormat("E57")->capabilities);
    ASSERT_NE(losses.Find("points"), nullptr);
    EXPECT_EQ(losses.Find("points")->fate, Fate::Lost);
    EXPECT_EQ(losses.Find("points")->detail, "50 share a cell with another, 50 have no place");
}

TEST(Regrid, AScanWithAGridPassesThrough) {
    Sweep sweep;
    RegridSource source(SourceOf(PtxText(MakeSweep(sweep), sweep.columns, sweep.rows)));
    const Scan scan = ReadScan(source);
    EXPECT_EQ(scan.description.columns, sweep.columns);
    EXPECT_EQ(source.Report(), nullptr);
    EXPECT_TRUE(source.Warnings().empty());
    EXPECT_EQ(source.FormatName(), "PTX");
}

void ExpectRefused(std::vector<Cell> points) {
    RegridSource source(std::make_unique<CloudSource>(std::move(points)));
    try {
        source.OpenScan(0);
        ADD_FAILURE() << "not refused: " << source.Warnings().at(0);
    } catch (const NotOneStationException& e) {
        EXPECT_STREQ(e.what(), "Cloud is no scan from one place");
        EXPECT_FALSE(e.Context().detail.empty());
        EXPECT_EQ(e.Context().file, "cloud");
    }
    std::vector<Cell> cells;
    EXPECT_EQ(source.ReadColumns(1, cells), 0u);
}

TEST(Regrid, CloudsThatAreNoScanAreRefused) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> place(-20, 20);
    std::vector<Cell> cloud(60000);
    for (Cell& cell : cloud) {
        cell.x = place(random);
        cell.y = place(random);
        cell.z = place(random) / 4;
        cell.valid = true;
    }
    ExpectRefused(cloud);
    ExpectRefused({});
    cloud.resize(150);
    ExpectRefused(cloud);
    for (Cell& cell : cloud)
        cell.x = cell.y = cell.z = 0;
    ExpectRefused(cloud);
}

TEST(Regrid, AScanFromAnotherPlaceAndTwoScansTogetherAreRefused) {
    Sweep sweep;
    sweep.columns = 600;
    sweep.rows = 150;
    sweep.azimuthStep = -2 * kPi / 600;
    sweep.angleStep = -0.01;
    sweep.firstAngle = 2.2;
    std::vector<Cell> moved = MakeSweep(sweep);
    for (Cell& cell : moved) {
        cell.x += 37.3;
        cell.y -= 11.1;
    }
    ExpectRefused(moved);
    std::vector<Cell> both = MakeSweep(sweep);
    for (Cell& cell : moved) {
        cell.x -= 37.3 - 4;
        both.push_back(cell);
    }
    ExpectRefused(both);
}

}  // namespace

}  // namespace kxexchange::testing
