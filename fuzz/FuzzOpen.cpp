// SPDX-License-Identifier: MIT
// The input is a scan file: it is opened, and everything that it offers is read.
#include "FuzzCheck.h"
#include "kxbase/InMemoryStream.h"
#include "support/ReadEverything.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kxbase::InMemoryStream stream(data, size);
    const kxtest::ReadOutcome outcome = kxtest::ReadEverything(stream);
    Require(outcome.consistent, "a layer is made of its patches");
    return 0;
}
