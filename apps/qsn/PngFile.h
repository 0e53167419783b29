// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Picture.h"

namespace qsn {

/// Writes `picture` as an 8-bit RGBA PNG.
/// \throws kxbase::KXWritingException when the file cannot be written completely
void WritePng(const std::string& path, const Picture& picture);

}  // namespace qsn
