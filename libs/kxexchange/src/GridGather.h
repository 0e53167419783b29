// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "TemporaryFile.h"
#include "kxexchange/Cell.h"

namespace kxexchange {

/// Takes the cells of a grid in any order and gives them back column after column.
///
/// Grids of up to kCellsInMemory cells are held. Larger ones go, in blocks of columns, through a file in the
/// temporary folder, which is removed with the object; memory is then one block of columns (at least
/// kCellsInMemory / 4 cells, at least one column) and 24 KiB for each block that has cells.
/// Places that no cell names are cells without a return. Of several cells in one place the first is kept.
class GridGather {
public:
    static constexpr uint64_t kCellsInMemory = uint64_t{1} << 20;

    /// `columns` x `rows` must not exceed what the caller has reason to believe: reading walks over all.
    /// An empty folder: the system's.
    GridGather(uint64_t columns, uint64_t rows, std::filesystem::path temporaryFolder,
               uint64_t cellsInMemory = kCellsInMemory);
    ~GridGather();

    /// \throws kxbase::KXWritingException, kxbase::KXFileNotOpenException  the temporary file failed
    void Put(uint64_t column, uint64_t row, const Cell& cell);
    /// Back to the first column; nothing may be Put afterwards.
    void Rewind();
    /// The next columns, at most `maxColumns`. \return columns; 0 at the end
    uint64_t Read(uint64_t maxColumns, std::vector<Cell>& cells);
    /// Cells whose place was taken; complete when all columns were read.
    uint64_t Collisions() const { return m_collisions; }
    bool UsesFile() const { return m_file.Exists(); }

private:
    struct Record;
    struct Block {
        std::vector<Record> waiting;
        std::vector<uint64_t> pieces;  // offsets in the file, each of kPieceRecords records
    };
    void WritePiece(Block& block);
    void LoadBlock(uint64_t index);
    void Place(uint64_t at, const Cell& cell);

    const uint64_t m_columns;
    const uint64_t m_rows;
    uint64_t m_columnsPerBlock;
    TemporaryFile m_file;
    std::vector<Block> m_blocks;
    uint64_t m_fileBytes = 0;
    std::vector<Cell> m_cells;  // of the loaded block
    std::vector<bool> m_taken;  // the same
    uint64_t m_loaded = ~uint64_t{0};
    uint64_t m_nextColumn = 0;
    uint64_t m_collisions = 0;
    uint64_t m_countedBlocks = 0;  // whose collisions have been counted
};

}  // namespace kxexchange
