// SPDX-License-Identifier: MIT
// The first byte picks what is done with the rest: 0 XYZ text, 1 PTS text, plain or in gzip.
#include "FuzzPoints.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    fuzz::ReadPointFile(data + 1, size - 1, data[0] % 2 == 0 ? "XYZ" : "PTS");
    return 0;
}
