// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kxbase/Export.h"

namespace kxbase {

/// UTF-8 of a wide text. Where wide characters have 16 bits, surrogate pairs are joined; a lone
/// surrogate or a number that is no character becomes U+FFFD. Never throws but for memory.
KXBASE_EXPORT std::string Encode_UTF8(const std::wstring& text);

/// Wide text of UTF-8. Each maximal part of a sequence that is not well formed becomes one U+FFFD, as
/// the Unicode standard recommends (chapter 3, "U+FFFD Substitution of Maximal Subparts").
KXBASE_EXPORT std::wstring Decode_UTF8(const std::string& text);

}  // namespace kxbase
