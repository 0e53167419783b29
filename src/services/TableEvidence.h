// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxio/LookupTableHeader.h"
#include "services/RecordSurvey.h"

namespace kxio {

/// What a lookup table that survived in a damaged file tells about its chunks.
///
/// A table counts only when it names at least one chunk that was found with the same place, size and
/// component: positions are 64 bits wide, so a table of another file, or one that moved, names none.
/// Entries that are damaged themselves name nothing that is there and are left aside one by one.
class TableEvidence {
public:
    /// A chunk that the table names.
    struct Listed {
        FoundChunk chunk;  ///< row and column are those of the table once the patches per row are known
        uint32_t index = 0;
        bool found = false;    ///< the survey found its record
        bool bounded = false;  ///< and its size is vouched for: by its record, or by what begins behind it
    };

    /// Reads the tables among `survey.records` and picks the one that fits the chunks.
    TableEvidence(FileWindow& file, const Survey& survey);

    bool IsValid() const { return m_valid; }
    /// Position of the record of the table.
    uint64_t Position() const { return m_position; }
    /// Chunks of single patches that the table names, by position of their records. Entries whose chunk was
    /// not found are among them when their place fits to one of their neighbours.
    const std::vector<Listed>& Chunks() const { return m_listed; }
    /// Chunks that have the component of the table, which contradicts that of their record, and the other way
    /// round: that is believed with which more of the other evidence agrees.
    uint64_t ContradictedRecords() const { return m_contradictedRecords; }
    uint64_t ContradictedEntries() const { return m_contradictedEntries; }
    /// Patches without a chunk of their own, per component.
    const std::map<kxbase::ComponentType, uint64_t>& EmptyPatches() const { return m_empty; }
    /// Number of patches side by side that follows from rows, columns and indexes; 0 when nothing tells.
    uint32_t PatchesPerRow() const { return m_patchesPerRow; }
    /// Number of patches that the table has entries for; 0 when it is not valid.
    uint64_t PatchCount() const { return m_patchCount; }
    /// True when the bytes from `first` to `end` lie in the data of a chunk that the table names. What begins
    /// there and leads out of it does not: where bytes were removed, other chunks lie in its place.
    bool IsInsideChunk(uint64_t first, uint64_t end) const;
    /// Sides of the file's previews, from the table of previews, by component; empty when it is gone.
    const std::map<kxbase::ComponentType, kxcodecs::ChunkHeaderInfo>& Previews() const { return m_previews; }

private:
    void Judge(FileWindow& file, const Survey& survey, const LookupTable& table);
    void TakePreviews(FileWindow& file, const LookupTable& table);
    void VotePatchesPerRow();
    void SortAndBound(const Survey& survey);

    bool m_valid = false;
    uint64_t m_position = 0;
    std::vector<Listed> m_listed;
    std::vector<FoundChunk> m_bounded;  // of them, by position
    std::map<kxbase::ComponentType, uint64_t> m_empty;
    std::map<kxbase::ComponentType, kxcodecs::ChunkHeaderInfo> m_previews;
    uint64_t m_contradictedRecords = 0;
    uint64_t m_contradictedEntries = 0;
    uint32_t m_patchesPerRow = 0;
    uint64_t m_patchCount = 0;
};

}  // namespace kxio
