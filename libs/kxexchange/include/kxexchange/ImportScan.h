// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kxbase/GridTopology.h"
#include "kxexchange/Errors.h"
#include "kxexchange/Export.h"
#include "kxexchange/GridLayout.h"
#include "kxexchange/IntensityMapping.h"
#include "kxexchange/LossReport.h"
#include "kxexchange/PositionBound.h"
#include "kxexchange/Progress.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// How the values of a component are compressed.
enum class Codec {
    Zlib,
    Snappy,
    Jpeg,      ///< lossy; colour only
    Zstd,      ///< general
    Grid,      ///< made for ranges, angles and intensities; the smallest
    GridFast,  ///< the same in the form that decodes quickest
    Color,     ///< made for colours, lossless; the smallest of these
};

/// How a scan becomes a .qsn file. The defaults lose nothing that a tripod scanner measures.
struct ImportOptions {
    uint32_t patchWidth = 256;   ///< columns per patch; smaller where the grid is
    uint32_t patchHeight = 256;  ///< rows per patch
    Codec rangeCodec = Codec::Grid;
    Codec angleCodec = Codec::Grid;
    Codec intensityCodec = Codec::Grid;
    Codec colorCodec = Codec::Color;
    int compressionLevel =
        -1;  ///< 0..9 for the codecs that have levels; -1: each codec's default; Grid has none
    double rangeScale = 0.1;        ///< millimetres; made coarser when a range would not fit, with a warning
    double verticalScale = 1e-6;    ///< radians
    double horizontalScale = 1e-6;  ///< radians
    /// Angles of returns are only kept so precise that no point moves by more than this across the beam,
    /// millimetres, which makes files smaller; 0: as precise as their scales.
    double anglePrecision = 0;
    bool intensity = true;          ///< keep intensity (components 4 and 5)
    bool color = true;              ///< keep colour (component 6)
    bool histograms = true;         ///< count intensities per patch
    /// Hashes of every part (`QSNScanWriter::SetIntegrity`). Unset: where the source is a .qsn file that has
    /// them.
    std::optional<bool> hashes;
    /// Previews are the grid reduced by a whole step, so that no side is longer than this, and at least by
    /// two unless the grid is small (up to 16384 cells).
    uint32_t previewSide = 1000;
    bool strict = false;  ///< refuse to write what would lose something
    int threads = 0;      ///< 1: all in the caller's thread; 0: as many as the machine has cores
};

/// What an import did.
struct ImportReport {
    kxbase::GridTopology grid;   ///< as written
    GridLayout layout;           ///< which cell of the source lies where
    uint64_t cells = 0;          ///< cells of the source
    uint64_t returns = 0;        ///< cells in which something came back
    double greatestRange = 0;    ///< metres
    IntensityMapping intensity;  ///< how the file's intensities became 16 bits
    StoragePrecision precision;  ///< scales as written; input of PositionBound
    /// Greatest distance of a cell's own direction from its place in the grid, radians; the horizontal one
    /// is taken along the circle of latitude (times the sine of the vertical angle).
    double maxHorizontalResidual = 0;
    double maxVerticalResidual = 0;
    uint64_t bytesRead = 0;                      ///< of the source, both passes
    uint64_t bytesWritten = 0;                   ///< size of the file
    std::map<std::string, uint64_t> statistics;  ///< bytes per component and kind of record, by name
    std::string name;                            ///< of the scan, UTF-8; may be empty
    LossReport losses;
    std::vector<std::string> warnings;  ///< UTF-8; also stored in the file
};

/// Imports one scan of `source` into a new .qsn file.
///
/// Reads the scan twice: once to fit the grid and to learn the ranges, once to write. Memory is bounded by
/// a few columns of patches, whatever the size of the scan. The file is written beside `outPath` under a
/// temporary name and renamed when complete, so that no half-written file is ever seen under its name; on
/// failure or cancellation the temporary file is removed.
///
/// \param scanIndex  from 0
/// \param progress   may be null
/// \throws CancelledException                   `progress` said so
/// \throws LossException                        `strict`, and something would be lost
/// \throws SourceFormatException                the source breaks its format
/// \throws kxbase::KXIndexOutOfBoundsException  the source has no such scan
/// \throws kxbase::KXBadInputException          an option is not acceptable; nothing was written
/// \throws kxbase::KXFileNotOpenException, kxbase::KXWritingException  the output failed
KXEXCHANGE_EXPORT ImportReport ImportScan(ScanSource& source, uint64_t scanIndex,
                                          const std::filesystem::path& outPath,
                                          const ImportOptions& options = {},
                                          ProgressSink* progress = nullptr);

}  // namespace kxexchange
