// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process when a fuzz target finds something untrue, so that the fuzzer keeps the input.
inline void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz target: not true: %s\n", what);
    std::abort();
}
