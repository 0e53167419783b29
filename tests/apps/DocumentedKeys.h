// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace qsn {

/// Expects that `documents`, taken together, have exactly the keys that a section of the guide lists in the
/// rows of its table. A key inside an object that may be null need not be there.
/// \param heading  of the section, with its signs: "## JSON of `qsn info`"
void ExpectDocumentedKeys(const std::vector<nlohmann::json>& documents, const std::string& heading);

}  // namespace qsn
