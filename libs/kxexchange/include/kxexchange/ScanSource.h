// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kxbase/IInFileStream.h"
#include "kxbase/RegistrationInformation.h"
#include "kxexchange/Export.h"

namespace kxexchange {

/// One cell of a scan's grid, or one point of a scan without a grid.
struct Cell {
    double x = 0;  ///< metres, in the instrument's frame
    double y = 0;
    double z = 0;
    double intensity = 0;  ///< as the file says it; see the field's unit and range
    uint8_t red = 0;
    uint8_t green = 0;
    uint8_t blue = 0;
    bool valid = false;  ///< something came back; otherwise the coordinates are 0
};

/// What is known about one field of a scan before its cells are read.
struct FieldDescription {
    bool present = false;
    std::string unit;               ///< "m", "1" for a share of 1, "count"; empty when unknown
    std::optional<double> minimum;  ///< declared range, when the format declares one
    std::optional<double> maximum;
    std::optional<double> precision;  ///< declared step of the stored values
};

/// What a file says about one of its scans, in front of the cells.
struct ScanDescription {
    std::string name;      ///< UTF-8; may be empty
    uint64_t columns = 0;  ///< columns of the grid; 0 x 0 when the scan has no grid
    uint64_t rows = 0;
    uint64_t points = 0;  ///< cells, or points of a scan without grid, that the file announces
    kxbase::RegistrationInformation pose;  ///< instrument's frame to the project's; translation in metres
    FieldDescription coordinates;
    FieldDescription intensity;
    FieldDescription color;
    /// Facts of the format that have no place above and that its writer would like back, as (key, value)
    /// with keys of [a-z0-9-] and values without blanks.
    std::vector<std::pair<std::string, std::string>> keepsakes;

    bool HasGrid() const { return columns != 0 && rows != 0; }
};

/// Reads the scans of one file of another format, cell by cell, without holding the file.
///
/// Opening a scan a second time reads it again from its start, which is how an importer makes its two
/// passes. One source serves one thread at a time.
class KXEXCHANGE_EXPORT ScanSource {
public:
    virtual ~ScanSource();

    /// Short name of the format, "PTX".
    virtual std::string FormatName() const = 0;
    /// Path or name of the file, UTF-8, for messages.
    virtual std::string Name() const = 0;
    /// Number of scans in the file. A text format has to be walked to the end for this, once. Closes the
    /// open scan.
    /// \throws SourceFormatException
    virtual uint64_t ScanCount() = 0;
    /// Goes to the first cell of scan `index` (from 0) and says what the file knows about it.
    /// \throws kxbase::KXIndexOutOfBoundsException  the file has no such scan
    /// \throws SourceFormatException                its header cannot be read
    virtual ScanDescription OpenScan(uint64_t index) = 0;
    /// Reads the next whole columns of the open scan: at least one, at most `maxColumns`, and no more than
    /// a few million cells at a time, column after column, each in the file's row order, into `cells`
    /// (replaced). A scan without grid is one column cut anywhere. \return columns read; 0 at the end.
    /// \throws SourceFormatException
    virtual uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) = 0;
    /// Bytes of the file, as stored, taken so far since the source was made; grows over all passes.
    virtual uint64_t BytesRead() const = 0;
    /// Size of the file in bytes.
    virtual uint64_t FileBytes() const = 0;
};

/// Opens a file for import; the format is told from its name (`.ptx`, `.ptx.gz`) and first bytes.
/// \throws kxbase::KXFileNotOpenException  "Cannot open file"
/// \throws kxbase::KXBadInputException     no reader for this kind of file
KXEXCHANGE_EXPORT std::unique_ptr<ScanSource> OpenScanSource(const std::filesystem::path& path);

/// The same over a stream: memory, or a caller's own. `name` tells the format and appears in messages.
KXEXCHANGE_EXPORT std::unique_ptr<ScanSource> OpenScanSource(std::unique_ptr<kxbase::IInFileStream> stream,
                                                             const std::string& name);

/// True when OpenScanSource knows the kind of file by its name.
KXEXCHANGE_EXPORT bool IsImportable(const std::filesystem::path& path);

}  // namespace kxexchange
