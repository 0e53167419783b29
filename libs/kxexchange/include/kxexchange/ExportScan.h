// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "kxexchange/Errors.h"
#include "kxexchange/Export.h"
#include "kxexchange/LossReport.h"
#include "kxexchange/Progress.h"
#include "kxexchange/ScanSink.h"

namespace kxio {
class QSNScanReader;
}

namespace kxexchange {

/// What to do with the scan's registration.
enum class RegistrationUse {
    Default,  ///< Keep where the format holds a pose (PTX, E57), otherwise Apply
    Keep,     ///< points in the instrument's frame; the pose beside them where the format holds one
    Apply,    ///< points in the project's frame; a format with a pose then carries the identity
};

struct ExportOptions {
    RegistrationUse registration = RegistrationUse::Default;
    bool intensity = true;  ///< write intensity where the scan has it (PTX needs a value: 0.5 when left out)
    bool color = true;      ///< write colour where the scan has it
    SinkOptions sink;       ///< what the format leaves open; its threads: 0, as many as the machine has cores
    ExportOptions() { sink.threads = 0; }
};

/// What an export did.
struct ExportReport {
    uint64_t columns = 0;  ///< of the grid as exported
    uint64_t rows = 0;
    uint64_t cells = 0;
    uint64_t points = 0;        ///< points written
    uint64_t bytesWritten = 0;  ///< size of the file
    bool intensity = false;     ///< the file holds measured intensities
    bool color = false;
    bool registrationApplied = false;
    LossReport losses;
    std::vector<std::string> warnings;  ///< UTF-8
};

/// Exports an open scan.
///
/// Streams a column of patches at a time. When the scan was imported by ImportScan, a PTX has every cell
/// back in the row and column it came from, and intensities in the units they came in. The file is written
/// beside `outPath` under a temporary name and renamed when complete; on failure or cancellation the
/// temporary file is removed. `reader` must stay open and must not be closed or reopened meanwhile.
///
/// \param format    name of a format of SinkFormats(), in any case
/// \param progress  may be null
/// \throws CancelledException  `progress` said so
/// \throws kxbase::KXComponentNotInFileException  the scan has no range or angles
/// \throws kxbase::KXUnreadablePatchException     the stored bytes are damaged
/// \throws kxbase::KXBadInputException            an option or the format is not acceptable, or the scan has
///                                                no grid or a registration of values that are no numbers;
///                                                nothing was written
/// \throws kxbase::KXFileNotOpenException, kxbase::KXWritingException  the output failed
KXEXCHANGE_EXPORT ExportReport ExportScan(const kxio::QSNScanReader& reader,
                                          const std::filesystem::path& outPath, std::string_view format,
                                          const ExportOptions& options = {},
                                          ProgressSink* progress = nullptr);

/// The same for a file, opened for the duration of the call.
KXEXCHANGE_EXPORT ExportReport ExportScan(const std::filesystem::path& scanPath,
                                          const std::filesystem::path& outPath, std::string_view format,
                                          const ExportOptions& options = {},
                                          ProgressSink* progress = nullptr);

}  // namespace kxexchange
