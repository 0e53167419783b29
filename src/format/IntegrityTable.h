// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "kxio/IntegrityExtendedHeader.h"

namespace kxbase {
class IInFileStream;
}

namespace kxio {

/// What the integrity records of a file say, all together.
class IntegrityTable {
public:
    /// What the hashes say of some bytes.
    enum class Verdict {
        Right,     ///< one of the hashes listed for the piece is theirs
        Wrong,     ///< none is
        Unlisted,  ///< no piece that begins there and is as long is listed
    };

    /// Takes what a record that was met at `position` lists; one that was taken before adds nothing.
    void Add(const IntegrityExtendedHeader& record, uint64_t position);
    /// Takes the record that the end of the file points to, and all those to which the records taken so far
    /// add. The caller holds the stream.
    void Complete(kxbase::IInFileStream& stream);

    /// A record was met whose data is whole.
    bool Present() const { return !m_records.empty(); }
    /// Positions of records that were met and are damaged.
    const std::set<uint64_t>& Damaged() const { return m_damaged; }
    /// The last record of the file; 0 without one.
    uint64_t Newest() const { return m_records.empty() ? 0 : *m_records.rbegin(); }

    /// Whether bytes that were read at `position` are those that were written.
    Verdict Check(uint64_t position, std::span<const unsigned char> bytes) const;
    /// How long the longest piece is that begins there; nothing when none does.
    std::optional<uint64_t> BytesAt(uint64_t position) const;

    /// The pieces that are headers, by position. One that an edit listed again is there twice.
    const std::vector<IntegritySpan>& HeaderSpans() const { return m_headers; }
    /// All pieces, by position; what was listed last comes last.
    const std::vector<IntegritySpan>& Spans() const { return m_spans; }

private:
    std::set<uint64_t> m_records;
    std::set<uint64_t> m_named;  // as those that a record adds to
    std::set<uint64_t> m_damaged;
    std::vector<IntegritySpan> m_spans;
    std::vector<IntegritySpan> m_headers;
};

}  // namespace kxio
