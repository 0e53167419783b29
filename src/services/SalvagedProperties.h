// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kxio/ExtendedHeader.h"
#include "kxio/ScanProperties.h"
#include "services/RecordSurvey.h"
#include "services/TableEvidence.h"

namespace kxio {

/// What is left of a damaged file besides its patches.
struct SalvagedProperties {
    /// Of the scan header, when one survived (`hasScanHeader`), and of the extended records.
    ScanProperties properties;
    bool hasScanHeader = false;
    /// JPEG bytes of the thumbnail; empty when it is gone or damaged.
    std::vector<unsigned char> thumbnail;
    /// Records of kinds that are not known here, to be kept as they are.
    std::vector<ExtendedHeader> furtherRecords;
    /// The extended records lie in one piece from the first to the end of the file: what is not among them
    /// was never there.
    bool tailWhole = false;
    /// Components of which a histogram is among the extended records.
    std::set<kxbase::ComponentType> histograms;
    /// The file carried hashes. Those of the old file are not kept.
    bool hashes = false;
    uint64_t extendedRecords = 0;
    std::vector<std::string> notes;  ///< for people
};

/// Reads what `survey` found. Records inside chunks that the table names belong to other files.
SalvagedProperties SalvageProperties(FileWindow& file, const Survey& survey, const TableEvidence& table);

}  // namespace kxio
