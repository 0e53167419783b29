// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The inner loops are compiled once for each kind of vectors that the processor's family has (Highway's
// targets), and the machine that they run on decides. They work with whole numbers alone, so the results are
// the same bytes. Some are written with Highway's vectors; where a plain loop becomes good vector code by
// itself, it stays a plain loop.

#if defined(__GNUC__) || defined(__clang__)
#define KXGRID_INLINE inline __attribute__((always_inline))
#define KXGRID_RESTRICT __restrict__
#else
#define KXGRID_INLINE inline
#define KXGRID_RESTRICT
#endif

namespace kxcodecs::grid {

/// Names of the kinds of vectors that were compiled and that this machine has, best first.
std::vector<std::string> VectorTargets();
/// For tests: from now on only the one of that name; the best one again when there is none of it.
void UseVectorTarget(const std::string& name);

}  // namespace kxcodecs::grid
