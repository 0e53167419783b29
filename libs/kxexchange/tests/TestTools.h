// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "kxexchange/kxexchange.h"
#include "support/TempFolder.h"

namespace kxexchange::testing {

/// A source over text in memory.
std::unique_ptr<ScanSource> SourceOf(const std::string& text, const std::string& name = "test.ptx");

/// A whole scan, column after column.
struct Scan {
    ScanDescription description;
    std::vector<Cell> cells;
    const Cell& At(uint64_t column, uint64_t row) const {
        return cells[static_cast<size_t>(column * description.rows + row)];
    }
};
Scan ReadScan(ScanSource& source, uint64_t index = 0);

/// Ten lines of PTX header with an identity matrix.
std::string PtxHeader(uint64_t columns, uint64_t rows);

/// A scan written as PTX with 17 digits, so that it reads back exactly.
std::string PtxText(const std::vector<Cell>& cells, uint64_t columns, uint64_t rows, bool color = false);

/// One gzip member.
std::string Gzip(const std::string& text);

using ::TempFolder;

/// Names of what lies in a folder, sorted.
std::vector<std::string> Entries(const TempFolder& folder);

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& bytes);

/// A scan that lies in the project.
std::filesystem::path TestData(const std::string& name);
/// A scan of the folder beside the project; empty when it is not there.
std::filesystem::path SharedData(const std::string& name);

/// A direction's cell at `range` metres: horizontal angle, vertical angle from the zenith.
Cell PolarCell(double range, double horizontal, double vertical);

/// Describes a sweep for MakeSweep.
struct Sweep {
    uint64_t columns = 12;
    uint64_t rows = 9;
    double firstAzimuth = 1.0;   ///< of the columns' planes
    double azimuthStep = -0.03;  ///< per column
    double firstAngle = 1.2;     ///< in a column's plane, from the zenith; may be negative or above pi
    double angleStep = -0.02;    ///< per row
    double wobble = 0;           ///< share of a step by which directions vary
    double azimuthDrift = 0;     ///< radians from the first to the last row
    double missing = 0;          ///< share of cells without a return
    unsigned seed = 1;
};

/// Cells of a sweep, column after column; ranges of 1 to 30 m, intensities of 0 to 1, colours.
std::vector<Cell> MakeSweep(const Sweep& sweep);

}  // namespace kxexchange::testing
