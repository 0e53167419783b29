// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

#include "TestTools.h"

namespace kxexchange::testing {

struct RoundTripResult {
    ImportReport imported;
    ExportReport exported;
    double greatestShift = 0;  ///< metres
};

/// PTX -> QSN -> PTX, then compares cell by cell: place, return or none, coordinates against
/// PositionBound, intensity against the mapping's bound, colour exactly (unless `exactColor` is false),
/// pose and keepsakes to the last bit. Failures are reported through GoogleTest.
RoundTripResult CheckRoundTrip(const std::filesystem::path& source, const ImportOptions& options = {},
                               bool exactColor = true, uint64_t scanIndex = 0);

/// The same for a text.
RoundTripResult CheckRoundTripOfText(const std::string& text, const ImportOptions& options = {});

}  // namespace kxexchange::testing
