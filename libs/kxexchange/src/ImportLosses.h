// SPDX-License-Identifier: MIT
#pragma once

#include "ScanSurvey.h"
#include "kxexchange/ImportScan.h"
#include "kxexchange/LossReport.h"

namespace kxexchange {

/// What is known of an import when the first pass is done.
struct ImportFacts {
    const ScanDescription& description;
    const ImportOptions& options;
    const ScanSurvey& survey;
    const ImportReport& report;  ///< with grid, precision and intensity mapping
    bool thumbnail;              ///< an image becomes the thumbnail
};

/// What becomes of everything the source says about the scan.
LossReport ImportLosses(const ImportFacts& facts);

}  // namespace kxexchange
