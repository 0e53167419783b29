// SPDX-License-Identifier: MIT
// Finding the patches without the lookup table.
#include <algorithm>
#include <new>

#include "kxio/DataChunkHeader.h"
#include "kxio/QSNScanReader.h"
#include "reader/RecordAt.h"

#include "kxbase/Sizes.h"
namespace kxio {

namespace {

// What the tables may hold in all components together: a few thousand entries always, more where the file is
// long enough that a fair part of them can be filled (a stored patch takes 60 bytes at least).
constexpr uint64_t kFreeEntries = uint64_t{1} << 16;
constexpr uint64_t kEntriesPerByte = 1;

}  // namespace

void QSNScanReader::FailSafeInit() {
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    const uint64_t perRow = grid.PatchesPerRow();
    const uint64_t perColumn = grid.PatchesPerColumn();
    const uint64_t patchCount = kxbase::SizeProduct(perRow, perColumn);
    if (m_stream == nullptr || patchCount == 0) return;
    const uint64_t budget = std::max(kFreeEntries, kxbase::SizeProduct(m_stream->GetSize(), kEntriesPerByte));
    uint64_t taken = 0;

    const auto refuse = [&](const std::string& detail) {
        kxbase::ErrorContext context = FileContext();
        context.record = "patch table";
        context.detail = detail;
        throw kxbase::KXUnreadablePatchException("Cannot read file", context);
    };
    uint64_t position = MainFileHeader::RecordSize;
    DataChunkHeader chunk;
    const auto next = [&] {
        try {
            return ReadRecordAt(m_stream, position, chunk);
        } catch (const kxbase::KXHeaderReadingException&) {
            return false;  // a record of another time: the walk ends here, what was found stays
        }
    };
    while (next()) {
        const uint64_t dataPosition = position + chunk.HeaderSize();
        position = dataPosition + chunk.byteCount;
        // The chunk that empty patches share has a position outside every grid.
        if (chunk.patchRow >= perColumn || chunk.patchColumn >= perRow) continue;
        std::vector<LookupEntry>& entries = m_patchTable[chunk.component];
        if (entries.size() != patchCount) {
            if (patchCount > LookupTableHeader::MaximumEntryCount || patchCount > budget - taken) {
                refuse("the grid has " + std::to_string(patchCount) + " patches per component, the file " +
                       std::to_string(m_stream->GetSize()) + " bytes");
            }
            taken += patchCount;
            try {
                const uint64_t known = std::min<uint64_t>(entries.size(), patchCount);
                entries.resize(patchCount);
                for (uint64_t i = known; i < patchCount; ++i)
                    entries[i].index = static_cast<uint32_t>(i);
            } catch (const std::bad_alloc&) {
                refuse("no memory for " + std::to_string(patchCount) + " entries");
            }
        }
        const uint64_t index = perRow * chunk.patchRow + chunk.patchColumn;
        entries[index] = {dataPosition, chunk.byteCount, static_cast<uint32_t>(index)};
    }
    NoteElementBytes();
}

}  // namespace kxio
