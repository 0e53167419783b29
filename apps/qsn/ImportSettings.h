// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kxexchange/ImportScan.h"

namespace qsn {

// Each takes the text of one option of `qsn import` over into `options`.
// All throw UsageError, which says what was expected, when the text cannot be meant.

/// "256" or "512x128": columns x rows of a patch.
void ApplyPatch(const std::string& text, kxexchange::ImportOptions& options);
/// "range=zlib", "angles=snappy", "intensity=snappy", "color=jpeg".
void ApplyCodec(const std::string& text, kxexchange::ImportOptions& options);
/// "range=0.1" [mm], "vertical=1e-6", "horizontal=1e-6" or "angles=1e-6" [rad].
void ApplyScale(const std::string& text, kxexchange::ImportOptions& options);
/// "jpeg" or "lossless".
void ApplyColor(const std::string& text, kxexchange::ImportOptions& options);

}  // namespace qsn
