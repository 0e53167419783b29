// SPDX-License-Identifier: MIT
#include "services/HashOfBytes.h"

#include <algorithm>
#include <vector>

#include "format/Hash64.h"
#include "services/FileWindow.h"

namespace kxio {

uint64_t HashOfBytes(FileWindow& file, uint64_t position, uint64_t count) {
    constexpr uint64_t kPiece = uint64_t{1} << 18;
    std::vector<unsigned char> bytes;
    if (count <= kPiece) {
        file.Read(position, count, bytes);
        return Hash64(bytes);
    }
    RunningHash64 hash;
    for (uint64_t done = 0; done < count; done += bytes.size()) {
        file.Read(position + done, std::min(kPiece, count - done), bytes);
        if (bytes.empty()) break;
        hash.Add(bytes);
    }
    return hash.Get();
}

}  // namespace kxio
