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

#include "kxbase/IOutFileStream.h"
#include "kxexchange/Export.h"
#include "kxexchange/FormatCapabilities.h"
#include "kxexchange/ScanDescription.h"

namespace kxexchange {

/// How a file is to be written, as far as the format leaves a choice. A format passes over what does not
/// concern it. Whether a pose is applied, and which fields are left out, is done before a sink is fed.
struct SinkOptions {
    int threads = 1;    ///< 1: all in the caller's thread; 0: as many as the machine has cores
    int decimals = -1;  ///< of coordinates in text, 1 to 12; -1: as the description's precision asks for
    NumberKind coordinates = NumberKind::Unknown;  ///< Single or Double; Unknown: what the values need
    std::optional<CoordinateKind> coordinateKind;  ///< where a format has both; empty: as the scan is
    bool noReturns = true;                         ///< write cells without a return where that is optional
    bool gzip = false;                             ///< text formats: in gzip, as the ending `.gz` asks for
    int compressionLevel = -1;                     ///< of compressed formats; -1: the format's default
    std::string plane;  ///< formats of single planes: which one ("range", "intensity"); empty: the default
    std::filesystem::path temporaryFolder;  ///< for what does not fit in memory; empty: the system's
};

/// Writes scans into a file of another format, column by column.
///
/// Per scan BeginScan, then WriteColumns until all columns went in, then EndScan; after the last scan
/// Finish. What the sink wrote is complete only when Finish has returned. Formats that hold one scan are
/// given one. One sink serves one thread at a time; it may use threads of its own.
///
/// The cells fit the description: Cartesian unless the format's `spherical` is Kept, 8-bit colours unless
/// its `colorBits` is 16; in the instrument's frame, or in the project's when the pose is the identity.
class KXEXCHANGE_EXPORT ScanSink {
public:
    virtual ~ScanSink();

    /// Writes what stands in front of the scan's cells. Formats without a pose of their own ignore it.
    /// \throws kxbase::KXWritingException  as all the others; also: a second scan in a format that holds one
    /// \throws kxbase::KXBadInputException  the scan does not fit the format; nothing was written
    virtual void BeginScan(const ScanDescription& description) = 0;
    /// Takes whole columns of the description's row count, column after column. Of a scan without grid:
    /// the next points, `columns` 1.
    virtual void WriteColumns(std::span<const Cell> cells, uint64_t columns) = 0;
    /// Writes what stands behind the scan's cells.
    virtual void EndScan() = 0;
    /// Writes what stands behind all scans and completes the header.
    virtual void Finish() = 0;
    /// Bytes written so far.
    virtual uint64_t BytesWritten() const = 0;
    /// Points of all scans written so far, cells without a return not counted.
    virtual uint64_t PointsWritten() const = 0;
    /// Puts what only showed while the last scan was written into its loss report (values that did not fit,
    /// say). Called behind EndScan.
    virtual void AddLosses(LossReport& /*losses*/) const {}
};

/// A format that can be written.
struct SinkFormat {
    std::string_view name;                      ///< "PTX"
    std::span<const std::string_view> endings;  ///< lower case, with the point; the first is the usual one
    FormatCapabilities capabilities;
    std::unique_ptr<ScanSink> (*make)(kxbase::IOutFileStream& stream, const SinkOptions& options);
};

/// All formats that can be written.
KXEXCHANGE_EXPORT std::span<const SinkFormat> SinkFormats();
/// The format of a name, in any case; null when there is none.
KXEXCHANGE_EXPORT const SinkFormat* FindSinkFormat(std::string_view name);
/// The format that a file name asks for by its ending, in any case; null when there is none.
KXEXCHANGE_EXPORT const SinkFormat* SinkFormatOf(const std::filesystem::path& path);

}  // namespace kxexchange
