// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "E57Pages.h"
#include "kxbase/IOutFileStream.h"

namespace kxexchange {

/// Writes the content of a paged file from its beginning on, and puts the checksums in.
///
/// Places whose bytes are known only later are reserved, then filled. Memory: a buffer of pages and a copy
/// of each page with an unfilled place.
class E57PageWriter {
public:
    /// `stream` must outlive the writer and be at its beginning.
    explicit E57PageWriter(kxbase::IOutFileStream& stream);

    /// Logical offset of the next byte.
    uint64_t Position() const { return m_position; }
    /// \throws kxbase::KXWritingException
    void Append(std::span<const unsigned char> bytes);
    /// Zeros up to the next multiple of `alignment` (1 to 64).
    void Align(uint64_t alignment);
    /// Appends zeros that Fill will replace. \return their logical offset
    uint64_t Reserve(uint64_t count);
    /// Replaces bytes of a reserved place.
    /// \throws kxbase::KXWrongDataSizeofException  they were not reserved
    void Fill(uint64_t logical, std::span<const unsigned char> bytes);
    /// Fills the last page with zeros, writes everything. Fill may still follow. \return size of the file
    uint64_t Finish();
    /// Bytes that reached the stream or wait for it.
    uint64_t BytesWritten() const { return E57Physical(m_position); }

private:
    void Flush();
    void WritePages(uint64_t first, std::span<const unsigned char> pages);

    kxbase::IOutFileStream& m_stream;
    uint64_t m_position = 0;
    uint64_t m_flushedPages = 0;
    std::vector<unsigned char> m_buffer;                    // whole pages from m_flushedPages on
    std::map<uint64_t, std::vector<unsigned char>> m_kept;  // written pages with reserved places
    std::vector<std::pair<uint64_t, uint64_t>> m_reserved;  // logical [first, end)
};

}  // namespace kxexchange
