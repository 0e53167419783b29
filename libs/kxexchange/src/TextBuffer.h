// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "ByteFeed.h"
#include "WorkerTeam.h"

namespace kxexchange {

/// Text from a feed, a block at a time, cut at line ends, with line numbers and offsets for messages.
///
/// `At()` points to the start of a line that lies in memory up to and including its '\n' (the last line of
/// a text gets one when it has none). Parsers walk that line and give back where the next one begins. Some
/// bytes in front of it and behind it may be read (PlainLines.h), whatever they hold.
class TextBuffer {
public:
    static constexpr size_t kBlockBytes = size_t{1} << 20;
    /// Lines longer than this are refused.
    static constexpr size_t kMaxLineBytes = kBlockBytes / 2;

    TextBuffer(std::unique_ptr<ByteFeed> feed, std::string name);

    /// Makes sure that a whole line lies at At(). \return false at the end of the text.
    /// \throws SourceFormatException  the line is too long
    bool HasLine() { return m_at != m_lineEnd || Fill(); }
    const char* At() const { return m_at; }
    /// Moves to the next line: `next` points behind the '\n' of the line at At().
    void Advance(const char* next) { Advance(next, 1); }
    /// Behind the last whole line in memory: HasLine() and a line at At() mean that it lies behind At().
    const char* LinesEnd() const { return m_lineEnd; }
    /// Moves over so many lines at once; `next` is where the one behind them begins, at most LinesEnd().
    void Advance(const char* next, uint64_t lines) {
        m_at = next;
        m_line += lines;
    }
    /// Passes over up to `count` lines. \return lines passed over; fewer only at the end
    uint64_t SkipLines(uint64_t count);

    uint64_t Line() const { return m_line; }  ///< of the line at At(), from 1
    uint64_t Offset(const char* place) const { return m_offset + static_cast<uint64_t>(place - m_begin); }
    uint64_t Offset() const { return Offset(m_at); }
    /// Goes to a line seen before, by its offset and number.
    void GoTo(uint64_t offset, uint64_t line);
    uint64_t BytesTaken() const { return m_feed->BytesTaken(); }

    /// Threads that help whoever parses the lines.
    WorkerTeam& Team() { return *m_team; }

private:
    bool Fill();

    std::unique_ptr<ByteFeed> m_feed;
    std::string m_name;
    std::unique_ptr<WorkerTeam> m_team = std::make_unique<WorkerTeam>();
    std::vector<char> m_block;
    char* m_begin;          // in m_block, behind what may be read in front of a line
    const char* m_at;       // next line
    const char* m_lineEnd;  // behind the last '\n' in memory
    const char* m_dataEnd;  // behind the last byte in memory
    uint64_t m_offset = 0;  // of m_begin in the text
    uint64_t m_line = 1;
    bool m_ended = false;
};

}  // namespace kxexchange
