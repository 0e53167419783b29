// SPDX-License-Identifier: MIT
#include "services/TableEvidence.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "kxbase/Exceptions.h"
#include "kxbase/IInFileStream.h"
#include "kxio/DataChunkHeader.h"

namespace kxio {

namespace {

constexpr uint64_t kChunkRecordBytes = kxbase::IOHeader::FrameSize + DataChunkHeader::PayloadSize;

/// Chunks by the position of their data.
class ChunksByData {
public:
    explicit ChunksByData(const Survey& survey) {
        m_chunks.reserve(survey.chunks.size() + survey.sharedEmpty.size());
        for (const auto* chunks : {&survey.chunks, &survey.sharedEmpty}) {
            for (const FoundChunk& chunk : *chunks)
                m_chunks.push_back(&chunk);
        }
        std::sort(m_chunks.begin(), m_chunks.end(),
                  [](const FoundChunk* a, const FoundChunk* b) { return a->dataPosition < b->dataPosition; });
    }
    /// The chunk that the entry names exactly; null when there is none.
    const FoundChunk* Find(kxbase::ComponentType component, const LookupEntry& entry) const {
        const FoundChunk* chunk = FindThere(entry);
        return chunk != nullptr && chunk->component == component ? chunk : nullptr;
    }
    /// The chunk of that place and size, of whatever component.
    const FoundChunk* FindThere(const LookupEntry& entry) const {
        const auto found = std::lower_bound(
            m_chunks.begin(), m_chunks.end(), entry.position,
            [](const FoundChunk* chunk, uint64_t position) { return chunk->dataPosition < position; });
        if (found == m_chunks.end()) return nullptr;
        const FoundChunk& chunk = **found;
        const bool same = chunk.dataPosition == entry.position && chunk.byteCount == entry.byteCount;
        return same ? &chunk : nullptr;
    }

private:
    std::vector<const FoundChunk*> m_chunks;
};

/// Positions that can be asked for.
class Positions {
public:
    void Add(uint64_t position) { m_sorted.push_back(position); }
    void Sort() { std::sort(m_sorted.begin(), m_sorted.end()); }
    bool Contains(uint64_t position) const {
        return std::binary_search(m_sorted.begin(), m_sorted.end(), position);
    }

private:
    std::vector<uint64_t> m_sorted;
};

std::optional<LookupTable> ReadTable(FileWindow& file, const FoundRecord& record) {
    LookupTable table;
    LookupTableHeader header(&table);
    file.Stream().Seek(record.position);
    try {
        if (header.Read(&file.Stream()) == 0) return std::nullopt;
    } catch (const kxbase::KXException&) {
        return std::nullopt;
    }
    return table;
}

/// The number of entries that most components have; of equals the larger.
uint64_t CommonEntryCount(const LookupTable& table) {
    std::map<uint64_t, uint64_t> components;
    for (const auto& [component, entries] : table)
        ++components[entries.size()];
    uint64_t common = 0;
    uint64_t most = 0;
    for (const auto& [count, uses] : components) {
        if (uses < most) continue;
        most = uses;
        common = count;
    }
    return common;
}

}  // namespace

TableEvidence::TableEvidence(FileWindow& file, const Survey& survey) {
    const bool anyTable = std::any_of(survey.records.begin(), survey.records.end(), [](const auto& record) {
        return record.tag == LookupTableHeader::Magic;
    });
    if (!anyTable) return;
    const ChunksByData byData(survey);
    // Records that overlap could make the reading cost the square of the file's size.
    uint64_t budget = 2 * file.Size() + (uint64_t{64} << 20);
    LookupTable best;
    uint64_t most = 0;
    std::vector<LookupTable> others;
    for (const FoundRecord& record : survey.records) {
        if (record.tag != LookupTableHeader::Magic || record.size > budget) continue;
        budget -= record.size;
        std::optional<LookupTable> table = ReadTable(file, record);
        if (!table) continue;
        uint64_t confirmed = 0;
        for (const auto& [component, entries] : *table) {
            for (const LookupEntry& entry : entries)
                confirmed += byData.Find(component, entry) != nullptr ? 1 : 0;
        }
        if (confirmed >= most && confirmed > 0) {  // of equals the later one, as a file's table is its last
            most = confirmed;
            best = std::move(*table);
            m_position = record.position;
        } else if (confirmed == 0) {
            TakePreviews(file, *table);
        }
    }
    m_valid = most > 0;
    if (!m_valid) return;
    m_patchCount = CommonEntryCount(best);
    Judge(file, survey, best);
    VotePatchesPerRow();
}

/// A table of previews has one entry per component, and each leads to a codec header.
void TableEvidence::TakePreviews(FileWindow& file, const LookupTable& table) {
    std::map<kxbase::ComponentType, kxcodecs::ChunkHeaderInfo> previews;
    for (const auto& [component, entries] : table) {
        if (entries.size() != 1) return;
        const auto header = PlausibleCodecHeader(file, entries[0].position, entries[0].byteCount);
        if (header) previews[component] = *header;
    }
    if (!previews.empty()) m_previews = std::move(previews);
}

void TableEvidence::Judge(FileWindow& file, const Survey& survey, const LookupTable& table) {
    const ChunksByData byData(survey);
    const auto usable = [&](const LookupEntry& entry) {
        return entry.position >= kChunkRecordBytes && entry.byteCount != 0 && entry.position < file.Size() &&
               entry.byteCount <= file.Size() - entry.position;
    };
    std::unordered_map<uint64_t, uint64_t> uses;  // of each place: empty patches share one
    for (const auto& [component, entries] : table) {
        for (const LookupEntry& entry : entries) {
            if (usable(entry)) ++uses[entry.position];
        }
    }
    for (const auto& [component, entries] : table) {
        // Where a table and a record contradict each other, one of the two is damaged. In the table a
        // component has one name for all its chunks, so most of the records tell whether it is that one.
        uint64_t agreeing = 0;
        uint64_t contradicting = 0;
        for (const LookupEntry& entry : entries) {
            if (const FoundChunk* there = usable(entry) ? byData.FindThere(entry) : nullptr)
                ++(there->component == component ? agreeing : contradicting);
        }
        for (const LookupEntry& entry : entries) {
            if (!usable(entry)) continue;
            const FoundChunk* found = byData.FindThere(entry);
            const bool shared = uses[entry.position] > 1 ||
                                (found != nullptr && (found->row == DataChunkHeader::SharedEmptyPosition ||
                                                      found->column == DataChunkHeader::SharedEmptyPosition));
            if (shared) {
                ++m_empty[component];
                continue;
            }
            Listed listed;
            listed.index = entry.index;
            listed.found = found != nullptr;
            if (found != nullptr) {
                listed.chunk = *found;
                if (found->component != component) {
                    const bool isTableRight = agreeing > contradicting;
                    if (isTableRight) listed.chunk.component = component;
                    ++(isTableRight ? m_contradictedRecords : m_contradictedEntries);
                }
            } else {
                const uint64_t start = entry.position - kChunkRecordBytes;
                listed.chunk = {start, entry.position, entry.byteCount, component, 0, 0, ChunkTrust::Listed};
            }
            listed.chunk.trust = ChunkTrust::Listed;
            m_listed.push_back(listed);
        }
    }
    SortAndBound(survey);
}

/// An entry whose chunk was not found counts when it fits to something that was: a record begins where its
/// chunk ends, or where another chunk begins that counts so; or a record ends where its own begins. The
/// latter says nothing about its size: where a table is damaged, half an entry may be left, and where bytes
/// were inserted or removed, all further entries fit each other but nothing else.
void TableEvidence::SortAndBound(const Survey& survey) {
    Positions starts;
    Positions ends;
    for (const FoundRecord& record : survey.records) {
        starts.Add(record.position);
        ends.Add(record.End());
    }
    for (const auto* chunks : {&survey.chunks, &survey.sharedEmpty}) {
        for (const FoundChunk& chunk : *chunks) {
            starts.Add(chunk.recordPosition);
            ends.Add(chunk.End());
        }
    }
    ends.Add(MainFileHeader::RecordSize);
    starts.Sort();
    ends.Sort();

    std::sort(m_listed.begin(), m_listed.end(), [](const Listed& a, const Listed& b) {
        return a.chunk.recordPosition < b.chunk.recordPosition;
    });
    std::unordered_set<uint64_t> boundedStarts;
    for (auto listed = m_listed.rbegin(); listed != m_listed.rend(); ++listed) {
        const uint64_t end = listed->chunk.End();
        listed->bounded = listed->found || starts.Contains(end) || boundedStarts.contains(end);
        if (listed->bounded) boundedStarts.insert(listed->chunk.recordPosition);
    }
    std::erase_if(m_listed, [&](const Listed& listed) {
        return !listed.bounded && !ends.Contains(listed.chunk.recordPosition);
    });
    for (const Listed& listed : m_listed) {
        if (listed.bounded) m_bounded.push_back(listed.chunk);
    }
}

/// index = patches per row x row + column: each chunk below the first row tells.
void TableEvidence::VotePatchesPerRow() {
    std::unordered_map<uint64_t, uint64_t> votes;
    for (const Listed& listed : m_listed) {
        if (!listed.found || listed.chunk.row == 0 || listed.chunk.column > listed.index) continue;
        const uint64_t above = uint64_t{listed.index} - listed.chunk.column;
        if (above != 0 && above % listed.chunk.row == 0) ++votes[above / listed.chunk.row];
    }
    uint64_t most = 0;
    for (const auto& [value, count] : votes) {
        if (value > m_patchCount || count < most) continue;
        if (count == most && value > m_patchesPerRow) continue;
        most = count;
        m_patchesPerRow = static_cast<uint32_t>(value);
    }
}

bool TableEvidence::IsInsideChunk(uint64_t first, uint64_t end) const {
    const auto after =
        std::upper_bound(m_bounded.begin(), m_bounded.end(), first,
                         [](uint64_t at, const FoundChunk& chunk) { return at < chunk.recordPosition; });
    if (after == m_bounded.begin()) return false;
    const FoundChunk& chunk = *std::prev(after);
    return first > chunk.recordPosition && end <= chunk.End();
}

}  // namespace kxio
