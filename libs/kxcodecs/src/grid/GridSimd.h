// SPDX-License-Identifier: MIT
#pragma once

// The inner loops are plain C++ that compilers turn into vector instructions. Each is compiled once for the
// machine that the build is for and once for wider vectors, and the machine that it runs on decides. They
// work with whole numbers alone, so the results are the same bytes.

#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)
#define KXGRID_WIDE 1
#define KXGRID_WIDE_TARGET __attribute__((target("avx2,bmi,bmi2,popcnt,lzcnt")))
#endif

#if defined(__GNUC__) || defined(__clang__)
#define KXGRID_INLINE inline __attribute__((always_inline))
#define KXGRID_RESTRICT __restrict__
#else
#define KXGRID_INLINE inline
#define KXGRID_RESTRICT
#endif

namespace kxcodecs::grid {

/// Which of the two compiled forms runs.
enum class Vectors { Plain, Wide };

/// The best form for this machine; what a test has set before.
Vectors VectorsInUse();
/// For tests: from now on this form. `Wide` is ignored where the machine has no wide vectors.
/// Returns what is in use then.
Vectors UseVectors(Vectors vectors);

}  // namespace kxcodecs::grid
