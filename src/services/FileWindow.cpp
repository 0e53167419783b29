// SPDX-License-Identifier: MIT
#include "services/FileWindow.h"

#include <algorithm>
#include <cstring>

#include "kxbase/IInFileStream.h"

namespace kxio {

namespace {

constexpr uint64_t kBlockBytes = uint64_t{1} << 20;
constexpr uint64_t kLeastHeldBytes = uint64_t{1} << 16;
/// What is given up at once around a place that cannot be read.
constexpr uint64_t kSectorBytes = 4096;
/// A stream that refuses so much is taken to end there.
constexpr uint64_t kMostUnreadableBytes = uint64_t{1} << 30;

}  // namespace

FileWindow::FileWindow(kxbase::IInFileStream& in) : m_in(in), m_size(in.GetSize()) {}

std::span<const unsigned char> FileWindow::Held(uint64_t position) const {
    if (position < m_blockStart || position - m_blockStart > m_block.size()) return {};
    return std::span<const unsigned char>(m_block).subspan(position - m_blockStart);
}

std::span<const unsigned char> FileWindow::Peek(uint64_t position, uint64_t count) {
    if (position >= m_size) return {};
    count = std::min(count, m_size - position);
    const auto held = Held(position);
    if (held.size() >= count) return held.first(count);
    Read(position, count, m_piece);
    return m_piece;
}

std::span<const unsigned char> FileWindow::Block(uint64_t position) {
    if (position >= m_size) return {};
    const auto held = Held(position);
    if (held.size() >= std::min(kLeastHeldBytes, m_size - position)) return held;
    Read(position, kBlockBytes, m_block);
    m_blockStart = position;
    return m_block;
}

void FileWindow::Read(uint64_t position, uint64_t count, std::vector<unsigned char>& out) {
    out.resize(position < m_size ? std::min(count, m_size - position) : 0);
    out.resize(ReadAt(position, out.size(), out.data()));
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
