// SPDX-License-Identifier: MIT
#include "kxio/Limits.h"

namespace kxio {

Limits Limits::None() {
    Limits limits;
    limits.cells = limits.recordBytes = limits.textBytes = limits.components = limits.decodedBytes =
        limits.expansionRatio = limits.thumbnailPixels = UINT64_MAX;
    return limits;
}

}  // namespace kxio
