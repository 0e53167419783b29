// SPDX-License-Identifier: MIT
#include "services/FileWindow.h"

#include <algorithm>
#include <cstring>

#include "kxbase/IInFileStream.h"

namespace kxio {

namespace {

constexpr uint64_t kBlockBytes = uint64_t{1} << 20;
constexpr uint64_t kLeastHeldBytes = uint64_t{1} << 16;
/// As much as the record of a chunk and the header of its data: whoever looks at the one looks at the other.
constexpr uint64_t kLeastPeekedBytes = 64;
/// What is read ahead should fit a processor's cache.
constexpr uint64_t kAheadBytes = uint64_t{1} << 18;
/// Between two chunks that follow each other lies a record.
constexpr uint64_t kMostGapBytes = 4096;
/// What is given up at once around a place that cannot be read.
constexpr uint64_t kSectorBytes = 4096;
/// A stream that refuses so much is taken to end there.
constexpr uint64_t kMostUnreadableBytes = uint64_t{1} << 30;

}  // namespace

FileWindow::FileWindow(kxbase::IInFileStream& in) : m_in(in), m_size(in.GetSize()) {}

std::span<const unsigned char> FileWindow::Piece::From(uint64_t position) const {
    if (position < start || position - start > bytes.size()) return {};
    return std::span<const unsigned char>(bytes).subspan(position - start);
}

void FileWindow::Load(uint64_t position, uint64_t count, Piece& piece) {
    std::vector<unsigned char> bytes;
    bytes.swap(piece.bytes);  // it holds nothing when the stream throws
    bytes.resize(position < m_size ? std::min(count, m_size - position) : 0);
    bytes.resize(ReadAt(position, bytes.size(), bytes.data()));
    piece.bytes.swap(bytes);
    piece.start = position;
}

std::span<const unsigned char> FileWindow::Peek(uint64_t position, uint64_t count) {
    if (position >= m_size) return {};
    count = std::min(count, m_size - position);
    for (const Piece* piece : {&m_block, &m_ahead, &m_peeked}) {
        const auto held = piece->From(position);
        if (held.size() >= count) return held.first(count);
    }
    Load(position, std::max(count, kLeastPeekedBytes), m_peeked);
    const auto held = m_peeked.From(position);
    return held.first(std::min<uint64_t>(count, held.size()));
}

std::span<const unsigned char> FileWindow::Block(uint64_t position) {
    if (position >= m_size) return {};
    const auto held = m_block.From(position);
    if (held.size() >= std::min(kLeastHeldBytes, m_size - position)) return held;
    Load(position, kBlockBytes, m_block);
    return m_block.bytes;
}

std::span<const unsigned char> FileWindow::Ahead(uint64_t position, uint64_t count) {
    const bool follows = position >= m_readEnd && position - m_readEnd <= kMostGapBytes;
    m_inSuccession = count + (follows ? m_inSuccession : 0);
    m_readEnd = position + count;
    const auto held = m_ahead.From(position);
    if (held.size() >= count) return held.first(count);
    // Never more than was read in succession before: whoever jumps pays at most twice.
    const uint64_t ahead = std::min(kAheadBytes, m_inSuccession);
    if (count > ahead / 2) return {};
    Load(position, ahead, m_ahead);
    return m_ahead.From(position).first(std::min<uint64_t>(count, m_ahead.bytes.size()));
}

void FileWindow::Read(uint64_t position, uint64_t count, std::vector<unsigned char>& out) {
    count = position < m_size ? std::min(count, m_size - position) : 0;
    const auto held = m_readsAhead ? Ahead(position, count) : std::span<const unsigned char>();
    if (held.size() == count) {
        out.assign(held.begin(), held.end());
        return;
    }
    out.resize(count);
    out.resize(ReadAt(position, count, out.data()));
}

uint64_t FileWindow::ReadAt(uint64_t position, uint64_t count, unsigned char* out) {
    uint64_t done = 0;
    while (done < count) {
        m_in.Seek(position + done);
        done += m_in.Read(out + done, count - done);
        if (done == count) break;
        const uint64_t at = position + done;
        const uint64_t skipped = std::min(kSectorBytes - at % kSectorBytes, count - done);
        if (at + skipped > m_unreadableEnd) {
            m_unreadable += at + skipped - std::max(at, m_unreadableEnd);
            m_unreadableEnd = at + skipped;
        }
        if (m_unreadable > kMostUnreadableBytes) {
            m_size = at;
            return done;
        }
        std::memset(out + done, 0, skipped);
        done += skipped;
    }
    return done;
}

}  // namespace kxio
