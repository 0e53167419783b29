// SPDX-License-Identifier: MIT
#include "PointBytes.h"

#include <algorithm>

#include "kxexchange/Errors.h"

namespace kxexchange {

namespace {

constexpr uint64_t kBlockBytes = uint64_t{1} << 20;

}  // namespace

void PointBytes::Begin(const PointRecord& record, uint64_t offset, uint64_t count) {
    m_record = &record;
    m_offset = offset;
    m_left = count;
    m_done = 0;
}

void PointBytes::Fail(uint64_t offset, const std::string& detail) const {
    kxbase::ErrorContext context;
    context.file = m_name;
    context.record = "point " + std::to_string(m_done + 1);
    context.offset = offset;
    context.detail = detail;
    throw SourceFormatException(m_format + " file cannot be read", context);
}

size_t PointBytes::Read(uint64_t most, std::vector<Cell>& cells, size_t filled) {
    const uint64_t bytes = m_record->Bytes();
    const uint64_t count =
        std::min({most, m_left, std::max<uint64_t>(1, kBlockBytes / std::max<uint64_t>(1, bytes))});
    if (count == 0) return 0;
    m_block.resize(static_cast<size_t>(count * bytes));
    m_stream.Seek(m_offset);
    const uint64_t got = m_stream.Read(m_block.data(), m_block.size());
    m_taken += got;
    const auto whole = static_cast<size_t>(got / bytes);
    if (cells.size() < filled + whole) cells.resize(filled + whole);
    for (size_t i = 0; i < whole; ++i) {
        if (!m_record->Decode(m_block.data() + i * bytes, cells[filled + i])) {
            m_done += i;
            Fail(m_offset + i * bytes, "found a coordinate beyond 1e12 m");
        }
    }
    m_done += whole;
    m_left -= whole;
    m_offset += whole * bytes;
    if (whole < count) {
        Fail(m_offset, "found the end of the file, expected " + std::to_string(m_left) + " more points");
    }
    return whole;
}

}  // namespace kxexchange
