// SPDX-License-Identifier: MIT
// Writes the seeds of fuzz_records into a folder: each golden record, as kind, version and payload.
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

#include "SeedFolder.h"
#include "support/Hex.h"

namespace {

// What the golden files' names begin with, in the order of the kinds.
const char* const kKinds[] = {"main",   "scan",   "component", "chunk",
                              "lookup", "minmax", "thumbnail", "extended"};

unsigned char KindOf(const std::string& name) {
    for (unsigned char kind = 0; kind < std::size(kKinds); ++kind) {
        if (name.starts_with(kKinds[kind])) return kind;
    }
    throw std::runtime_error("no kind: " + name);
}

}  // namespace

int main(int argc, char** argv) {
    const SeedFolder write(argc, argv);
    const auto golden = std::filesystem::path(KXIO_SOURCE_DIR) / "tests/golden/records";
    for (const auto& entry : std::filesystem::directory_iterator(golden)) {
        const std::string name = entry.path().stem().string();
        const kxtest::Bytes record = kxtest::GoldenHex("records/" + entry.path().filename().string());
        kxtest::Bytes seed = {static_cast<unsigned char>(KindOf(name))};
        for (size_t i = 8; i < record.size(); ++i) {
            // The version, then the payload; the frame's size follows from the input's.
            if (i < 12 || i >= 16) seed.push_back(record[i]);
        }
        write(name, seed);
    }
    return 0;
}
