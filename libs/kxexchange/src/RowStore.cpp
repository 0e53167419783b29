// SPDX-License-Identifier: MIT
#include "RowStore.h"

#include <algorithm>

namespace kxexchange {

namespace {

constexpr uint64_t kBlockBytes = uint64_t{1} << 24;

}  // namespace

RowStore::RowStore(uint64_t columns, uint64_t rows, size_t recordBytes, std::filesystem::path temporaryFolder,
                   uint64_t bytesInMemory)
    : m_columns(columns),
      m_rows(rows),
      m_recordBytes(recordBytes),
      m_file(std::move(temporaryFolder)),
      m_blockColumns(columns) {
    const uint64_t columnBytes = std::max<uint64_t>(1, rows * recordBytes);
    if (columns > bytesInMemory / columnBytes) {
        m_blockColumns = std::clamp<uint64_t>(std::min(kBlockBytes, bytesInMemory) / columnBytes, 1, columns);
    }
    m_block.resize(static_cast<size_t>(m_blockColumns * columnBytes));
}

void RowStore::AddColumn(std::span<const unsigned char> records) {
    if (m_waiting == m_blockColumns) WriteBlock();
    unsigned char* out = m_block.data() + m_waiting * m_recordBytes;
    const unsigned char* in = records.data();
    for (uint64_t row = 0; row < m_rows; ++row) {
        out = std::copy_n(in, m_recordBytes, out) + (m_blockColumns - 1) * m_recordBytes;
        in += m_recordBytes;
    }
    ++m_waiting;
    if (m_firstColumn + m_waiting == m_columns && m_blockColumns < m_columns) WriteBlock();
}

void RowStore::WriteBlock() {
    for (uint64_t row = 0; row < m_rows; ++row) {
        m_file.Write((row * m_columns + m_firstColumn) * m_recordBytes,
                     m_block.data() + row * m_blockColumns * m_recordBytes, m_waiting * m_recordBytes);
    }
    m_firstColumn += m_waiting;
    m_waiting = 0;
}

void RowStore::ReadRow(uint64_t row, std::vector<unsigned char>& records) {
    const auto bytes = static_cast<size_t>(m_columns * m_recordBytes);
    records.resize(bytes);
    if (m_blockColumns == m_columns) {
        std::copy_n(m_block.begin() + static_cast<std::ptrdiff_t>(row * bytes), bytes, records.begin());
    } else {
        m_file.Read(row * bytes, records.data(), bytes);
    }
}

}  // namespace kxexchange
