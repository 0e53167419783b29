// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kxexchange/Errors.h"
#include "kxexchange/Export.h"
#include "kxexchange/LossReport.h"
#include "kxexchange/Progress.h"
#include "kxexchange/ScanSink.h"
#include "kxexchange/ScanSource.h"

namespace kxio {
class QSNScanReader;
}

namespace kxexchange {

/// What to do with the scan's registration.
enum class RegistrationUse {
    Default,  ///< Apply where the format holds points and no pose (PLY, XYZ, PTS, LAS), otherwise Keep
    Keep,     ///< points in the instrument's frame; the pose beside them where the format holds one
    Apply,    ///< points in the project's frame; a format with a pose then carries the identity
};

struct ExportOptions {
    RegistrationUse registration = RegistrationUse::Default;
    bool intensity = true;  ///< write intensity where the scan has it (PTX needs a value: 0.5 when left out)
    bool color = true;      ///< write colour where the scan has it
    bool strict = false;    ///< refuse to write what would lose something
    SinkOptions sink;       ///< what the format leaves open; its threads: 0, as many as the machine has cores
    ExportOptions() { sink.threads = 0; }
};

/// What an export did.
struct ExportReport {
    std::string name;      ///< of the scan, UTF-8; may be empty
    uint64_t columns = 0;  ///< of the grid as exported
    uint64_t rows = 0;
    uint64_t cells = 0;
    uint64_t points = 0;        ///< points written
    uint64_t bytesWritten = 0;  ///< size of the file
    bool intensity = false;     ///< the file holds measured intensities
    bool color = false;
    bool registrationApplied = false;
    LossReport losses;
    std::vector<std::string> warnings;  ///< UTF-8; what the source noticed too
};

/// Writes scans of any sources into one file of another format.
///
/// The file is written beside its target under a temporary name and gets its own in Commit; without it, or
/// after a failure, nothing is left. Memory is bounded by a block of columns. What a scan loses is known, and
/// with `strict` refused, before its first cell is read, but for what only the cells themselves show.
class KXEXCHANGE_EXPORT ScanFileExport {
public:
    /// \throws kxbase::KXBadInputException    an option is not acceptable
    /// \throws kxbase::KXFileNotOpenException  the file cannot be made
    ScanFileExport(const std::filesystem::path& outPath, const SinkFormat& format,
                   const ExportOptions& options = {});
    ~ScanFileExport();
    ScanFileExport(const ScanFileExport&) = delete;
    ScanFileExport& operator=(const ScanFileExport&) = delete;

    /// Appends a scan. After a failure the file cannot be completed.
    /// \param scanIndex  from 0
    /// \param progress   may be null
    /// \throws CancelledException      `progress` said so
    /// \throws LossException           `strict`, and something would be lost
    /// \throws SourceFormatException   the source breaks its format
    /// \throws kxbase::KXBadInputException  the scan does not fit the format, or its pose holds values that
    ///                                 are no numbers, or the format holds one scan and has one
    /// \throws kxbase::KXWritingException, and what else reading the source throws
    ExportReport Add(ScanSource& source, uint64_t scanIndex, ProgressSink* progress = nullptr);
    /// Completes the file and gives it its name; an older file of that name is replaced. \return its size
    /// \throws kxbase::KXWritingException
    uint64_t Commit();
    /// The kind of coordinates in which the format takes scans best, for SourceOptions.
    static CoordinateKind WantedCoordinates(const SinkFormat& format, const ExportOptions& options);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
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
