// SPDX-License-Identifier: MIT
#include "RoundTrip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace kxexchange::testing {

RoundTripResult CheckRoundTrip(const std::filesystem::path& sourcePath, const ImportOptions& options,
                               bool exactColor, uint64_t scanIndex) {
    constexpr int kDecimals = 9;
    RoundTripResult result;
    const TempFolder folder;
    const auto source = OpenScanSource(sourcePath);
    result.imported = ImportScan(*source, scanIndex, folder / "scan.qsn", options);
    ExportOptions exportOptions;
    exportOptions.sink.decimals = kDecimals;
    result.exported = ExportScan(folder / "scan.qsn", folder / "back.ptx", "PTX", exportOptions);
    EXPECT_EQ(Entries(folder), (std::vector<std::string>{"back.ptx", "scan.qsn"}));
    EXPECT_TRUE(result.exported.warnings.empty());
    EXPECT_EQ(result.exported.bytesWritten, std::filesystem::file_size(folder / "back.ptx"));
    EXPECT_EQ(result.imported.bytesWritten, std::filesystem::file_size(folder / "scan.qsn"));

    const auto back = OpenScanSource(folder / "back.ptx");
    const Scan before = ReadScan(*source, scanIndex);
    const Scan after = ReadScan(*back);
    EXPECT_EQ(after.description.columns, before.description.columns);
    EXPECT_EQ(after.description.rows, before.description.rows);
    EXPECT_EQ(after.description.pose, before.description.pose);
    EXPECT_EQ(after.description.keepsakes, before.description.keepsakes);
    EXPECT_EQ(after.description.color.present, before.description.color.present && options.color);
    EXPECT_EQ(before.cells.size(), after.cells.size());
    if (before.cells.size() != after.cells.size()) return result;

    const double intensityBound = result.imported.intensity.Bound() + 1e-9;
    uint64_t returns = 0, placeErrors = 0, shiftErrors = 0, intensityErrors = 0, colorErrors = 0;
    for (size_t i = 0; i < before.cells.size(); ++i) {
        const Cell& a = before.cells[i];
        const Cell& b = after.cells[i];
        if (a.valid != b.valid) {
            ++placeErrors;
            continue;
        }
        if (!a.valid) {
            if (b.x != 0 || b.y != 0 || b.z != 0) ++placeErrors;
            continue;
        }
        ++returns;
        const double range = std::hypot(a.x, a.y, a.z);
        const double shift = std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
        result.greatestShift = std::max(result.greatestShift, shift);
        if (!(shift <= PositionBound(range, result.imported.precision, kDecimals))) ++shiftErrors;
        if (options.intensity && !(std::abs(a.intensity - b.intensity) <= intensityBound)) ++intensityErrors;
        if (options.color && exactColor && (a.red != b.red || a.green != b.green || a.blue != b.blue))
            ++colorErrors;
    }
    EXPECT_EQ(placeErrors, 0U);
    EXPECT_EQ(shiftErrors, 0U) << "greatest shift " << result.greatestShift;
    EXPECT_EQ(intensityErrors, 0U);
    EXPECT_EQ(colorErrors, 0U);
    EXPECT_EQ(result.imported.returns, returns);
    EXPECT_EQ(result.exported.points, returns);
    EXPECT_EQ(result.imported.statistics.at("PointCount"), returns);
    EXPECT_EQ(result.exported.cells, before.cells.size());
    return result;
}

RoundTripResult CheckRoundTripOfText(const std::string& text, const ImportOptions& options) {
    const TempFolder folder;
    WriteFile(folder / "source.ptx", text);
    return CheckRoundTrip(folder / "source.ptx", options);
}

}  // namespace kxexchange::testing
