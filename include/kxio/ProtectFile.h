// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kxio/Export.h"

namespace kxio {

/// Appends hashes of all parts (see `IntegrityExtendedHeader`) to a closed file that has none; what the file
/// held before stays as it is, byte for byte.
///
/// The file is verified first, every chunk decoded: hashes of damaged bytes would call them right for ever.
/// \returns false, and nothing is written, when the file has hashes already and its headers match them
/// \throws KXHeaderReadingException, KXIncompleteFileException  as opening a reader does
/// \throws KXBadInputException "File is damaged": verification found errors; the context has the first one
/// \throws KXWritingException "Cannot write file"
KXIO_EXPORT bool ProtectFile(const std::wstring& path);

}  // namespace kxio
