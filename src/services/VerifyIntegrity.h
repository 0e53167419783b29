// SPDX-License-Identifier: MIT
#pragma once

#include "services/FileLayout.h"
#include "services/FindingList.h"

namespace kxio {

/// Holds the bytes of a file against the hashes that its integrity records list: headers alone, or
/// everything. \throws what `progress` throws
void VerifyIntegrity(FileWindow& file, const FileLayout& layout, bool everything, FindingList& findings,
                     const SurveyProgress& progress);

}  // namespace kxio
