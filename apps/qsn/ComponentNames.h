// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "kxbase/ComponentType.h"

namespace qsn {

/// A component as users write it: range, vertical, horizontal, intensity8, intensity16 (or intensity),
/// color, class, segment, the library's own name in any case, a number,
/// or component and a number.
/// \throws UsageError for anything else
kxbase::ComponentType ParseComponent(const std::string& text);

/// The short name of `component`, or "component" and its number.
std::string ComponentShortName(kxbase::ComponentType component);

}  // namespace qsn
