// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "E57Node.h"
#include "E57Pages.h"
#include "kxexchange/ScanDescription.h"

namespace kxexchange {

// The binary section of a Blob, little-endian: @0 u8 section id 0, @1 7 bytes 0, @8 u64 section length with
// this header, then the bytes.
constexpr uint64_t kE57BlobHeaderBytes = 16;

/// The bytes of a Blob. `where` appears in messages.
/// \throws SourceFormatException
std::vector<unsigned char> ReadE57Blob(E57PageReader& pages, const E57Node& blob, const std::string& where);

/// The images that say they belong to the scan of that GUID; with `alone` also those that name no scan.
/// `pages` and `document` must outlive what is returned. What cannot be given goes to `unheld`.
std::vector<ImageDescription> DescribeE57Images(const E57Document& document, E57PageReader& pages,
                                                const std::string& guid, bool alone,
                                                std::vector<UnheldFact>& unheld);

}  // namespace kxexchange
