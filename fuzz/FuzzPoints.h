// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "kxbase/InMemoryStream.h"
#include "kxexchange/kxexchange.h"

namespace fuzz {

constexpr uint64_t kMostCells = 1 << 18;

inline void CheckCell(const kxexchange::Cell& cell, const kxexchange::ScanDescription& description) {
    Require(std::isfinite(cell.x) && std::isfinite(cell.y) && std::isfinite(cell.z), "places are finite");
    Require(std::isfinite(cell.intensity), "intensities are finite");
    Require(std::max({std::abs(cell.x), std::abs(cell.y), std::abs(cell.z)}) <= 1e12, "places are near");
    Require(cell.valid || (cell.x == 0 && cell.y == 0 && cell.z == 0), "nothing is nowhere");
    Require(cell.valid || description.HasGrid(), "only grids have cells without a return");
    Require(!cell.direction, "point files know no directions");
    Require(description.colorBits == 16 || (cell.red | cell.green | cell.blue) <= 255, "8 bits are 8 bits");
    Require(description.color.present || (cell.red | cell.green | cell.blue) == 0, "no colour is black");
}

/// One scan to its end, or as far as is worth while. \return its returns
inline uint64_t ReadScan(kxexchange::ScanSource& source, uint64_t index, uint64_t columnsAtOnce) {
    const kxexchange::ScanDescription description = source.OpenScan(index);
    Require(description.coordinates.present, "points have places");
    std::vector<kxexchange::Cell> cells;
    uint64_t columns = 0, total = 0, returns = 0;
    while (const uint64_t read = source.ReadColumns(columnsAtOnce, cells)) {
        Require(!cells.empty(), "a piece holds something");
        columns += read;
        total += cells.size();
        if (description.HasGrid()) Require(cells.size() == read * description.rows, "columns are whole");
        for (const kxexchange::Cell& cell : cells) {
            CheckCell(cell, description);
            returns += cell.valid ? 1 : 0;
        }
        if (total > kMostCells) return returns;
    }
    Require(!description.HasGrid() || columns == description.columns, "a grid that ends well is complete");
    return returns;
}

/// Reads what may be a file of points; every scan twice, in other pieces.
inline void ReadPointFile(const uint8_t* data, size_t size, const char* format) {
    using namespace kxexchange;
    try {
        SourceOptions options;
        options.format = format;
        options.threads = 1;
        const auto source =
            OpenScanSource(std::make_unique<kxbase::InMemoryStream>(data, size), "fuzz", options);
        for (uint64_t index = 0; index < 4; ++index) {
            const uint64_t returns = ReadScan(*source, index, 3);
            Require(ReadScan(*source, index, 64) == returns, "a scan reads the same again");
        }
    } catch (const SourceFormatException& e) {
        Require(!e.Context().detail.empty() && e.Context().offset.has_value(),
                "a refusal says what and where");
    } catch (const kxbase::KXIndexOutOfBoundsException&) {
    }
}

/// Cells out of bytes, written as a format and read again: points, intensities and colours are those that
/// went in. The first four bytes choose; then 16 bytes for each cell.
inline void WriteAndRead(const uint8_t* data, size_t size, const char* format) {
    using namespace kxexchange;
    constexpr size_t kHeader = 4, kBytes = 16;
    if (size < kHeader) return;
    ScanDescription description;
    const bool grid = (data[0] & 1) != 0, doubles = (data[0] & 2) != 0;
    const size_t count = (size - kHeader) / kBytes;
    if (count == 0) return;
    if (grid) {
        description.rows = 1 + data[1] % 16;
        description.columns = count / description.rows;
        if (description.columns == 0) return;
    }
    description.points = grid ? description.columns * description.rows : count;
    description.coordinates.present = true;
    description.intensity.present = (data[0] & 4) != 0;
    description.color.present = (data[0] & 8) != 0;
    description.classification.present = (data[0] & 16) != 0;
    std::vector<Cell> cells(static_cast<size_t>(description.points));
    for (size_t i = 0; i < cells.size(); ++i) {
        const uint8_t* const bytes = data + kHeader + i * kBytes;
        float values[3];
        std::memcpy(values, bytes, sizeof values);
        Cell& cell = cells[i];
        const auto usable = [](float value) { return std::abs(value) < 1e11F; };
        cell.valid = usable(values[0]) && usable(values[1]) && usable(values[2]) && values[0] != 0;
        if (!cell.valid) continue;
        cell.x = static_cast<double>(values[0]);
        cell.y = static_cast<double>(values[1]);
        cell.z = static_cast<double>(values[2]);
        if (description.intensity.present) cell.intensity = bytes[12];
        if (description.classification.present) cell.classification = bytes[12];
        if (description.color.present) {
            cell.red = bytes[13];
            cell.green = bytes[14];
            cell.blue = bytes[15];
        }
    }
    SinkOptions options;
    options.coordinates = doubles ? NumberKind::Double : NumberKind::Single;
    kxbase::InMemoryStream stream;
    const SinkFormat& sinkFormat = *FindSinkFormat(format);
    const auto sink = sinkFormat.make(stream, options);
    sink->BeginScan(description);
    sink->WriteColumns(cells, grid ? description.columns : 1);
    sink->EndScan();
    sink->Finish();
    SourceOptions sourceOptions;
    sourceOptions.format = format;
    const auto source =
        OpenScanSource(std::make_unique<kxbase::InMemoryStream>(stream.GetBytes()), "out", sourceOptions);
    const ScanDescription back = source->OpenScan(0);
    const bool keptGrid = grid && description.rows > 1 && sinkFormat.capabilities.grid == Fate::Kept;
    Require(back.HasGrid() == keptGrid, "the grid comes back where the format holds one");
    Require(back.intensity.present == description.intensity.present, "intensities come back");
    Require(back.color.present == description.color.present, "colours come back");
    if (!keptGrid) std::erase_if(cells, [](const Cell& cell) { return !cell.valid; });
    std::vector<Cell> all, block;
    while (source->ReadColumns(5, block) != 0)
        all.insert(all.end(), block.begin(), block.end());
    Require(all.size() == cells.size(), "all cells come back");
    for (size_t i = 0; i < all.size(); ++i) {
        Require(all[i].valid == cells[i].valid, "returns come back");
        Require(all[i].x == cells[i].x && all[i].y == cells[i].y && all[i].z == cells[i].z,
                "places come back");
        Require(!all[i].valid || all[i].intensity == cells[i].intensity, "the intensity comes back");
        Require(!all[i].valid || (all[i].red == cells[i].red && all[i].green == cells[i].green &&
                                  all[i].blue == cells[i].blue),
                "the colour comes back");
    }
}

}  // namespace fuzz
