// SPDX-License-Identifier: MIT
#include "E57Grid.h"

#include <algorithm>
#include <optional>

#include "E57Error.h"

namespace kxexchange {

namespace {

constexpr size_t kBatch = 4096;
constexpr uint64_t kMaxSide = 0x7fffffff;
// Cells that are believed whatever the records, and for every record.
constexpr uint64_t kFreeCells = uint64_t{1} << 20;
constexpr uint64_t kCellsPerRecord = 1024;
// The same for one column: it is in memory as a whole.
constexpr uint64_t kFreeRows = uint64_t{1} << 16;
constexpr uint64_t kRowsPerRecord = 64;

// Sizes of a grid of these bounds; the difference of any two 64-bit numbers fits.
uint64_t Side(int64_t first, int64_t last) {
    const uint64_t span = static_cast<uint64_t>(last) - static_cast<uint64_t>(first);
    return span == ~uint64_t{0} ? span : span + 1;
}

}  // namespace

E57Grid SurveyE57Grid(E57PageReader& pages, const E57Section& section, const E57Scan& scan) {
    E57Grid grid;
    E57FieldReader row(pages, section, scan.fields[*scan.roles.row], *scan.roles.row);
    E57FieldReader column(pages, section, scan.fields[*scan.roles.column], *scan.roles.column);
    std::optional<E57IndexBounds> seen = scan.declared;
    std::vector<int64_t> values(kBatch);
    const auto forEach = [&](E57FieldReader& field, auto&& take) {
        for (uint64_t done = 0; done < section.records;) {
            const auto count = static_cast<size_t>(std::min<uint64_t>(kBatch, section.records - done));
            const std::span batch(values.data(), count);
            field.ReadWhole(batch);
            for (const int64_t value : batch)
                take(value);
            done += count;
        }
    };
    if (section.records != 0) {
        int64_t least = INT64_MAX, most = INT64_MIN;
        forEach(row, [&](int64_t value) {
            least = std::min(least, value);
            most = std::max(most, value);
        });
        int64_t leastColumn = INT64_MAX, mostColumn = INT64_MIN;
        forEach(column, [&](int64_t value) {
            leastColumn = std::min(leastColumn, value);
            grid.columnsInOrder = grid.columnsInOrder && value >= mostColumn;
            mostColumn = std::max(mostColumn, value);
        });
        if (!seen) seen = E57IndexBounds{least, most, leastColumn, mostColumn};
        grid.widened = least < seen->firstRow || most > seen->lastRow || leastColumn < seen->firstColumn ||
                       mostColumn > seen->lastColumn;
        seen->firstRow = std::min(seen->firstRow, least);
        seen->lastRow = std::max(seen->lastRow, most);
        seen->firstColumn = std::min(seen->firstColumn, leastColumn);
        seen->lastColumn = std::max(seen->lastColumn, mostColumn);
    }
    if (!seen) return grid;
    grid.bounds = *seen;
    grid.rows = Side(seen->firstRow, seen->lastRow);
    grid.columns = Side(seen->firstColumn, seen->lastColumn);
    const uint64_t records = section.records;
    if (grid.rows > kMaxSide || grid.columns > kMaxSide ||
        grid.rows * grid.columns > kFreeCells + std::min(records, uint64_t{1} << 40) * kCellsPerRecord ||
        grid.rows > kFreeRows + std::min(records, uint64_t{1} << 40) * kRowsPerRecord) {
        FailE57({pages.Name(), section.where, "indexBounds", std::nullopt,
                 "found " + std::to_string(grid.columns) + " columns x " + std::to_string(grid.rows) +
                     " rows for " + std::to_string(records) + " records, which cannot be their grid"});
    }
    if (!grid.columnsInOrder) {
        grid.columnsPerGroup = std::max<uint64_t>(1, kE57GroupCells / grid.rows);
        grid.groupRecords.resize(
            static_cast<size_t>((grid.columns + grid.columnsPerGroup - 1) / grid.columnsPerGroup));
        column.Rewind();
        forEach(column, [&](int64_t value) {
            const uint64_t at = static_cast<uint64_t>(value) - static_cast<uint64_t>(seen->firstColumn);
            ++grid.groupRecords[static_cast<size_t>(at / grid.columnsPerGroup)];
        });
    }
    return grid;
}

}  // namespace kxexchange
