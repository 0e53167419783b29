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
    /// Chunks that are read one after the other, from front to back, come from pieces of the file that are
    /// read ahead of them.
    void ReadAhead() { m_readsAhead = true; }

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
    /// Some bytes of the file.
    struct Piece {
        std::vector<unsigned char> bytes;
        uint64_t start = 0;

        /// What it holds from `position` on.
        std::span<const unsigned char> From(uint64_t position) const;
    };

    uint64_t ReadAt(uint64_t position, uint64_t count, unsigned char* out);
    void Load(uint64_t position, uint64_t count, Piece& piece);
    /// The bytes where they are at hand, or can be had together with those behind them.
    std::span<const unsigned char> Ahead(uint64_t position, uint64_t count);

    kxbase::IInFileStream& m_in;
    uint64_t m_size;
    Piece m_block;
    Piece m_peeked;
    Piece m_ahead;
    bool m_readsAhead = false;
    uint64_t m_readEnd = 0;       // of what was read last
    uint64_t m_inSuccession = 0;  // bytes that were read since the last jump
    uint64_t m_unreadable = 0;
    uint64_t m_unreadableEnd = 0;  // what lies before was counted
};

}  // namespace kxio
