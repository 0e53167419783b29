// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "kxbase/GridTopology.h"

namespace qsn {

/// The help of an option --patch.
extern const char* const kPatchOptionHelp;

/// Row and column of the patch that --patch names.
/// \throws UsageError when it is no place or the scan has no such patch
std::pair<uint32_t, uint32_t> ParsePatch(const std::string& text, const kxbase::GridTopology& grid);

}  // namespace qsn
