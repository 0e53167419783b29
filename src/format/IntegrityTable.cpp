// SPDX-License-Identifier: MIT
#include "format/IntegrityTable.h"

#include <algorithm>
#include <array>
#include <utility>

#include "format/Hash64.h"
#include "kxbase/ByteReader.h"
#include "kxbase/IInFileStream.h"

namespace kxio {

namespace {

// A piece that was edited more often has lost its oldest hashes: no list costs more than this per look.
constexpr ptrdiff_t kMostHashes = 64;

bool Before(const IntegritySpan& a, const IntegritySpan& b) {
    return a.position < b.position;
}

// What the records after the first one list may come in any order and comes behind.
void Merge(std::vector<IntegritySpan>& spans, std::span<const IntegritySpan> more) {
    spans.insert(spans.end(), more.begin(), more.end());
    if (!std::is_sorted(spans.begin(), spans.end(), Before))
        std::stable_sort(spans.begin(), spans.end(), Before);
}

// The last ones that begin at a position, which were listed last.
std::span<const IntegritySpan> PiecesAt(const std::vector<IntegritySpan>& spans, uint64_t position) {
    const auto [first, last] =
        std::equal_range(spans.begin(), spans.end(), IntegritySpan{position, 0, 0}, Before);
    return {last - std::min(last - first, kMostHashes), last};
}

}  // namespace

bool ForEachPiece(std::span<const IntegritySpan> pieces, uint64_t& bytesLeft,
                  const std::function<bool(const IntegritySpan&)>& visit) {
    const IntegritySpan* before = nullptr;
    for (const IntegritySpan& piece : pieces) {
        if (before != nullptr && before->position == piece.position && before->byteCount == piece.byteCount)
            continue;
        before = &piece;
        if (piece.byteCount > bytesLeft) return false;
        bytesLeft -= piece.byteCount;
        if (!visit(piece)) return false;
    }
    return true;
}

bool IntegrityTable::EachPiece(uint64_t fileBytes, bool everything,
                               const std::function<bool(const IntegritySpan&)>& visit) const {
    uint64_t left = 2 * fileBytes;
    return ForEachPiece(m_headers, left, visit) && (!everything || ForEachPiece(m_others, left, visit));
}

void IntegrityTable::Add(IntegrityExtendedHeader&& record, uint64_t position) {
    if (m_records.contains(position)) return;
    if (!record.IsIntact() || record.GetDataSize() > m_bytesLeft) {
        m_damaged.insert(position);
        return;
    }
    m_bytesLeft -= record.GetDataSize();
    m_records.insert(position);
    // Only what lies before: so following the names ends.
    if (record.GetPrevious() < position) m_named.insert(record.GetPrevious());
    const uint32_t headers = record.HeaderSpanCount();
    std::vector<IntegritySpan> spans = record.TakeSpans();
    Merge(m_headers, std::span<const IntegritySpan>(spans).first(headers));
    spans.erase(spans.begin(), spans.begin() + static_cast<std::ptrdiff_t>(headers));
    if (m_others.empty()) m_others.swap(spans);  // mostly there is one record, with many pieces
    Merge(m_others, spans);
}

void IntegrityTable::Complete(kxbase::IInFileStream& stream) {
    constexpr uint64_t kTrailer = IntegrityExtendedHeader::TrailerBytes;
    const uint64_t size = stream.GetSize();
    std::array<unsigned char, kTrailer> bytes{};
    if (size >= kTrailer && stream.Seek(size - kTrailer) && stream.Read(bytes.data(), kTrailer) == kTrailer) {
        kxbase::ByteReader in(bytes);
        const uint64_t position = in.U64("own position");
        if (in.U64("type tag") == IntegrityExtendedHeader::Type && position < size) m_named.insert(position);
    }
    while (!m_named.empty()) {
        const uint64_t position = *m_named.rbegin();
        m_named.erase(position);
        if (position == 0 || m_records.contains(position)) continue;
        ExtendedHeader record;
        record.LimitPayload(m_bytesLeft, "file size");
        if (stream.Seek(position) && record.Read(&stream) != 0 &&
            record.GetType() == IntegrityExtendedHeader::Type) {
            Add(IntegrityExtendedHeader(std::move(record)), position);
        } else {
            m_damaged.insert(position);
        }
    }
}

IntegrityTable::Verdict IntegrityTable::Check(uint64_t position, std::span<const unsigned char> bytes) const {
    return Check(position, bytes.size(), [bytes] { return Hash64(bytes); });
}

IntegrityTable::Verdict IntegrityTable::Check(uint64_t position, uint64_t byteCount,
                                              const std::function<uint64_t()>& hashOf) const {
    std::optional<uint64_t> hash;
    for (const auto* spans : {&m_headers, &m_others}) {
        for (const IntegritySpan& span : PiecesAt(*spans, position)) {
            if (span.byteCount != byteCount) continue;
            if (!hash) hash = hashOf();
            if (span.hash == *hash) return Verdict::Right;
        }
    }
    return hash ? Verdict::Wrong : Verdict::Unlisted;
}

std::optional<uint64_t> IntegrityTable::BytesAt(uint64_t position) const {
    std::optional<uint64_t> bytes;
    for (const auto* spans : {&m_headers, &m_others}) {
        for (const IntegritySpan& span : PiecesAt(*spans, position))
            bytes = std::max(bytes.value_or(0), span.byteCount);
    }
    return bytes;
}

}  // namespace kxio
