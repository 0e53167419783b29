// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "kxio/Export.h"

namespace kxio {

/// Gives a closed scan file another thumbnail, stored byte for byte.
///
/// The new record and a copy of all extended records go behind the end of the file, so that later appends
/// are still found; then 24 bytes of the main header are overwritten in one write to point to them. The old
/// records stay where they are, unreferenced. Until that last write the file reads as before.
///
/// \param jpeg  a JPEG image
/// \throws KXBadInputException "Unknown thumbnail data size": not a JPEG image; nothing is written
/// \throws KXBadInputException "File is damaged": the file was cut before its extended records
/// \throws KXHeaderReadingException "Cannot open file", and what opening a reader throws
/// \throws KXWritingException "Cannot write file"
KXIO_EXPORT void SetThumbnail(const std::wstring& path, const std::vector<unsigned char>& jpeg);

}  // namespace kxio
