// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kxexchange/kxexchange.h"

namespace kxexchange::testing {

/// What a file of any format that is written turns out to hold: read by the library where it reads the
/// format, by readers of these tests where it does not.
struct ReadBackScan {
    uint64_t columns = 0, rows = 0;                       ///< of the grid; 0 when there is none
    std::vector<uint64_t> points;                         ///< returns of each scan that the file keeps apart
    std::optional<kxbase::RegistrationInformation> pose;  ///< where the format has one
    std::vector<Cell> cells;                              ///< of all scans; Cartesian
    bool intensity = false, color = false, classes = false;
    unsigned colorScale = 1;  ///< 257 where 8 bits come back as 16
    size_t images = 0;
};

/// Writes scans with given options into a new file and returns its path.
using WriteFormat = std::function<std::filesystem::path(const SinkOptions& options)>;

/// Formats of single planes are written once per plane.
ReadBackScan ReadBack(const std::string& format, const WriteFormat& write);

}  // namespace kxexchange::testing
