// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>

#include "PlainE57.h"
#include "TestTools.h"
#include "kxbase/kxOutFile.h"
#include "kxio/QSNScanReader.h"
#include "kxio/ScanAccess.h"

namespace {

using namespace kxexchange;
using kxexchange::testing::ReadScan;
using kxexchange::testing::Scan;
using kxexchange::testing::SharedData;
using kxexchange::testing::TestData;

ImportReport Import(const std::filesystem::path& from, const std::filesystem::path& to) {
    return ImportScan(*OpenScanSource(from), 0, to);
}

// The values of all cells of a .qsn file as they are stored.
struct Stored {
    kxbase::GridTopology grid;
    kxbase::RegistrationInformation registration;
    std::vector<float> range, vertical, horizontal;
    std::vector<uint16_t> luminance;
    std::vector<kxio::Rgb8> color;
};
Stored ReadStored(const std::filesystem::path& path) {
    const kxio::QSNScanReader reader(path.wstring());
    const kxio::ScanAccess access(reader);
    Stored stored;
    stored.grid = access.Grid();
    stored.registration = reader.GetScanInformation().registration;
    const size_t count = size_t{stored.grid.columns} * stored.grid.rows;
    const auto read = [&](kxbase::ComponentType component, auto& values) {
        if (!access.Has(component)) return;
        using Value = typename std::remove_reference_t<decltype(values)>::value_type;
        values.resize(count);
        access.ReadColumns<Value>(component, 0, stored.grid.columns, values, {});
    };
    read(kxbase::Range, stored.range);
    read(kxbase::VerticalAngle, stored.vertical);
    read(kxbase::HorizontalAngle, stored.horizontal);
    read(kxbase::Luminance16, stored.luminance);
    read(kxbase::Color, stored.color);
    return stored;
}

// Counts of cells whose stored values differ.
struct Differences {
    uint64_t returns = 0, range = 0, angles = 0, luminance = 0, color = 0;
    double greatestAngle = 0;
    uint64_t moved = 0;  // further than Cartesian coordinates in steps of 1e-5 m and angles of 1e-6 explain
};
Differences Compare(const Stored& a, const Stored& b) {
    Differences found;
    EXPECT_EQ(a.range.size(), b.range.size());
    EXPECT_EQ(a.luminance.size(), b.luminance.size());
    EXPECT_EQ(a.color.size(), b.color.size());
    if (a.range.size() != b.range.size()) return found;
    for (size_t i = 0; i < a.range.size(); ++i) {
        if ((a.range[i] > 0) != (b.range[i] > 0)) ++found.returns;
        if (a.range[i] != b.range[i]) ++found.range;
        if (!(a.range[i] > 0)) continue;
        const auto angle =
            std::max(std::abs(a.vertical[i] - b.vertical[i]), std::abs(a.horizontal[i] - b.horizontal[i]));
        found.greatestAngle = std::max(found.greatestAngle, static_cast<double>(angle));
        if (angle != 0) ++found.angles;
        const double metres = static_cast<double>(a.range[i]) * 1e-3;
        const double shift =
            metres * std::hypot(a.vertical[i] - b.vertical[i],
                                (a.horizontal[i] - b.horizontal[i]) * std::sin(a.vertical[i]));
        if (!(shift <= 1e-5 + 2e-6 * metres)) ++found.moved;
        if (!a.luminance.empty() && a.luminance[i] != b.luminance[i]) ++found.luminance;
        if (!a.color.empty() && !(a.color[i] == b.color[i])) ++found.color;
    }
    return found;
}

void ExpectSameGrid(const kxbase::GridTopology& a, const kxbase::GridTopology& b) {
    EXPECT_EQ(a.columns, b.columns);
    EXPECT_EQ(a.rows, b.rows);
    EXPECT_EQ(a.columnStartAngle, b.columnStartAngle);
    EXPECT_EQ(a.rowStartAngle, b.rowStartAngle);
    EXPECT_EQ(a.columnAngularStep, b.columnAngularStep);
    EXPECT_EQ(a.rowAngularStep, b.rowAngularStep);
}

// The E57 has records for returns only, the PTX a line for every cell: the same scan all the same.
TEST(E57RoundTrip, TheRealPumpScanFromE57AndFromPtxIsEqualCellByCell) {
    const auto e57 = SharedData("pumpARowColumnIndexNoInvalidPoints.e57");
    if (e57.empty()) GTEST_SKIP() << "the folder shared/data beside the project is not there";
    const TempFolder folder;
    Import(e57, folder / "e57.qsn");
    Import(TestData("pump_345x1074.ptx.gz"), folder / "ptx.qsn");
    const Stored a = ReadStored(folder / "e57.qsn"), b = ReadStored(folder / "ptx.qsn");
    ExpectSameGrid(a.grid, b.grid);
    EXPECT_EQ(a.registration, b.registration);
    const Differences found = Compare(a, b);
    EXPECT_EQ(found.returns, 0U);
    EXPECT_EQ(found.range, 0U);
    EXPECT_EQ(found.angles, 0U) << found.greatestAngle;
    EXPECT_EQ(found.color, 0U);
    // The PTX says the scanner's 15 bits with six decimals.
    EXPECT_EQ(found.luminance, 0U);
}

struct Trip {
    const char* name;
    CoordinateKind kind;
    bool noReturns;
};
void PrintTo(const Trip& trip, std::ostream* out) {
    *out << trip.name << (trip.kind == CoordinateKind::Spherical ? " spherical" : " cartesian")
         << (trip.noReturns ? " with" : " without") << " no-returns";
}

class E57RoundTripOf : public ::testing::TestWithParam<Trip> {};

// PTX -> QSN -> E57 -> QSN -> PTX.
TEST_P(E57RoundTripOf, EveryCellComesBackInItsPlace) {
    const Trip& trip = GetParam();
    const TempFolder folder;
    std::filesystem::path sourcePath = TestData(trip.name);
    if (!std::filesystem::exists(sourcePath)) sourcePath = SharedData(trip.name);
    if (sourcePath.empty())
        GTEST_SKIP() << "the folder shared/data beside the project, with " << trip.name << ", is not there";
    const ImportReport imported = Import(sourcePath, folder / "first.qsn");
    ExportOptions options;
    options.sink.coordinateKind = trip.kind;
    options.sink.noReturns = trip.noReturns;
    ExportScan(folder / "first.qsn", folder / "middle.e57", "E57", options);
    const std::string bytes = kxexchange::testing::ReadFile(folder / "middle.e57");
    plain::PlainContent({bytes.begin(), bytes.end()});  // throws when a checksum is wrong
    Import(folder / "middle.e57", folder / "second.qsn");
    const Stored a = ReadStored(folder / "first.qsn"), b = ReadStored(folder / "second.qsn");
    EXPECT_EQ(a.registration, b.registration);
    EXPECT_EQ(a.grid.columns, b.grid.columns);
    EXPECT_EQ(a.grid.rows, b.grid.rows);
    const Differences found = Compare(a, b);
    EXPECT_EQ(found.returns, 0U);
    EXPECT_EQ(found.range, 0U);
    EXPECT_EQ(found.luminance, 0U);
    EXPECT_EQ(found.color, 0U);
    // Spherical: the very angles. Cartesian: coordinates were rounded to a tenth of the range's step.
    EXPECT_EQ(found.moved, 0U);
    if (trip.kind == CoordinateKind::Spherical) {
        EXPECT_EQ(found.greatestAngle, 0);
    }

    ExportScan(folder / "first.qsn", folder / "first.ptx", "PTX");
    ExportScan(folder / "second.qsn", folder / "second.ptx", "PTX");
    const auto source = OpenScanSource(sourcePath);
    const Scan before = ReadScan(*source);
    const Scan after = ReadScan(*OpenScanSource(folder / "second.ptx"));
    ASSERT_EQ(after.cells.size(), before.cells.size());
    EXPECT_EQ(after.description.columns, before.description.columns);
    EXPECT_EQ(after.description.pose, before.description.pose);
    EXPECT_EQ(after.description.keepsakes, before.description.keepsakes);
    uint64_t different = 0;
    for (size_t i = 0; i < before.cells.size(); ++i) {
        const Cell& p = before.cells[i];
        const Cell& q = after.cells[i];
        const double range = std::hypot(p.x, p.y, p.z);
        const double shift = std::hypot(p.x - q.x, p.y - q.y, p.z - q.z);
        // Two roundings of the file and, Cartesian, one of each coordinate in between.
        const double bound = 2 * PositionBound(range, imported.precision, 6) + 1e-5;
        if (p.valid != q.valid || !(shift <= bound) ||
            !(std::abs(p.intensity - q.intensity) <= imported.intensity.Bound() + 1e-9))
            ++different;
    }
    EXPECT_EQ(different, 0U);
    if (trip.kind == CoordinateKind::Spherical) {
        EXPECT_EQ(kxexchange::testing::ReadFile(folder / "first.ptx"),
                  kxexchange::testing::ReadFile(folder / "second.ptx"));
    }
}

// E57 -> QSN -> E57: places, raw intensities, colours, the pose and its quaternion, texts.
void CheckE57ToE57(const std::filesystem::path& first, double shiftBound) {
    const TempFolder folder;
    Import(first, folder / "scan.qsn");
    ExportScan(folder / "scan.qsn", folder / "second.e57", "E57");
    Scan before = ReadScan(*OpenScanSource(first));
    Scan after = ReadScan(*OpenScanSource(folder / "second.e57"));
    const ScanDescription &a = before.description, &b = after.description;
    EXPECT_EQ(a.columns, b.columns);
    EXPECT_EQ(a.rows, b.rows);
    EXPECT_EQ(a.pose, b.pose);
    EXPECT_EQ(a.uuid, b.uuid);
    EXPECT_EQ(a.name, b.name);
    EXPECT_EQ(a.intensity.minimum, b.intensity.minimum);
    EXPECT_EQ(a.intensity.maximum, b.intensity.maximum);
    for (const auto& keepsake : a.keepsakes) {
        EXPECT_NE(std::find(b.keepsakes.begin(), b.keepsakes.end(), keepsake), b.keepsakes.end())
            << keepsake.first;
    }
    if (a.coordinateKind == CoordinateKind::Spherical) ToCartesian(before.cells);
    if (b.coordinateKind == CoordinateKind::Spherical) ToCartesian(after.cells);
    ASSERT_EQ(before.cells.size(), after.cells.size());
    uint64_t places = 0, shifts = 0, intensities = 0, colors = 0;
    for (size_t i = 0; i < before.cells.size(); ++i) {
        const Cell& p = before.cells[i];
        const Cell& q = after.cells[i];
        places += p.valid != q.valid ? 1 : 0;
        if (!p.valid) continue;
        shifts += std::hypot(p.x - q.x, p.y - q.y, p.z - q.z) <= shiftBound ? 0 : 1;
        intensities += p.intensity != q.intensity ? 1 : 0;
        colors += p.red != q.red || p.green != q.green || p.blue != q.blue ? 1 : 0;
    }
    EXPECT_EQ(places, 0U);
    EXPECT_EQ(shifts, 0U);
    EXPECT_EQ(intensities, 0U);
    EXPECT_EQ(colors, 0U);
}

TEST(E57RoundTrip, RealE57ScansComeBackWithTheirIndexesRawIntensitiesAndPoses) {
    if (SharedData("tiny_spherical.e57").empty()) {
        GTEST_SKIP() << "the folder shared/data beside the project is not there";
    }
    // 0.05 mm of the range's step, and half a microradian in two directions, at up to 240 m.
    CheckE57ToE57(SharedData("pumpARowColumnIndexNoInvalidPoints.e57"), 1e-4);
    CheckE57ToE57(SharedData("street_a_1024x128_grid.e57"), 3e-4);
    CheckE57ToE57(SharedData("tilt_226x360_spherical.e57"), 2e-4);
}

// An E57 whose intensities are packed in a given way.
std::filesystem::path PackedScan(const TempFolder& folder, const std::string& packed, double scale,
                                 double offset, int64_t least, int64_t most) {
    Scan scan;
    scan.description.columns = 40;
    scan.description.rows = 50;
    scan.description.points = 2000;
    scan.description.intensity.present = scan.description.coordinates.present = true;
    scan.description.keepsakes = {
        {"e57-intensity", packed}, {"e57-first-row", "100"}, {"e57-first-column", "-3"}};
    scan.cells = kxexchange::testing::MakeSweep({.columns = 40, .rows = 50, .missing = 0.1});
    for (size_t i = 0; i < scan.cells.size(); ++i) {
        Cell& cell = scan.cells[i];
        const int64_t raw = i % 7 == 0   ? least
                            : i % 7 == 1 ? most
                                         : least + static_cast<int64_t>(i * 7919) % (most - least + 1);
        cell.intensity = cell.valid ? static_cast<double>(raw) * scale + offset : 0;
    }
    auto path = folder / "packed.e57";
    kxbase::kxOutFile stream(path.wstring());
    const auto sink = FindSinkFormat("E57")->make(stream, {});
    sink->BeginScan(scan.description);
    sink->WriteColumns(scan.cells, 40);
    sink->EndScan();
    LossReport losses;
    sink->AddLosses(losses);
    EXPECT_EQ(losses.Find("intensity"), nullptr);
    sink->Finish();
    stream.Close();
    return path;
}

TEST(E57RoundTrip, RawIntensitiesOfUpTo65536LevelsComeBackWhateverTheirScale) {
    const auto check = [](const std::string& packed, double scale, double offset, int64_t least,
                          int64_t most) {
        SCOPED_TRACE(packed);
        const TempFolder folder;
        CheckE57ToE57(PackedScan(folder, packed, scale, offset, least, most), 1e-4);
    };
    check("integer:0:255", 1, 0, 0, 255);
    check("integer:-2048:2047", 1, 0, -2048, 2047);
    check("integer:0:65535", 1, 0, 0, 65535);
    check("integer:-40:100000", 1, 0, 30000, 95535);
    check("scaled:0:65535:1.5259021896696422e-05:0", 1.5259021896696422e-05, 0, 0, 65535);
    check("scaled:0:65535:7e-06:0", 7e-06, 0, 0, 65535);
    check("scaled:-30000:30000:0.01:-5.5", 0.01, -5.5, -30000, 30000);
    check("scaled:0:4095:0.25:0.1", 0.25, 0.1, 0, 4095);
}

INSTANTIATE_TEST_SUITE_P(SampleScans, E57RoundTripOf,
                         ::testing::Values(Trip{"pump_345x1074.ptx.gz", CoordinateKind::Spherical, true},
                                           Trip{"pump_345x1074.ptx.gz", CoordinateKind::Cartesian, false},
                                           Trip{"street_a_1024x128.ptx.gz", CoordinateKind::Spherical, false},
                                           Trip{"street_a_1024x128.ptx.gz", CoordinateKind::Cartesian, true},
                                           Trip{"forest_a_290x2103.ptx.gz", CoordinateKind::Spherical, true},
                                           Trip{"tilt_226x360.ptx.gz", CoordinateKind::Spherical, true},
                                           Trip{"tilt_226x360.ptx.gz", CoordinateKind::Cartesian, true},
                                           Trip{"1.2-with-color.ptx", CoordinateKind::Spherical, true},
                                           Trip{"no-color.ptx", CoordinateKind::Spherical, false}));

}  // namespace
