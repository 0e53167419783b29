// SPDX-License-Identifier: MIT
#include "services/GridDecision.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace kxio {

namespace {

/// Codec headers that are looked at; more would not change what most of them say.
constexpr uint64_t kMostSamples = 100000;
/// Cells of one patch; the writer makes an empty one in memory.
constexpr uint64_t kMostPatchCells = uint64_t{1} << 28;
/// Table entries allowed for beyond the file's size.
constexpr uint64_t kSpareEntries = uint64_t{1} << 20;

/// How often each row (or column) of patches is in use. A patch that the table names counts a thousand times.
using Uses = std::map<uint32_t, uint64_t>;
constexpr uint64_t kNamedWeight = 1000;
constexpr uint64_t kFewUses = 2;

/// The largest of the values in use, passing over those far above all others that only one or two patches
/// have: a row or column number that was damaged is mostly far off.
Uses::const_iterator LargestPlausible(const Uses& uses) {
    auto last = uses.end();
    while (last != uses.begin()) {
        --last;
        if (last == uses.begin() || last->second > kFewUses) break;
        const uint64_t before = std::prev(last)->first;
        if (last->first <= 1024 * (before + 16)) break;
    }
    return last;
}

bool IsAngle(float value) {
    return std::isfinite(value) && std::abs(value) < 100.0F;
}

std::string Size(uint64_t a, uint64_t b) {
    return std::to_string(a) + " x " + std::to_string(b);
}

}  // namespace

uint64_t MostTableEntries(uint64_t fileBytes) {
    return fileBytes + kSpareEntries;
}

uint64_t RemoveStrayChunks(std::vector<FoundChunk>& chunks, const std::optional<kxbase::GridTopology>& header,
                           uint64_t fileBytes, uint64_t components) {
    // Each patch counts once, however many components and versions of it there are.
    struct Place {
        uint32_t row;
        uint32_t column;
        bool named;
        auto operator<=>(const Place&) const = default;
    };
    std::vector<Place> places;
    places.reserve(chunks.size());
    for (const FoundChunk& chunk : chunks)
        places.push_back({chunk.row, chunk.column, chunk.trust == ChunkTrust::Listed});
    std::sort(places.begin(), places.end());
    places.erase(std::unique(places.begin(), places.end()), places.end());

    const uint64_t before = chunks.size();
    if (header) {
        const auto outside = [&](const auto& at) {
            return at.row >= header->PatchesPerColumn() || at.column >= header->PatchesPerRow();
        };
        const auto stray = [&](const Place& place) { return !place.named && outside(place); };
        const auto few = static_cast<uint64_t>(std::count_if(places.begin(), places.end(), stray));
        // The others fill the header's grid to its last row and column, or they are many.
        bool lastRow = false;
        bool lastColumn = false;
        for (const Place& place : places) {
            if (outside(place)) continue;
            lastRow = lastRow || place.row + 1 == header->PatchesPerColumn();
            lastColumn = lastColumn || place.column + 1 == header->PatchesPerRow();
        }
        if (few <= kFewUses && (few * 20 < places.size() || (lastRow && lastColumn))) {
            std::erase_if(places, stray);
            std::erase_if(chunks, [&](const FoundChunk& chunk) {
                return chunk.trust != ChunkTrust::Listed && outside(chunk);
            });
        }
    }
    if (places.empty()) return before - chunks.size();

    Uses rows;
    Uses columns;
    for (const Place& place : places) {
        const uint64_t weight = place.named ? kNamedWeight : 1;
        rows[place.row] += weight;
        columns[place.column] += weight;
    }
    auto row = LargestPlausible(rows);
    auto column = LargestPlausible(columns);
    const uint64_t most = MostTableEntries(fileBytes) / std::max<uint64_t>(1, components);
    const auto tooLarge = [&] { return (uint64_t{row->first} + 1) * (uint64_t{column->first} + 1) > most; };
    while (tooLarge() && (row != rows.begin() || column != columns.begin())) {
        const bool dropRow =
            column == columns.begin() || (row != rows.begin() && row->first >= column->first);
        --(dropRow ? row : column);
    }
    if (tooLarge()) {
        chunks.clear();
    } else {
        std::erase_if(chunks, [&](const FoundChunk& chunk) {
            return chunk.row > row->first || chunk.column > column->first;
        });
    }
    return before - chunks.size();
}

ChunkStatistics MeasureChunks(FileWindow& file, const std::vector<FoundChunk>& chunks) {
    ChunkStatistics result;
    const uint64_t step = std::max<uint64_t>(1, chunks.size() / kMostSamples);
    for (uint64_t i = 0; i < chunks.size(); ++i) {
        const FoundChunk& chunk = chunks[i];
        result.largestRow = std::max(result.largestRow, chunk.row);
        result.largestColumn = std::max(result.largestColumn, chunk.column);
        ++result.chunks;
        if (i % step != 0) continue;
        if (const auto header = PlausibleCodecHeader(file, chunk.dataPosition, chunk.byteCount)) {
            ++result.sides[{header->width, header->height}];
        }
    }
    uint64_t most = 0;
    for (const auto& [side, uses] : result.sides) {
        const auto [width, height] = side;
        const bool larger = uint64_t{width} * height > uint64_t{result.width} * result.height;
        if (uses < most || (uses == most && !larger)) continue;
        most = uses;
        result.width = width;
        result.height = height;
    }
    return result;
}

namespace {

/// Puts one direction of the grid right: `total` cells in patches of `side`.
struct Direction {
    uint32_t total;  // of the scan header; 0 without one
    uint32_t side;
    uint64_t atLeast;  // patches that were found side by side
    uint64_t known;    // patches side by side as the table has it; 0 when nothing tells
    uint64_t atMost;   // patches that can be believed without the table

    /// Cells along this direction; `derived` tells that they are not those of the scan header.
    uint32_t Decide(bool& derived) const {
        const uint64_t patches = kxbase::PatchesAlong(total, side);
        const bool tableAgrees = known != 0 && patches == known;
        const bool believable = known == 0 && patches <= atMost;
        if (patches >= atLeast && patches != 0 && (tableAgrees || believable)) return total;
        derived = true;
        const uint64_t cells = std::max(known, atLeast) * side;
        return static_cast<uint32_t>(std::min<uint64_t>(cells, UINT32_MAX));
    }
};

}  // namespace

GridDecision DecideGrid(const std::optional<kxbase::GridTopology>& header, const TableEvidence& table,
                        const ChunkStatistics& chunks, uint64_t fileBytes, uint64_t components) {
    GridDecision decision;
    kxbase::GridTopology& grid = decision.grid;
    if (header) grid = *header;
    if (chunks.chunks == 0) {  // nothing contradicts the scan header, and nothing can be put into its grid
        decision.sizeFromHeader = decision.anglesFromHeader = header.has_value();
        return decision;
    }

    const bool oneCell = header && grid.patchWidth == 1 && grid.patchHeight == 1 && grid.rows == 1;
    decision.withoutGrid = oneCell && chunks.largestRow == 0 && chunks.largestColumn < grid.columns &&
                           uint64_t{chunks.width} * chunks.height != 1 &&
                           grid.columns <= MostTableEntries(fileBytes) / std::max<uint64_t>(1, components);
    if (decision.withoutGrid) {
        decision.sizeFromHeader = decision.anglesFromHeader = true;
        return decision;
    }

    bool derived = !header;
    const uint64_t patchCells = uint64_t{grid.patchWidth} * grid.patchHeight;
    const uint64_t chunkCells = uint64_t{chunks.width} * chunks.height;
    // One chunk is enough: damage does not hit upon the sides of any.
    const bool sidesAgree = chunks.sides.contains({grid.patchWidth, grid.patchHeight});
    // Patches whose values were handed over as one row have as many cells, or fewer where not all were.
    const bool countsAgree = table.PatchCount() != 0 && table.PatchCount() == grid.PatchCount64();
    const bool cellsAgree =
        chunks.height == 1 && (patchCells == chunkCells || (chunkCells < patchCells && countsAgree));
    if (header && chunkCells != 0 && !sidesAgree && !cellsAgree) {
        decision.notes.push_back("patch size " + Size(grid.patchWidth, grid.patchHeight) +
                                 " of the scan header does not fit the chunks of " +
                                 Size(chunks.width, chunks.height));
    }
    if (!header || (chunkCells != 0 && !sidesAgree && !cellsAgree) || patchCells == 0 ||
        patchCells > kMostPatchCells) {
        derived = true;
        const bool usable = chunkCells != 0 && chunkCells <= kMostPatchCells;
        grid.patchWidth = usable ? chunks.width : 1;
        grid.patchHeight = usable ? chunks.height : 1;
    }

    const uint64_t mostEntries = MostTableEntries(fileBytes) / std::max<uint64_t>(1, components);
    const uint64_t acrossFound = uint64_t{chunks.largestColumn} + 1;
    const uint64_t downFound = uint64_t{chunks.largestRow} + 1;
    const uint64_t across = table.PatchesPerRow();
    const bool wholeRows = across != 0 && table.PatchCount() % across == 0;
    const uint64_t down = wholeRows ? table.PatchCount() / across : 0;
    // A grid far larger than what was found of it is damage, unless the table says the same.
    const auto believable = [&](uint64_t found, uint64_t other) {
        return std::min(64 * found + 1024, mostEntries / other);
    };
    const Direction horizontal{header ? grid.columns : 0, grid.patchWidth, acrossFound, across,
                               believable(acrossFound, downFound)};
    grid.columns = horizontal.Decide(decision.columnsAreWholePatches);
    const uint64_t acrossDecided = std::max<uint64_t>(1, grid.PatchesPerRow());
    const Direction vertical{header ? grid.rows : 0, grid.patchHeight, downFound, down,
                             believable(downFound, acrossDecided)};
    grid.rows = vertical.Decide(decision.rowsAreWholePatches);
    const bool sizeDerived = decision.columnsAreWholePatches || decision.rowsAreWholePatches;
    if (header && sizeDerived) {
        decision.notes.push_back("grid of " + Size(header->columns, header->rows) +
                                 " cells of the scan header does not fit the chunks; " +
                                 Size(grid.columns, grid.rows) + " taken");
    }
    derived = derived || sizeDerived;

    // The preview of a small scan shows every cell, so it tells where the last patches end.
    if (derived) {
        for (const auto& [component, preview] : table.Previews()) {
            const bool fits =
                kxbase::PatchesAlong(preview.width, grid.patchWidth) == grid.PatchesPerRow() &&
                kxbase::PatchesAlong(preview.height, grid.patchHeight) == grid.PatchesPerColumn();
            if (!fits) continue;
            grid.columns = preview.width;
            grid.rows = preview.height;
            decision.columnsAreWholePatches = decision.rowsAreWholePatches = false;
            decision.notes.push_back("columns and rows taken from the preview: " +
                                     Size(preview.width, preview.height));
            break;
        }
    }
    decision.sizeFromHeader = !derived;
    decision.anglesFromHeader = header && IsAngle(grid.columnStartAngle) && IsAngle(grid.rowStartAngle) &&
                                IsAngle(grid.columnAngularStep) && IsAngle(grid.rowAngularStep);
    if (header && !decision.anglesFromHeader) {
        decision.notes.push_back("angles of the scan header are no angles");
    }
    if (derived) {
        grid.UpdatePreview(2.0);
    }
    return decision;
}

}  // namespace kxio
