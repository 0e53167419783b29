// SPDX-License-Identifier: MIT
#pragma once

#include <map>

#include "services/FileLayout.h"
#include "services/FindingList.h"

namespace kxio {

/// Verifies the extended records that the main header points to, and notes where the histograms lie.
void VerifyExtendedRecords(FileWindow& file, const FileLayout& layout, FindingList& findings,
                           std::map<kxbase::ComponentType, uint64_t>& histograms);

/// Short name of a kind of extended record; empty for an unknown one.
std::string ExtendedKindName(uint64_t typeTag);

}  // namespace kxio
