// SPDX-License-Identifier: MIT
#include "format/IntegrityTable.h"

#include <algorithm>
#include <array>

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

}  // namespace

void IntegrityTable::Add(const IntegrityExtendedHeader& record, uint64_t position) {
    if (m_records.contains(position)) return;
    if (!record.IsIntact()) {
        m_damaged.insert(position);
        return;
    }
    m_records.insert(position);
    // Only what lies before: so following the names ends.
    if (record.GetPrevious() < position) m_named.insert(record.GetPrevious());
    const std::span<const IntegritySpan> spans = record.Spans();
    Merge(m_spans, spans);
    Merge(m_headers, spans.first(record.HeaderSpanCount()));
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
        if (stream.Seek(position) && record.Read(&stream) != 0 &&
            record.GetType() == IntegrityExtendedHeader::Type) {
            Add(IntegrityExtendedHeader(record), position);
        } else {
            m_damaged.insert(position);
        }
    }
}

IntegrityTable::Verdict IntegrityTable::Check(uint64_t position, std::span<const unsigned char> bytes) const {
    const IntegritySpan wanted{position, bytes.size(), 0};
    auto [first, last] = std::equal_range(m_spans.begin(), m_spans.end(), wanted, Before);
    first = last - std::min(last - first, kMostHashes);
    std::optional<uint64_t> hash;
    for (; first != last; ++first) {
        if (first->byteCount != bytes.size()) continue;
        if (!hash) hash = Hash64(bytes);
        if (first->hash == *hash) return Verdict::Right;
    }
    return hash ? Verdict::Wrong : Verdict::Unlisted;
}

std::optional<uint64_t> IntegrityTable::BytesAt(uint64_t position) const {
    auto [first, last] =
        std::equal_range(m_spans.begin(), m_spans.end(), IntegritySpan{position, 0, 0}, Before);
    first = last - std::min(last - first, kMostHashes);
    std::optional<uint64_t> bytes;
    for (; first != last; ++first)
        bytes = std::max(bytes.value_or(0), first->byteCount);
    return bytes;
}

}  // namespace kxio
