// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// The values of one patch as the codecs get them: integers, row by row, little-endian.
struct ComparePatch {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t elementBytes = 0;
    std::vector<unsigned char> values;
};

struct CompareComponent {
    std::string name;
    std::vector<ComparePatch> patches;
    uint64_t cells = 0;
};

/// A scan to compare codecs on.
struct CompareScan {
    uint64_t returns = 0;
    std::vector<CompareComponent> components;
};

/// Takes a .qsn file as it is, and imports anything else first.
/// \throws kxbase::KXException, std::runtime_error
CompareScan LoadCompareScan(const std::filesystem::path& path);

/// Adds a component "points" of 12 bytes an element: the first three components of 4 bytes, cell by cell.
void AddPoints(CompareScan& scan);

/// A made-up scan in patches of 256 x 256: a room with boxes and spheres, windows without a return and single
/// cells without one (26 % in all). Ranges in steps of 0.1 mm with 1.5 mm of noise, angles of 1 microradian
/// with a jitter of 8 (cells without a return have the grid's own), intensities of 16 bits whose noise is
/// 128. The same numbers everywhere and always.
CompareScan MakeSyntheticScan(uint32_t columns, uint32_t rows);
