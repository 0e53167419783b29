// SPDX-License-Identifier: MIT
#include "AngleSettling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>

#include "RoundTrip.h"
#include "TestTools.h"
#include "kxexchange/RecodeScan.h"

namespace kxexchange::testing {
namespace {

constexpr uint32_t kSide = 128;

// Millimetres and radians of one patch: near and far, with cells without a return and noise in the angles.
struct Patch {
    std::vector<float> range, vertical, horizontal;

    Patch() {
        std::mt19937 random(7);
        std::normal_distribution<double> noise(0.0, 8e-6);
        for (uint32_t y = 0; y < kSide; ++y) {
            for (uint32_t x = 0; x < kSide; ++x) {
                const bool empty = (x / 20 + y / 30) % 5 == 0;
                range.push_back(empty ? 0.0F : static_cast<float>(700 + 90.0 * x * y / 40));
                // The topmost rows look along the vertical axis.
                vertical.push_back(static_cast<float>(0.002 + 0.01 * y + (empty ? 0.0 : noise(random))));
                horizontal.push_back(static_cast<float>(-0.3 + 0.0016 * x + (empty ? 0.0 : noise(random))));
            }
        }
    }
};

struct Point {
    double x, y, z;
};
Point PointOf(double range, double vertical, double horizontal) {
    return {range * std::sin(vertical) * std::cos(horizontal),
            range * std::sin(vertical) * std::sin(horizontal), range * std::cos(vertical)};
}
double Distance(const Point& a, const Point& b) {
    return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

// The angle as the file has it.
double Stored(float angle) {
    return std::round(static_cast<double>(angle) * 1e6) * 1e-6;
}

TEST(AngleSettling, NoPointMovesByMoreThanTheBound) {
    for (const double bound : {0.01, 0.05, 1.0, 30.0}) {
        const Patch before;
        Patch after = before;
        EXPECT_GT(SettleAngles(after.range, after.vertical, after.horizontal, kSide, kSide, {}, bound), 0U);
        double greatest = 0;
        for (size_t i = 0; i < before.range.size(); ++i) {
            if (before.range[i] == 0.0F) {
                ASSERT_EQ(after.vertical[i], before.vertical[i]) << i;
                ASSERT_EQ(after.horizontal[i], before.horizontal[i]) << i;
                continue;
            }
            const double range = static_cast<double>(before.range[i]);
            greatest = std::max(
                greatest, Distance(PointOf(range, Stored(before.vertical[i]), Stored(before.horizontal[i])),
                                   PointOf(range, Stored(after.vertical[i]), Stored(after.horizontal[i]))));
        }
        EXPECT_LE(greatest, bound);
        EXPECT_GT(greatest, bound / 4) << "the bound is made use of";
    }
}

TEST(AngleSettling, ScalesThatStoreFloatsAreLeftAlone) {
    const Patch before;
    Patch after = before;
    StoragePrecision precision;
    precision.verticalScale = precision.horizontalScale = 1.0;
    EXPECT_EQ(SettleAngles(after.range, after.vertical, after.horizontal, kSide, kSide, precision, 1.0), 0U);
    EXPECT_EQ(after.vertical, before.vertical);
}

// A sweep with noise in its directions, metres.
std::vector<Cell> NoisyCells(uint64_t columns, uint64_t rows) {
    std::mt19937 random(3);
    std::normal_distribution<double> noise(0.0, 8e-6);
    std::vector<Cell> cells;
    for (uint64_t c = 0; c < columns; ++c) {
        for (uint64_t r = 0; r < rows; ++r) {
            Cell cell;
            cell.valid = (c * 7 + r) % 11 != 0;
            const double range = 1.5 + 0.2 * static_cast<double>(r);
            const double vertical = 2.2 - 0.01 * static_cast<double>(r) + noise(random);
            const double horizontal = 0.01 * static_cast<double>(c) + noise(random);
            const Point point = PointOf(cell.valid ? range : 0.0, vertical, horizontal);
            cell.x = point.x;
            cell.y = point.y;
            cell.z = point.z;
            cell.intensity = 0.5;
            cells.push_back(cell);
        }
    }
    return cells;
}

double GreatestMove(const std::filesystem::path& a, const std::filesystem::path& b) {
    const Scan before = ReadScan(*OpenScanSource(a)), after = ReadScan(*OpenScanSource(b));
    EXPECT_EQ(before.cells.size(), after.cells.size());
    double greatest = 0;
    for (size_t i = 0; i < before.cells.size(); ++i) {
        const Cell &one = before.cells[i], &other = after.cells[i];
        EXPECT_EQ(one.valid, other.valid);
        greatest = std::max(greatest, std::hypot(one.x - other.x, one.y - other.y, one.z - other.z));
    }
    return greatest;
}

TEST(AngleSettling, AnImportedAndARecodedScanStayWithinTheBoundAndSayIt) {
    const TempFolder folder;
    WriteFile(folder / "a.ptx", PtxText(NoisyCells(150, 130), 150, 130, false));
    ImportOptions options;
    options.patchWidth = options.patchHeight = 64;
    const ImportReport exact =
        ImportScan(*OpenScanSource(folder / "a.ptx"), 0, folder / "exact.qsn", options);
    options.anglePrecision = 0.05;
    for (const int threads : {1, 3}) {
        options.threads = threads;
        const std::string name = "settled" + std::to_string(threads) + ".qsn";
        const ImportReport report = ImportScan(*OpenScanSource(folder / "a.ptx"), 0, folder / name, options);
        EXPECT_LT(report.bytesWritten, exact.bytesWritten);
        EXPECT_NE(report.losses.Find("coordinates")->detail.find("0.05 mm across the beam"),
                  std::string::npos);
        // The points are computed in single precision, which adds a little.
        EXPECT_LE(GreatestMove(folder / "exact.qsn", folder / name), 0.05e-3 + 4e-6);
    }
    options = OptionsOf(folder / "exact.qsn");
    options.anglePrecision = 0.05;
    const ImportReport report = RecodeScan(folder / "exact.qsn", folder / "recoded.qsn", options);
    EXPECT_EQ(report.losses.Find("coordinates")->fate, Fate::Converted);
    EXPECT_LT(report.bytesWritten, exact.bytesWritten);
    EXPECT_LE(GreatestMove(folder / "exact.qsn", folder / "recoded.qsn"), 0.05e-3 + 4e-6);
    options.anglePrecision = -1;
    EXPECT_THROW(RecodeScan(folder / "exact.qsn", folder / "refused.qsn", options),
                 kxbase::KXBadInputException);
}

}  // namespace
}  // namespace kxexchange::testing
