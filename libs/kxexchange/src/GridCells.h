// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "kxexchange/GridLayout.h"
#include "kxexchange/ScanSource.h"
#include "kxio/ScanAccess.h"

namespace kxexchange {

/// Reads the cells of an open .qsn scan back in the order of the grid they came from.
class GridCells {
public:
    /// `message` must fit the scan's grid (Fits). `threads`: 0 all cores.
    GridCells(const kxio::QSNScanReader& reader, LayoutMessage message, unsigned threads,
              CoordinateKind kind = CoordinateKind::Cartesian);

    static bool Fits(const GridLayout& layout, const kxbase::GridTopology& grid);
    /// For a scan that says nothing about its origin: columns as they are, rows from the lowest up.
    static LayoutMessage PlainLayout(const kxbase::GridTopology& grid);

    bool HasIntensity() const { return m_intensity16 || m_intensity8; }
    bool HasColor() const { return m_color; }
    bool HasClasses() const { return m_classes; }
    const GridLayout& Layout() const { return m_message.layout; }

    /// Reads the next source columns, at most `maxColumns` and no more than lie in one column of patches,
    /// column after column. \return columns read; 0 at the end
    uint64_t Read(uint64_t maxColumns, std::vector<Cell>& cells);
    /// Returns so far whose position is no number; they are given as cells without a return.
    uint64_t UnusableReturns() const { return m_unusable; }
    /// Cells so far whose class number is above 255; they are given as 255.
    uint64_t LargeClasses() const { return m_largeClasses; }

private:
    /// Values of `columns` grid columns from `first` on, all rows, row by row.
    struct Block {
        std::vector<float> range, vertical, horizontal;
        std::vector<uint16_t> luminance16;
        std::vector<uint8_t> luminance8;
        std::vector<kxio::Rgb8> color;
        std::vector<uint32_t> classes;
    };
    struct Tile;
    struct Oddities {
        uint64_t unusable = 0, largeClasses = 0;
    };
    void CheckClaims(uint64_t first, uint64_t columns) const;
    void ReadBlock(uint64_t first, uint64_t columns, Block& block) const;
    void ReadNextBlocks();
    Oddities ToCells(uint64_t source, uint64_t count, Cell* cells) const;
    Oddities ToCells(const Tile& tile, size_t first, size_t count, Cell* cells) const;
    bool Place(const Tile& tile, size_t at, const double* xyz, Cell& cell) const;
    bool Describe(const Tile& tile, size_t at, Cell& cell) const;

    kxio::ScanAccess m_access;
    kxbase::GridTopology m_grid;
    LayoutMessage m_message;
    kxio::ReadOptions m_options;
    bool m_intensity16;
    bool m_intensity8;
    bool m_color;
    bool m_classes;
    bool m_directions;  // cells without a return have directions of their own
    CoordinateKind m_kind;
    double m_emptyIntensity;
    uint64_t m_nextColumn = 0;  // of the source
    uint64_t m_unusable = 0;
    uint64_t m_largeClasses = 0;
    uint64_t m_blockFirst = 0;  // source column that the blocks begin with
    uint64_t m_blockColumns = 0;
    Block m_near, m_far;
};

}  // namespace kxexchange
