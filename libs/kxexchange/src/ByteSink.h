// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "kxbase/IOutFileStream.h"

namespace kxexchange {

/// Collects bytes and hands them to a stream in large pieces. Nothing reaches the stream from the
/// destructor: an output that was not flushed is not complete.
class ByteSink {
public:
    explicit ByteSink(kxbase::IOutFileStream& stream) : m_stream(stream) { m_buffer.resize(kBytes); }

    /// Room for `bytes` more bytes (at most kReserve), to be filled and then Claim()ed.
    char* Reserve() {
        if (kBytes - m_used < kReserve) Flush();
        return m_buffer.data() + m_used;
    }
    /// Moves to behind the bytes that were put into the room.
    void Claim(const char* end) { m_used = static_cast<size_t>(end - m_buffer.data()); }
    void Append(std::string_view text);
    /// \throws kxbase::KXWritingException
    void Flush();
    uint64_t BytesWritten() const { return m_flushed + m_used; }
    kxbase::IOutFileStream& Stream() { return m_stream; }

    /// Bytes that Reserve guarantees.
    static constexpr size_t kReserve = 2048;

private:
    static constexpr size_t kBytes = size_t{1} << 20;

    kxbase::IOutFileStream& m_stream;
    std::vector<char> m_buffer;
    size_t m_used = 0;
    uint64_t m_flushed = 0;
};

}  // namespace kxexchange
