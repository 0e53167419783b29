// SPDX-License-Identifier: MIT
#include "TextBuffer.h"

#include <algorithm>
#include <cstring>

#include "LineCount.h"
#include "PlainLines.h"
#include "kxexchange/Errors.h"

namespace kxexchange {

TextBuffer::TextBuffer(std::unique_ptr<ByteFeed> feed, std::string name)
    : m_feed(std::move(feed)),
      m_name(std::move(name)),
      m_block(kReadableInFront + kBlockBytes + 1 + kReadableBehind),  // 1: '\n' that the last line may lack
      m_begin(m_block.data() + kReadableInFront),
      m_at(m_begin),
      m_lineEnd(m_at),
      m_dataEnd(m_at) {}

bool TextBuffer::Fill() {
    if (m_ended) return false;
    // What remains is the beginning of a line.
    const auto kept = static_cast<size_t>(m_dataEnd - m_at);
    m_offset = Offset(m_at);
    std::memmove(m_begin, m_at, kept);
    m_at = m_begin;
    size_t filled = kept;
    const char* lastEnd = nullptr;
    while (!lastEnd) {
        if (filled > kMaxLineBytes) {
            kxbase::ErrorContext context;
            context.file = m_name;
            context.record = "line " + std::to_string(m_line);
            context.offset = m_offset;
            context.detail = "found more than " + std::to_string(kMaxLineBytes) + " bytes without a line end";
            throw SourceFormatException("Text cannot be read", context);
        }
        const size_t wanted = kBlockBytes - filled;
        const size_t got = m_feed->Read(m_begin + filled, wanted);
        const size_t before = filled;
        filled += got;
        for (size_t i = filled; i > before; --i) {
            if (m_begin[i - 1] == '\n') {
                lastEnd = m_begin + i;
                break;
            }
        }
        if (got < wanted) {
            m_ended = true;
            if (filled != 0 && m_begin[filled - 1] != '\n') {
                m_begin[filled++] = '\n';
            }
            lastEnd = m_begin + filled;
        }
    }
    m_dataEnd = m_begin + filled;
    m_lineEnd = lastEnd;
    return m_at != m_lineEnd;
}

uint64_t TextBuffer::SkipLines(uint64_t count) {
    uint64_t passed = 0;
    while (passed < count && HasLine()) {
        if (const uint64_t lines = CountLineEnds(m_at, m_lineEnd); lines <= count - passed) {
            Advance(m_lineEnd, lines);
            passed += lines;
            continue;
        }
        for (; passed < count; ++passed) {
            const void* const end = std::memchr(m_at, '\n', static_cast<size_t>(m_lineEnd - m_at));
            Advance(static_cast<const char*>(end) + 1);
        }
    }
    return passed;
}

void TextBuffer::GoTo(uint64_t offset, uint64_t line) {
    uint64_t reached = m_feed->GoTo(offset);
    m_at = m_lineEnd = m_dataEnd = m_begin;
    m_ended = false;
    // A feed that had to go back to the start is read up to the place.
    while (reached < offset) {
        const auto wanted = static_cast<size_t>(std::min<uint64_t>(offset - reached, kBlockBytes));
        const size_t got = m_feed->Read(m_begin, wanted);
        reached += got;
        if (got < wanted) break;
    }
    m_offset = reached;
    m_line = line;
}

}  // namespace kxexchange
