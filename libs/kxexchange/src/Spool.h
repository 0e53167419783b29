// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "TemporaryFile.h"

namespace kxexchange {

/// Bytes that are put behind each other and read back later: in memory up to a limit, beyond it in a
/// temporary file.
class Spool {
public:
    explicit Spool(std::filesystem::path temporaryFolder, uint64_t bytesInMemory = uint64_t{1} << 24)
        : m_limit(bytesInMemory), m_file(std::move(temporaryFolder)) {}

    void Append(std::span<const unsigned char> bytes) {
        if (m_size - m_flushed + bytes.size() > m_limit) Flush();
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        m_size += bytes.size();
    }
    /// Reads bytes that are there. \throws kxbase::KXWritingException  the temporary file failed
    void Read(uint64_t offset, unsigned char* out, size_t bytes) {
        if (m_flushed != 0 && !m_bytes.empty()) Flush();
        if (m_flushed != 0) {
            m_file.Read(offset, out, bytes);
        } else {
            std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(offset), bytes, out);
        }
    }
    uint64_t Size() const { return m_size; }

private:
    void Flush() {
        m_file.Write(m_flushed, m_bytes.data(), m_bytes.size());
        m_flushed += m_bytes.size();
        m_bytes.clear();
    }

    uint64_t m_limit;
    TemporaryFile m_file;
    std::vector<unsigned char> m_bytes;
    uint64_t m_flushed = 0;
    uint64_t m_size = 0;
};

}  // namespace kxexchange
