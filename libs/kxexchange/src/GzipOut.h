// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "kxbase/IOutFileStream.h"

namespace kxexchange {

/// A stream whose bytes reach another one as gzip data: a member for every MiB, compressed side by side by
/// `threads` threads (0: as many as the machine has cores). It only goes forward.
class GzipOut final : public kxbase::IOutFileStream {
public:
    GzipOut(kxbase::IOutFileStream& inner, int level, int threads);

    bool IsOpen() const override { return m_inner.IsOpen(); }
    bool Seek(uint64_t) override { return false; }
    bool SeekForward(uint64_t) override { return false; }
    bool SeekBackward(uint64_t) override { return false; }
    bool SeekEnd(uint64_t) override { return false; }
    /// Of the bytes in front of the compression.
    uint64_t Tell() const override { return m_taken; }
    /// \throws kxbase::KXWritingException
    uint64_t Write(const void* data, uint64_t bytes) override;
    /// Writes what waits; the inner stream stays open.
    void Close() override;
    /// Compressed bytes that reached the inner stream.
    uint64_t Packed() const { return m_packed; }

private:
    void WriteMembers();

    kxbase::IOutFileStream& m_inner;
    int m_level;
    size_t m_blocks;  // at most so many wait
    std::vector<unsigned char> m_waiting;
    uint64_t m_taken = 0;
    uint64_t m_packed = 0;
};

}  // namespace kxexchange
