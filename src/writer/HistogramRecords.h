// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "writer/PackedHistogram.h"
#include "writer/PatchHistograms.h"

namespace kxio {

/// What becomes of the histograms of a scan.
struct HistogramRecords {
    /// Class, segment, 8-bit and 16-bit intensity; those without counts are not there.
    std::vector<PackedHistogram> records;
    /// One text for each that is too large for a record, to be stored as a warning.
    std::vector<std::wstring> warnings;
};

/// Numbers of a histogram that surely fit a record of 32-bit size: the distance to 4 GiB is for the headers
/// and for what a compressor adds to bytes it cannot pack. One of which that is not true is left out too.
inline constexpr uint64_t kMaxHistogramBytes = (uint64_t{1} << 32) - (uint64_t{1} << 24);

/// Takes the counts out of `histograms`, one component after the other, but those that are left out.
/// \param maxBytes  of the numbers of one histogram before they are packed; a larger one is left out, since
///                  the scan is worth more than a summary of it
HistogramRecords MakeHistogramRecords(PatchHistograms& histograms, uint64_t maxBytes = kMaxHistogramBytes);

}  // namespace kxio
