// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include "kxexchange/ImportScan.h"

namespace kxexchange {

/// The options under which a recoded file would be as it is: its patch size, scales (1 where values are
/// stored as floats, which RecodeScan takes for angles that are) and codecs. \throws what opening the file
/// throws
KXEXCHANGE_EXPORT ImportOptions OptionsOf(const std::filesystem::path& scanPath);

/// Writes a .qsn scan into a new .qsn file with other codecs, scales, patches or previews.
///
/// Grid, components (also those of unknown meaning), registration, identifiers, texts, links and thumbnail
/// stay; limits, histograms, previews, the count of points and, where the file has them or the options ask
/// for them, hashes are made anew. Patches that the file does not hold stay absent, or become empty where the
/// patch size changes. Values are only rounded again where a scale differs. Streams a column of patches at a
/// time; the file appears under its name when complete.
///
/// \param progress  may be null
/// \throws CancelledException                       `progress` said so
/// \throws LossException                            options.strict, and something would be lost
/// \throws kxbase::KXBadInputException              an option is not acceptable, or the scan has no grid
/// \throws what opening the file throws
/// \throws kxbase::KXUnreadablePatchException       the stored bytes are damaged
/// \throws kxbase::KXFileNotOpenException, kxbase::KXWritingException  the output failed
KXEXCHANGE_EXPORT ImportReport RecodeScan(const std::filesystem::path& scanPath,
                                          const std::filesystem::path& outPath, const ImportOptions& options,
                                          ProgressSink* progress = nullptr);

}  // namespace kxexchange
