// SPDX-License-Identifier: MIT
// Runs a fuzz target over files, in place of the fuzzer: REPLAY FILE|FOLDER...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::filesystem::path> FilesUnder(const std::filesystem::path& place) {
    if (!std::filesystem::is_directory(place)) return {place};
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(place)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const std::filesystem::path& path : FilesUnder(argv[i])) {
            std::ifstream file(path, std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            if (!file) {
                std::fprintf(stderr, "cannot read %s\n", path.string().c_str());
                return 1;
            }
            std::fprintf(stderr, "%s\n", path.string().c_str());  // so that a crash names its input
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++replayed;
        }
    }
    std::fprintf(stderr, "%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
