// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// Whether a thread of its own reads.
enum class Reading { InTheCaller, Ahead };

/// Gives the columns of an open scan to `write`, in their order, until there are no more.
///
/// \param prepare  is called with each block before, by the thread that reads
/// \param write    is called by the caller's thread: cells, and the number of columns they make
/// At most one block waits for the other side. What either side throws leaves after the thread has ended.
void PumpColumns(ScanSource& source, Reading reading, const std::function<void(std::vector<Cell>&)>& prepare,
                 const std::function<void(std::span<const Cell>, uint64_t)>& write);

}  // namespace kxexchange
