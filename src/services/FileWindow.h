// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kxbase {
class IInFileStream;
}

namespace kxio {

/// Reads a file of any size for searching: small pieces anywhere, and long blocks from front to back.
///
/// Bytes that the stream refuses to give although its size says they exist (a bad disk) read as zeros: what
/// lies behind them can still be had. One object serves one thread at a time; the stream must outlive it
/// and belongs to it meanwhile.
class FileWindow {
public:
    explicit FileWindow(kxbase::IInFileStream& in);

    uint64_t Size() const { return m_size; }
    /// The `count` bytes at `position`, fewer at the end of the file; for pieces of some kilobytes at most.
    /// Valid until the next call of `Peek` or `Block`.
    std::span<const unsigned char> Peek(uint64_t position, uint64_t count);
    /// As much as is at hand from `position` on: at least 64 KiB, less only at the end of the file. Valid
    /// until the next call of `Block`.
    std::span<const unsigned char> Block(uint64_t position);
    /// Fills `out` with `count` bytes; fewer at the end of the file.
    void Read(uint64_t position, uint64_t count, std::vector<unsigned char>& out);

    /// Bytes that read as zeros because the stream did not give them.
    uint64_t UnreadableBytes() const { return m_unreadable; }
    kxbase::IInFileStream& Stream() { return m_in; }

private:
    uint64_t ReadAt(uint64_t position, uint64_t count, unsigned char* out);
    /// What the block holds from `position` on.
    std::span<const unsigned char> Held(uint64_t position) const;

    kxbase::IInFileStream& m_in;
    uint64_t m_size;
    std::vector<unsigned char> m_block;
    uint64_t m_blockStart = 0;
    std::vector<unsigned char> m_piece;
    uint64_t m_unreadable = 0;
    uint64_t m_unreadableEnd = 0;  // what lies before was counted
};

}  // namespace kxio
