// SPDX-License-Identifier: MIT
#include "Interrupt.h"

#include <csignal>

#include "Errors.h"

namespace qsn {

namespace {

std::atomic<bool> interruptFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may only touch lock-free atomics");

extern "C" void OnInterrupt(int number) {
    // Some systems put the default action back when a handler starts; a second Ctrl-C must still be clean.
    std::signal(number, OnInterrupt);
    interruptFlag.store(true);
}

}  // namespace

void CatchInterrupts() {
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
}

const std::atomic<bool>& InterruptFlag() {
    return interruptFlag;
}

void CheckInterrupt() {
    if (interruptFlag.load(std::memory_order_relaxed)) throw Interrupted();
}

}  // namespace qsn
