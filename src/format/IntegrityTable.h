// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "kxio/IntegrityExtendedHeader.h"

namespace kxbase {
class IInFileStream;
}

namespace kxio {

/// What the hashes of a file say of some bytes.
enum class IntegrityVerdict {
    Right,     ///< one of the hashes listed for the piece is theirs
    Wrong,     ///< none is
    Unlisted,  ///< no piece that begins there and is as long is listed
};

/// Calls `visit` for each piece of a list, which is in the order of positions, once, however often edits have
/// listed it again. False when `visit` says so, or when the pieces are together longer than `bytesLeft`,
/// which is counted down: what is listed hardly overlaps, and a list that says otherwise must not cost more.
bool ForEachPiece(std::span<const IntegritySpan> pieces, uint64_t& bytesLeft,
                  const std::function<bool(const IntegritySpan&)>& visit);

/// What the integrity records of a file say, all together.
class IntegrityTable {
public:
    using Verdict = IntegrityVerdict;

    /// All records together have no more bytes, usually those of the file: records do not lie inside each
    /// other. One that exceeds it counts as damaged.
    void LimitBytes(uint64_t most) { m_bytesLeft = most; }
    /// Takes what a record that was met at `position` lists; one that was taken before adds nothing.
    void Add(IntegrityExtendedHeader&& record, uint64_t position);
    /// A record was met that cannot be read.
    void AddDamaged(uint64_t position) { m_damaged.insert(position); }
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
    /// The same by their number and a way to their hash, which is asked for only when it is needed.
    Verdict Check(uint64_t position, uint64_t byteCount, const std::function<uint64_t()>& hash) const;
    /// How long the longest piece is that begins there; nothing when none does.
    std::optional<uint64_t> BytesAt(uint64_t position) const;

    /// The pieces that are headers, by position. One that an edit listed again is there twice.
    const std::vector<IntegritySpan>& HeaderSpans() const { return m_headers; }
    /// The other pieces, likewise; what was listed last comes last.
    const std::vector<IntegritySpan>& OtherSpans() const { return m_others; }
    /// `ForEachPiece` of the headers, and with `everything` of the others behind them, in a file of so many
    /// bytes. They may be together twice as long: starts of previews and histograms are listed beside the
    /// whole.
    bool EachPiece(uint64_t fileBytes, bool everything,
                   const std::function<bool(const IntegritySpan&)>& visit) const;

private:
    std::set<uint64_t> m_records;
    std::set<uint64_t> m_named;  // as those that a record adds to
    std::set<uint64_t> m_damaged;
    uint64_t m_bytesLeft = UINT64_MAX;
    std::vector<IntegritySpan> m_headers;
    std::vector<IntegritySpan> m_others;
};

}  // namespace kxio
