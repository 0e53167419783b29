// SPDX-License-Identifier: MIT
// The scan that the tests of writers write.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "TestTools.h"
#include "kxbase/InMemoryStream.h"

namespace kxexchange::testing {

inline constexpr uint64_t kSinkColumns = 12, kSinkRows = 9;

inline ScanDescription Described(bool color = true) {
    ScanDescription description;
    description.columns = kSinkColumns;
    description.rows = kSinkRows;
    description.points = kSinkColumns * kSinkRows;
    description.coordinates.present = true;
    description.intensity.present = true;
    description.intensity.minimum = 0;
    description.intensity.maximum = 1;
    description.color.present = color;
    description.classification.present = true;
    const double pose[12] = {0.6, 0.8, 0, -0.8, 0.6, 0, 0, 0, 1, 100.25, -200.5, 3};
    description.pose = kxbase::RegistrationInformation::FromValues(pose);
    return description;
}

inline std::vector<Cell> SinkCells() {
    Sweep sweep;
    sweep.missing = 0.3;
    std::vector<Cell> cells = MakeSweep(sweep);
    for (size_t i = 0; i < cells.size(); ++i)
        cells[i].classification = static_cast<uint8_t>(cells[i].valid ? i % 7 : 0);
    return cells;
}

// What a sink makes of scans, fed a few columns at a time.
inline std::string Written(const std::string& format, const std::vector<ScanDescription>& scans,
                           const std::vector<Cell>& cells, SinkOptions options = {},
                           LossReport* losses = nullptr) {
    kxbase::InMemoryStream stream;
    const SinkFormat* const found = FindSinkFormat(format);
    EXPECT_NE(found, nullptr);
    const auto sink = found->make(stream, options);
    for (const ScanDescription& scan : scans) {
        sink->BeginScan(scan);
        const std::span<const Cell> all(cells);
        for (uint64_t column = 0; column < kSinkColumns;) {
            const uint64_t some = std::min<uint64_t>(5, kSinkColumns - column);
            sink->WriteColumns(all.subspan(column * kSinkRows, some * kSinkRows), some);
            column += some;
        }
        sink->EndScan();
        if (losses) sink->AddLosses(*losses);
    }
    sink->Finish();
    const auto& bytes = stream.GetBytes();
    EXPECT_EQ(sink->BytesWritten(), bytes.size());
    return {bytes.begin(), bytes.end()};
}

inline uint64_t Returns(const std::vector<Cell>& cells) {
    return static_cast<uint64_t>(
        std::count_if(cells.begin(), cells.end(), [](const Cell& c) { return c.valid; }));
}

// Cell of row r, column c.
inline const Cell& Of(const std::vector<Cell>& cells, size_t row, size_t column) {
    return cells[column * kSinkRows + row];
}

}  // namespace kxexchange::testing
