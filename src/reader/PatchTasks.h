// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>

#include "reader/PatchDecoder.h"

namespace kxio {

/// Runs `task(0)` to `task(count - 1)`, each with buffers of its thread.
///
/// \param threads  1: one after the other in the caller; 0: as many as the machine has
/// Of several exceptions the one of the smallest number is rethrown, whatever the thread count; tasks of
/// larger numbers that have not begun by then are left out.
void RunPatchTasks(uint64_t count, unsigned threads,
                   const std::function<void(uint64_t, PatchBuffers&)>& task);

}  // namespace kxio
