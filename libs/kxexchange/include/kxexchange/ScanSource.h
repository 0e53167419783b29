// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kxbase/IInFileStream.h"
#include "kxexchange/Cell.h"
#include "kxexchange/Export.h"
#include "kxexchange/ScanDescription.h"

namespace kxexchange {

/// How a file is to be read.
struct SourceOptions {
    int threads = 1;     ///< 1: all in the caller's thread; 0: as many as the machine has cores
    std::string format;  ///< name of the format ("PTX"); empty: told from the file
    /// The kind of coordinates that suits who reads, for sources that can give either.
    std::optional<CoordinateKind> coordinateKind;
    /// Where a reader may put what it cannot keep in memory; empty: the system's folder.
    std::filesystem::path temporaryFolder;
};

/// Reads the scans of one file of another format, cell by cell, without holding the file.
///
/// Opening a scan a second time reads it again from its start, which is how an importer makes its two
/// passes. One source serves one thread at a time; it may use threads of its own.
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
    /// (replaced). A reader whose records come in another order sorts them first, in bounded memory; places
    /// of the grid that no record names are cells without a return. A scan without grid is one column cut
    /// anywhere: `maxColumns` does not count, the points of the next piece are given, and 1 is returned.
    /// \return columns read; 0 at the end
    /// \throws SourceFormatException
    virtual uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) = 0;
    /// What was noticed about the open scan while its cells were read (two records for one place, say),
    /// UTF-8; complete once ReadColumns has returned 0.
    virtual std::vector<std::string> Warnings() const { return {}; }
    /// Bytes of the file, as stored, taken so far since the source was made; grows over all passes.
    virtual uint64_t BytesRead() const = 0;
    /// Size of the file in bytes.
    virtual uint64_t FileBytes() const = 0;
};

/// A format that can be read.
struct SourceFormat {
    std::string_view name;                      ///< "PTX"; also what FormatName() says
    std::span<const std::string_view> endings;  ///< lower case, with the point
    std::string_view magic;                     ///< first bytes of such a file; empty when it has none
    std::unique_ptr<ScanSource> (*make)(std::unique_ptr<kxbase::IInFileStream> stream,
                                        const std::string& name, const SourceOptions& options);
};

/// All formats that can be read.
KXEXCHANGE_EXPORT std::span<const SourceFormat> SourceFormats();

/// Opens a file. The format is the one of the options, else the one that has the name's ending, else the
/// one whose first bytes the file has.
/// \throws kxbase::KXFileNotOpenException  "Cannot open file"
/// \throws kxbase::KXBadInputException     no reader for this kind of file
KXEXCHANGE_EXPORT std::unique_ptr<ScanSource> OpenScanSource(const std::filesystem::path& path,
                                                             const SourceOptions& options = {});

/// The same over a stream: memory, or a caller's own. `name` appears in messages.
KXEXCHANGE_EXPORT std::unique_ptr<ScanSource> OpenScanSource(std::unique_ptr<kxbase::IInFileStream> stream,
                                                             const std::string& name,
                                                             const SourceOptions& options = {});

/// True when OpenScanSource knows the kind of file by its name.
KXEXCHANGE_EXPORT bool IsImportable(const std::filesystem::path& path);

}  // namespace kxexchange
