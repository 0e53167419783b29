// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "ByteFeed.h"

namespace kxexchange {

/// A feed whose bytes are read, and unpacked, by a thread of its own, a few blocks ahead of whoever takes
/// them. What the inner feed throws is thrown by the Read that comes to that place.
std::unique_ptr<ByteFeed> MakeReadAhead(std::unique_ptr<ByteFeed> inner);

}  // namespace kxexchange
