// SPDX-License-Identifier: MIT
#include "reader/Prefetch.h"

#include <algorithm>
#include <boost/thread/thread.hpp>
#include <vector>

#include "kxbase/kxInFile.h"

namespace kxio {

namespace {

// Larger blocks are read in pieces: the cache fills just as well, and a caller's number never decides how
// much memory is taken.
constexpr uint64_t kMaxPieceBytes = uint64_t{1} << 24;

}  // namespace

void FillUpOSCache(std::wstring path, uint64_t block) noexcept {
    try {
        kxbase::kxInFile file(path);
        const uint64_t piece = std::min({block, file.IsOpen() ? file.GetSize() : 0, kMaxPieceBytes});
        if (piece == 0) return;
        std::vector<unsigned char> buffer(piece);
        while (file.Read(buffer.data(), piece) == piece) {
        }
    } catch (...) {
        // Nobody waits for this thread and nothing depends on it; an exception would end the process.
        return;
    }
}

void StartPrefetch(const std::wstring& path, uint64_t block) {
    boost::thread(FillUpOSCache, path, block).detach();
}

}  // namespace kxio
