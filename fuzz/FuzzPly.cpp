// SPDX-License-Identifier: MIT
// The first byte picks what is done with the rest:
//   0  a PLY file
//   1  cells: they are written and must come back
#include "FuzzPoints.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    if (data[0] % 2 == 0) {
        fuzz::ReadPointFile(data + 1, size - 1, "PLY");
    } else {
        fuzz::WriteAndRead(data + 1, size - 1, "PLY");
    }
    return 0;
}
