// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

namespace qsn {

/// From now on Ctrl-C and a request to terminate only set a flag.
void CatchInterrupts();

/// The flag; lock-free, so that libraries may poll it from any thread.
const std::atomic<bool>& InterruptFlag();

/// Leaves with `Interrupted` once the flag is set. Cheap: call it once per patch.
void CheckInterrupt();

}  // namespace qsn
