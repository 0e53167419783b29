// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "kxio/ExtendedHeader.h"
#include "kxio/MinMaxHeader.h"
#include "services/FileLayout.h"
#include "services/FindingList.h"

namespace kxio {

/// What the headers at both ends of a file tell, for those who look at the patches.
struct VerifiedHeaders {
    std::optional<std::vector<MinMaxPair>> limits;  ///< per patch, when the record could be read
    uint64_t limitsPosition = 0;
    /// Positions of the histogram records, the last one of each component.
    std::map<kxbase::ComponentType, uint64_t> histograms;
};

/// Verifies main header, scan header, component records, limits, thumbnail and extended records.
/// \param decode  also the thumbnail's image
VerifiedHeaders VerifyHeaders(FileWindow& file, const FileLayout& layout, bool decode, FindingList& findings);

}  // namespace kxio
