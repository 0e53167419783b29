// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kxexchange/Errors.h"
#include "kxexchange/Export.h"
#include "kxexchange/Progress.h"

namespace kxio {
class QSNScanReader;
}

namespace kxexchange {

/// What a scan can be exported to.
enum class ExportFormat {
    Ptx,  ///< text, every cell of the grid, matrix in the header
    Ply,  ///< binary little-endian, points only
    Xyz,  ///< text, one line per point
};

/// The format that a file name asks for by its ending (`.ptx`, `.ply`, `.xyz`, any case), if any.
KXEXCHANGE_EXPORT std::optional<ExportFormat> ExportFormatOf(const std::filesystem::path& path);

/// What to do with the scan's registration.
enum class RegistrationUse {
    Default,  ///< PTX: Keep; PLY and XYZ: Apply
    Keep,     ///< points in the instrument's frame; PTX carries the matrix
    Apply,    ///< points in the project's frame; a PTX then carries the identity
};

/// How PLY stores coordinates.
enum class PlyCoordinates {
    Default,  ///< Float unless a coordinate might exceed 1,000 m
    Float,
    Double,
};

struct ExportOptions {
    RegistrationUse registration = RegistrationUse::Default;
    bool intensity = true;  ///< write intensity where the scan has it (PTX needs a value: 0.5 when left out)
    bool color = true;      ///< write colour where the scan has it
    PlyCoordinates plyCoordinates = PlyCoordinates::Default;
    int decimals = -1;  ///< of coordinates in text, 1..12; -1: two more than the range scale, at least 6
    int threads = 0;    ///< 1: all in the caller's thread; 0: as many as the machine has cores
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
    std::vector<std::string> warnings;  ///< UTF-8
};

/// Exports an open scan.
///
/// Streams a column of patches at a time. When the scan was imported by ImportScan, a PTX has every cell
/// back in the row and column it came from, and intensities in the units they came in. The file is written
/// beside `outPath` under a temporary name and renamed when complete; on failure or cancellation the
/// temporary file is removed. `reader` must stay open and must not be closed or reopened meanwhile.
///
/// \param progress  may be null
/// \throws CancelledException  `progress` said so
/// \throws kxbase::KXComponentNotInFileException  the scan has no range or angles
/// \throws kxbase::KXUnreadablePatchException     the stored bytes are damaged
/// \throws kxbase::KXBadInputException            an option is not acceptable, or the scan has no grid or a
///                                                registration of values that are no numbers; nothing was
///                                                written
/// \throws kxbase::KXFileNotOpenException, kxbase::KXWritingException  the output failed
KXEXCHANGE_EXPORT ExportReport ExportScan(const kxio::QSNScanReader& reader,
                                          const std::filesystem::path& outPath, ExportFormat format,
                                          const ExportOptions& options = {},
                                          ProgressSink* progress = nullptr);

/// The same for a file, opened for the duration of the call.
KXEXCHANGE_EXPORT ExportReport ExportScan(const std::filesystem::path& scanPath,
                                          const std::filesystem::path& outPath, ExportFormat format,
                                          const ExportOptions& options = {},
                                          ProgressSink* progress = nullptr);

}  // namespace kxexchange
