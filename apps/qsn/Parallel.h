// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>

namespace qsn {

/// Calls `work(i)` for every i below `count`, on up to `threads` threads; 1 runs all in the caller.
/// The first exception ends the rest and leaves after all threads have stopped.
void ForEachParallel(uint64_t count, unsigned threads, const std::function<void(uint64_t)>& work);

}  // namespace qsn
