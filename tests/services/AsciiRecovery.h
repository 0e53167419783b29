// SPDX-License-Identifier: MIT
// Small scans, and what is found in them.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "RecoveryFixture.h"
#include "kxio/QSNFileRecovery.h"

namespace recovery_test {

using kxbase::ComponentType;
using kxio::QSNFileRecovery;

inline constexpr ComponentType kR = kxbase::Range;
inline constexpr ComponentType kV = kxbase::VerticalAngle;
inline constexpr ComponentType kH = kxbase::HorizontalAngle;
inline constexpr ComponentType kI = kxbase::Luminance16;
inline constexpr uint32_t kSide = 2;

/// Range of cell `cell` of patch (row, column) in millimetres: different for every cell of every patch.
inline float RangeOf(uint32_t row, uint32_t column, uint32_t cell) {
    return static_cast<float>(1000 * (1 + 100 * row + 10 * column + cell));
}

inline Bytes RangeChunk(uint32_t row, uint32_t column, float quality = 1.0F) {
    return Encode<float>(
        {RangeOf(row, column, 0), RangeOf(row, column, 1), RangeOf(row, column, 2), RangeOf(row, column, 3)},
        kSide, kSide, quality);
}
inline Bytes ZeroAngles() {
    return Encode<float>(std::vector<float>(4, 0.0F), kSide, kSide);
}
inline Bytes IntensityChunk(uint16_t value) {
    return Encode<uint16_t>(std::vector<uint16_t>(4, value), kSide, kSide);
}

/// The four components of a patch; with vertical angle 0 every point lies at z = range.
inline void AddPatch(FileBytes& file, uint32_t row, uint32_t column, uint16_t intensity = 7) {
    file.AddChunk(row, column, kV, ZeroAngles());
    file.AddChunk(row, column, kH, ZeroAngles());
    file.AddChunk(row, column, kI, IntensityChunk(intensity));
    file.AddChunk(row, column, kR, RangeChunk(row, column));
}

/// The line of a point of `AddPatch`.
inline std::string LineOf(uint32_t row, uint32_t column, uint32_t cell, const std::string& intensity = "7") {
    const auto metres = static_cast<uint32_t>(RangeOf(row, column, cell) / 1000);
    return "0.00000 0.00000 " + std::to_string(metres) + ".00000 " + intensity + " " + intensity + " " +
           intensity + " " + intensity;
}

/// Grid of `rows` x `columns` patches.
inline FileBytes GridFile(uint32_t rows, uint32_t columns) {
    FileBytes file;
    for (uint32_t r = 0; r < rows; ++r) {
        for (uint32_t c = 0; c < columns; ++c)
            AddPatch(file, r, c);
    }
    return file;
}

struct Export {
    std::vector<std::string> lines;
    std::vector<std::string> printed;

    int64_t Printed(const std::string& line) const {
        return std::count(printed.begin(), printed.end(), line);
    }
};

inline Export ExportOf(const Bytes& bytes) {
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", bytes);
    QSNFileRecovery recovery(folder / "scan.qsn");
    const CapturedOutput output;
    recovery.ExportAscii(folder / "points.txt");
    return {Lines(ReadText(folder / "points.txt")), Lines(output.Text())};
}

/// A recovery of `bytes`; the file is gone by the time the caller has it.
inline std::unique_ptr<QSNFileRecovery> RecoveryOf(const Bytes& bytes) {
    const TemporaryFolder folder;
    WriteBytes(folder / "scan.qsn", bytes);
    return std::make_unique<QSNFileRecovery>(folder / "scan.qsn");
}

}  // namespace recovery_test
