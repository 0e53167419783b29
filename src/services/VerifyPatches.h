// SPDX-License-Identifier: MIT
#pragma once

#include "services/FileLayout.h"
#include "services/FindingList.h"
#include "services/VerifyHeaders.h"
#include "services/VerifyTables.h"

namespace kxio {

/// Decodes the listed chunks, previews and histograms, and, at the level `Deep`, compares what the file
/// derived from its patches with what follows from them.
void VerifyPatches(FileWindow& file, const FileLayout& layout, const VerifiedHeaders& headers,
                   const ListedChunks& chunks, const VerifyOptions& options, FindingList& findings,
                   VerifyReport& report);

}  // namespace kxio
