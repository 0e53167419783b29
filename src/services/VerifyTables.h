// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <vector>

#include "services/FileLayout.h"
#include "services/FindingList.h"

namespace kxio {

/// A stored chunk of a patch.
struct ListedChunk {
    uint64_t position = 0;  ///< of its data
    uint32_t byteCount = 0;
    uint32_t index = 0;  ///< linear patch index; of a shared empty chunk the first that uses it
    uint32_t row = 0;    ///< of the grid
    uint32_t column = 0;
    bool sharedEmpty = false;
    bool damaged = false;     ///< the tables or its record say so already
    bool superseded = false;  ///< an earlier chunk of the same patch lies in the file: sums count both
};

/// The chunks that hold the patches of each component, by position: those that the lookup table lists, and
/// without one those that were found.
using ListedChunks = std::map<kxbase::ComponentType, std::vector<ListedChunk>>;

/// Verifies lookup tables against the pieces of the file: every entry points just behind the chunk record of
/// its patch, every chunk is listed, nothing overlaps, every byte belongs to something. Counts patches.
ListedChunks VerifyTables(FileWindow& file, const FileLayout& layout, FindingList& findings,
                          VerifyReport& report);

}  // namespace kxio
