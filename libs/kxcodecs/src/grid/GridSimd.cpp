// SPDX-License-Identifier: MIT
#include "grid/GridSimd.h"

#include <atomic>

namespace kxcodecs::grid {
namespace {

bool MachineIsWide() {
#ifdef KXGRID_WIDE
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2");
#else
    return false;
#endif
}

std::atomic<Vectors>& Choice() {
    static std::atomic<Vectors> choice{MachineIsWide() ? Vectors::Wide : Vectors::Plain};
    return choice;
}

}  // namespace

Vectors VectorsInUse() {
    return Choice().load(std::memory_order_relaxed);
}

Vectors UseVectors(Vectors vectors) {
    Choice() = vectors == Vectors::Wide && !MachineIsWide() ? Vectors::Plain : vectors;
    return Choice();
}

}  // namespace kxcodecs::grid
