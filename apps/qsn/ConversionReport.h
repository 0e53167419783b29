// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Errors.h"
#include "JsonOutput.h"
#include "kxexchange/LossReport.h"

namespace qsn {

/// One scan that was converted, or found finished.
struct ConvertedScan {
    std::string source;
    uint64_t scan = 1;  ///< in the source, from 1
    std::string name;   ///< of the scan; may be empty
    std::string output;
    std::string format;
    bool finishedBefore = false;  ///< by an earlier run; then nothing below is known
    uint64_t columns = 0, rows = 0, points = 0;
    double greatestRange = 0;  ///< metres; 0 when not known
    uint64_t sourceBytes = 0;
    uint64_t bytes = 0;
    double seconds = 0;
    kxexchange::LossReport losses;
    std::vector<std::string> warnings;
};

/// One input, or scan of it, that failed.
struct FailedScan {
    std::string source;
    std::string error;
    ExitCode code = ExitDamaged;
};

/// The report of a scan for people.
std::string ReportText(const ConvertedScan& scan);

/// The report of a whole run for programs.
Json ReportJson(const char* command, const std::vector<ConvertedScan>& scans,
                const std::vector<FailedScan>& failures);

}  // namespace qsn
