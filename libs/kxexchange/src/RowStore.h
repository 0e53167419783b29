// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "TemporaryFile.h"

namespace kxexchange {

/// Turns records that come column after column into rows: for formats that want a grid row by row.
///
/// Up to kBytesInMemory bytes are held, more go through a temporary file; memory is then a block of
/// columns of at most 16 MiB (at least one column).
class RowStore {
public:
    static constexpr uint64_t kBytesInMemory = uint64_t{1} << 26;

    RowStore(uint64_t columns, uint64_t rows, size_t recordBytes, std::filesystem::path temporaryFolder,
             uint64_t bytesInMemory = kBytesInMemory);

    /// The next column: `rows` records.
    void AddColumn(std::span<const unsigned char> records);
    /// Row `row`, once all columns are there. \throws kxbase::KXWritingException  the temporary file failed
    void ReadRow(uint64_t row, std::vector<unsigned char>& records);
    uint64_t Columns() const { return m_columns; }
    uint64_t Rows() const { return m_rows; }
    bool UsesFile() const { return m_file.Exists(); }

private:
    void WriteBlock();

    uint64_t m_columns;
    uint64_t m_rows;
    size_t m_recordBytes;
    TemporaryFile m_file;
    uint64_t m_blockColumns;  // as many columns are in memory at most
    uint64_t m_firstColumn = 0;
    uint64_t m_waiting = 0;
    std::vector<unsigned char> m_block;  // row by row, m_blockColumns records each
};

}  // namespace kxexchange
