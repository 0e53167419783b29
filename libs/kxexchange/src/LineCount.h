// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace kxexchange {

/// Line ends from `begin` to `end`.
size_t CountLineEnds(const char* begin, const char* end);

}  // namespace kxexchange
