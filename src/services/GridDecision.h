// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kxbase/GridTopology.h"
#include "services/RecordSurvey.h"
#include "services/TableEvidence.h"

namespace kxio {

/// The grid of a damaged file, as far as its remains tell.
struct GridDecision {
    kxbase::GridTopology grid;
    /// Patches are one cell wide and high but hold more values: a scan that was written without a grid.
    bool withoutGrid = false;
    bool sizeFromHeader = false;  ///< columns, rows and patch size are those of the scan header
    /// Columns (rows) are as many whole patches as there are: the last of them may reach beyond the scan.
    bool columnsAreWholePatches = false;
    bool rowsAreWholePatches = false;
    bool anglesFromHeader = false;   ///< start angles and steps are those of the scan header
    std::vector<std::string> notes;  ///< what was put right or derived, for people
};

/// What the chunks tell by themselves.
struct ChunkStatistics {
    uint32_t width = 0;  ///< sides that most chunks have once decoded, of equals the largest; 0 without any
    uint32_t height = 0;
    uint32_t largestRow = 0;  ///< of the patches
    uint32_t largestColumn = 0;
    uint64_t chunks = 0;  ///< that were counted
    /// How many chunks have these sides; of those that were looked at.
    std::map<std::pair<uint32_t, uint32_t>, uint64_t> sides;
};

/// Takes chunks out of `chunks` whose row or column can only be damage: a few that lie outside a scan
/// header's grid which holds all others, that lie far off all others, or that would make the grid larger than
/// the file can have had patches. Chunks that the lookup table names stay. Returns how many were taken out.
///
/// \param header  the grid of the surviving scan header, if any
uint64_t RemoveStrayChunks(std::vector<FoundChunk>& chunks, const std::optional<kxbase::GridTopology>& header,
                           uint64_t fileBytes, uint64_t components);

/// Looks at the chunks' numbers and codec headers.
ChunkStatistics MeasureChunks(FileWindow& file, const std::vector<FoundChunk>& chunks);

/// Most patches, times components, that a grid may have: what the tables of a file of that size can list,
/// and some more for files that were cut before their tables.
uint64_t MostTableEntries(uint64_t fileBytes);

/// \param header  the grid of the surviving scan header, if any
GridDecision DecideGrid(const std::optional<kxbase::GridTopology>& header, const TableEvidence& table,
                        const ChunkStatistics& chunks, uint64_t fileBytes, uint64_t components);

}  // namespace kxio
