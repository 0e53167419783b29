// SPDX-License-Identifier: MIT
#include "PatchOption.h"

#include <fmt/format.h>

#include "Errors.h"
#include "Numbers.h"

namespace qsn {

const char* const kPatchOptionHelp = "Row and column of one patch, from 0, instead of\nthe whole scan";

std::pair<uint32_t, uint32_t> ParsePatch(const std::string& text, const kxbase::GridTopology& grid) {
    const auto place = ParsePlace(text);
    if (!place) throw UsageError(fmt::format("--patch {}: expected row,column", text));
    if (place->first >= grid.PatchesPerColumn() || place->second >= grid.PatchesPerRow())
        throw UsageError(fmt::format("--patch {}: the scan has {} rows and {} columns of patches", text,
                                     grid.PatchesPerColumn(), grid.PatchesPerRow()));
    return *place;
}

}  // namespace qsn
