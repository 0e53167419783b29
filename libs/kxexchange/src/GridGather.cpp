// SPDX-License-Identifier: MIT
#include "GridGather.h"

#include <algorithm>
#include <type_traits>

namespace kxexchange {

namespace {

constexpr size_t kPieceRecords = 512;
constexpr uint64_t kMostBlocks = 1024;

}  // namespace

struct GridGather::Record {
    uint64_t at;  // in the block, column after column
    Cell cell;
};

GridGather::GridGather(uint64_t columns, uint64_t rows, std::filesystem::path temporaryFolder,
                       uint64_t cellsInMemory)
    : m_columns(columns), m_rows(rows), m_columnsPerBlock(columns), m_file(std::move(temporaryFolder)) {
    static_assert(std::is_trivially_copyable_v<Record>);
    const uint64_t cells = columns * rows;
    if (cells > cellsInMemory) {
        const uint64_t blockCells = std::max(cellsInMemory / 4, cells / kMostBlocks);
        m_columnsPerBlock = std::max<uint64_t>(1, blockCells / std::max<uint64_t>(1, rows));
    }
    const uint64_t perBlock = std::max<uint64_t>(1, m_columnsPerBlock);
    m_blocks.resize(static_cast<size_t>((columns + perBlock - 1) / perBlock));
    if (m_blocks.size() == 1) {
        m_cells.resize(static_cast<size_t>(cells));
        m_taken.resize(static_cast<size_t>(cells));
        m_loaded = 0;
    }
}

GridGather::~GridGather() = default;

void GridGather::Place(uint64_t at, const Cell& cell) {
    const auto index = static_cast<size_t>(at);
    if (m_taken[index]) {
        if (m_loaded >= m_countedBlocks) ++m_collisions;
        return;
    }
    m_taken[index] = true;
    m_cells[index] = cell;
}

void GridGather::Put(uint64_t column, uint64_t row, const Cell& cell) {
    const uint64_t index = column / m_columnsPerBlock;
    const uint64_t at = (column - index * m_columnsPerBlock) * m_rows + row;
    if (m_blocks.size() == 1) {
        Place(at, cell);
        return;
    }
    Block& block = m_blocks[static_cast<size_t>(index)];
    if (block.waiting.capacity() == 0) block.waiting.reserve(kPieceRecords);
    block.waiting.push_back({at, cell});
    if (block.waiting.size() == kPieceRecords) WritePiece(block);
}

void GridGather::WritePiece(Block& block) {
    block.pieces.push_back(m_fileBytes);
    const uint64_t bytes = block.waiting.size() * sizeof(Record);
    m_file.Write(m_fileBytes, block.waiting.data(), bytes);
    m_fileBytes += bytes;
    block.waiting.clear();
}

void GridGather::LoadBlock(uint64_t index) {
    const uint64_t first = index * m_columnsPerBlock;
    const uint64_t columns = std::min(m_columnsPerBlock, m_columns - first);
    m_cells.assign(static_cast<size_t>(columns * m_rows), Cell());
    m_taken.assign(m_cells.size(), false);
    m_loaded = index;
    const Block& block = m_blocks[static_cast<size_t>(index)];
    std::vector<Record> records(kPieceRecords);
    for (const uint64_t offset : block.pieces) {
        m_file.Read(offset, records.data(), kPieceRecords * sizeof(Record));
        for (const Record& record : records)
            Place(record.at, record.cell);
    }
    for (const Record& record : block.waiting)
        Place(record.at, record.cell);
    m_countedBlocks = std::max(m_countedBlocks, index + 1);
}

void GridGather::Rewind() {
    m_nextColumn = 0;
}

uint64_t GridGather::Read(uint64_t maxColumns, std::vector<Cell>& cells) {
    cells.clear();
    if (m_nextColumn == m_columns || maxColumns == 0) return 0;
    const uint64_t index = m_nextColumn / m_columnsPerBlock;
    if (m_loaded != index) LoadBlock(index);
    const uint64_t first = index * m_columnsPerBlock;
    const uint64_t end = std::min(m_columns, first + m_columnsPerBlock);
    const uint64_t columns = std::min(maxColumns, end - m_nextColumn);
    const auto begin = m_cells.begin() + static_cast<std::ptrdiff_t>((m_nextColumn - first) * m_rows);
    cells.assign(begin, begin + static_cast<std::ptrdiff_t>(columns * m_rows));
    m_nextColumn += columns;
    return columns;
}

}  // namespace kxexchange
