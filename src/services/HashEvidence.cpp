// SPDX-License-Identifier: MIT
#include "services/HashEvidence.h"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "format/Hash64.h"
#include "kxbase/Exceptions.h"
#include "kxbase/IInFileStream.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/HistogramHeader.h"
#include "reader/ExtendedFrame.h"
#include "services/IntegrityEdit.h"

namespace kxio {

namespace {

using kxbase::ComponentType;

/// What leads on from a histogram, and says that it is one.
constexpr uint64_t kHistogramHeadBytes = kxbase::IOHeader::FrameSize + ExtendedHeader::FixedSize;
/// What tells the size of a preview.
constexpr uint64_t kPreviewHeadBytes = kxcodecs::QKXChunkCodec::HeaderSize;
/// Pieces besides chunks; of so many not all are previews and histograms.
constexpr size_t kMostChanged = 1000;

LookupTable ReadTable(FileWindow& file, uint64_t position) {
    LookupTable table;
    LookupTableHeader record(&table);
    if (position != 0 && file.Stream().Seek(position)) record.Read(&file.Stream());
    return table;
}

struct ByComponent {
    bool operator()(const FoundChunk& chunk, ComponentType component) const {
        return chunk.component < component;
    }
    bool operator()(ComponentType component, const FoundChunk& chunk) const {
        return component < chunk.component;
    }
};

}  // namespace

HashEvidence::HashEvidence(FileWindow& file, const Survey& survey) {
    try {
        m_integrity = LoadIntegrity(file.Stream(), survey.mainHeader.value_or(MainFileHeader()));
    } catch (const kxbase::KXException&) {
        m_integrity = {};
    }
    for (const IntegritySpan& span : m_integrity.OtherSpans())
        m_hashes.insert(span.hash);
}

bool HashEvidence::IsChanged(uint64_t position, std::span<const unsigned char> chunk) const {
    return m_integrity.Check(position, chunk) == IntegrityTable::Verdict::Wrong &&
           !m_hashes.contains(Hash64(chunk));
}

void HashEvidence::FindWhole(FileWindow& file, const Survey& survey,
                             const std::vector<FoundChunk>& candidates, uint32_t patchesPerRow,
                             const SurveyProgress& progress) {
    if (!survey.mainHeader || !m_integrity.Present() || !m_integrity.Damaged().empty() ||
        !CheckPieces(file, candidates, progress)) {
        return;
    }
    const MainFileHeader& main = *survey.mainHeader;
    for (const uint64_t position :
         {uint64_t{0}, main.scanHeaderPosition, main.lookupTablePosition, main.previewLookupTablePosition,
          main.boundingInformationPosition, main.firstExtendedHeaderPosition}) {
        if (!IsRightFrom(position)) return;
    }
    try {
        const LookupTable table = ReadTable(file, main.lookupTablePosition);
        const LookupTable previews = ReadTable(file, main.previewLookupTablePosition);
        std::vector<Histogram> histograms;
        for (auto record = PeekExtended(file.Stream(), main.firstExtendedHeaderPosition); record;
             record = PeekExtended(file.Stream(), record->End())) {
            if (const auto component = HistogramComponent(record->type))
                histograms.push_back({*component, {record->position, record->recordBytes}});
        }
        if (!AreChangesOf(previews, histograms)) return;
        MinMaxHeader limits(&m_limits);
        if (!file.Stream().Seek(main.boundingInformationPosition) || limits.Read(&file.Stream()) == 0) return;
        std::unordered_set<uint64_t> empty;
        for (const FoundChunk& chunk : survey.sharedEmpty)
            empty.insert(chunk.dataPosition);
        for (const auto& [component, entries] : table) {
            const auto [first, last] =
                std::equal_range(candidates.begin(), candidates.end(), component, ByComponent());
            const auto preview = previews.find(component);
            if (preview == previews.end() || preview->second.empty()) continue;
            const LookupEntry& entry = preview->second.front();
            const auto histogram =
                std::ranges::find(histograms.rbegin(), histograms.rend(), component, &Histogram::component);
            if (!IsRight({entry.position, entry.byteCount}) ||
                (histogram != histograms.rend() && !IsRight(histogram->piece)) ||
                (component == ComponentType::Range && m_limits.size() != entries.size()) ||
                !HasItsChunks(entries, empty, {first, last}, patchesPerRow)) {
                continue;
            }
            m_whole[component] = {entry, histogram == histograms.rend() ? 0 : histogram->piece.first};
        }
    } catch (const kxbase::KXException&) {
        m_whole.clear();  // the device does not answer
    }
}

// False where a piece cannot be read, or where so much was hit that nothing is whole.
bool HashEvidence::CheckPieces(FileWindow& file, const std::vector<FoundChunk>& candidates,
                               const SurveyProgress& progress) {
    std::unordered_map<uint64_t, uint64_t> chunks;
    for (const FoundChunk& chunk : candidates)
        chunks.emplace(chunk.dataPosition, chunk.byteCount);
    std::vector<unsigned char> bytes;
    const auto check = [&](const IntegritySpan& span) {
        if (span.position > file.Size() || span.byteCount > file.Size() - span.position) return false;
        file.Read(span.position, span.byteCount, bytes);
        if (progress) progress(span.position);
        if (m_integrity.Check(span.position, bytes) == IntegrityTable::Verdict::Right) {
            m_right.emplace_back(span.position, span.byteCount);
            return true;
        }
        const auto chunk = chunks.find(span.position);
        if (chunk == chunks.end() || chunk->second != span.byteCount)
            m_changed.emplace_back(span.position, span.byteCount);
        return m_changed.size() <= kMostChanged;
    };
    if (!m_integrity.EachPiece(file.Size(), true, check)) return false;
    std::sort(m_right.begin(), m_right.end());
    return file.UnreadableBytes() == 0;
}

bool HashEvidence::IsRight(const Piece& piece) const {
    return std::binary_search(m_right.begin(), m_right.end(), piece);
}

bool HashEvidence::IsRightFrom(uint64_t position) const {
    const auto piece = std::lower_bound(m_right.begin(), m_right.end(), Piece(position, 0));
    return piece != m_right.end() && piece->first == position;
}

// Whether nothing was hit but chunks of patches, and previews and histograms behind what leads to them and
// past them: those tell of one component each.
bool HashEvidence::AreChangesOf(const LookupTable& previews, const std::vector<Histogram>& histograms) const {
    std::set<Piece> known;
    for (const auto& [component, entries] : previews) {
        for (const LookupEntry& entry : entries) {
            if (IsRight({entry.position, kPreviewHeadBytes})) known.emplace(entry.position, entry.byteCount);
        }
    }
    for (const Histogram& histogram : histograms) {
        if (IsRight({histogram.piece.first, kHistogramHeadBytes})) known.insert(histogram.piece);
    }
    return std::all_of(m_changed.begin(), m_changed.end(),
                       [&](const Piece& piece) { return known.contains(piece); });
}

// Whether the patches of the table have one candidate each, with bytes that are right, and there are no
// others.
bool HashEvidence::HasItsChunks(const std::vector<LookupEntry>& entries,
                                const std::unordered_set<uint64_t>& empty,
                                std::span<const FoundChunk> candidates, uint32_t patchesPerRow) const {
    std::unordered_map<uint64_t, Piece> wanted;
    for (const LookupEntry& entry : entries) {
        if (entry.position == 0 || entry.byteCount == 0 || empty.contains(entry.position)) continue;
        const Piece piece(entry.position, entry.byteCount);
        if (!IsRight(piece)) return false;
        wanted[entry.index] = piece;
    }
    for (const FoundChunk& chunk : candidates) {
        const auto found = wanted.find(uint64_t{chunk.row} * patchesPerRow + chunk.column);
        if (found == wanted.end() || found->second != Piece(chunk.dataPosition, chunk.byteCount))
            return false;
        wanted.erase(found);
    }
    return wanted.empty();
}

}  // namespace kxio
