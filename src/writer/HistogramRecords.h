// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kxio/ExtendedHeader.h"
#include "writer/PatchHistograms.h"

namespace kxio {

/// What becomes of the histograms of a scan.
struct HistogramRecords {
    /// Class, segment, 8-bit and 16-bit intensity; those without counts are not there.
    std::vector<std::unique_ptr<ExtendedHeader>> records;
    /// One text for each that is too large for a record, to be stored as a warning.
    std::vector<std::wstring> warnings;
};

/// Numbers of a histogram that surely fit a record of 32-bit size: the distance to 4 GiB is for the headers
/// and for what a compressor adds to bytes it cannot pack.
inline constexpr uint64_t kMaxHistogramBytes = (uint64_t{1} << 32) - (uint64_t{1} << 24);

/// Takes the counts out of `histograms`, one component after the other, but those that are left out.
/// \param maxBytes  of the numbers of one histogram before they are packed; a larger one is left out, since
///                  the scan is worth more than a summary of it
HistogramRecords MakeHistogramRecords(PatchHistograms& histograms, uint64_t maxBytes = kMaxHistogramBytes);

}  // namespace kxio
