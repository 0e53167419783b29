// SPDX-License-Identifier: MIT
// qsn_manual FOLDER: writes manual pages and shell completions at build time.
#include <cstdio>
#include <exception>

#include "Manual.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: qsn_manual FOLDER\n", stderr);
        return 2;
    }
    try {
        qsn::WriteManual(argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "qsn_manual: %s\n", error.what());
        return 1;
    }
    return 0;
}
