// SPDX-License-Identifier: MIT
#include "services/FileLayout.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "kxbase/IInFileStream.h"
#include "kxio/DataChunkHeader.h"
#include "reader/RecordAt.h"
#include "services/TableEvidence.h"

namespace kxio {

namespace {

class LayoutFinder {
public:
    LayoutFinder(FileWindow& file, FileLayout& layout) : m_file(file), m_layout(layout) {}

    void Run(const SurveyProgress& progress) {
        ReadMainHeader();
        m_layout.survey = SurveyRecords(m_file, progress);
        FindScanHeader();
        FindTables();
        CollectPieces();
    }

private:
    void ReadMainHeader();
    void FindScanHeader();
    void FindTables();
    void CollectPieces();
    void AddListedChunks(std::vector<FilePiece>& owners) const;
    uint64_t Clipped(uint64_t offset, uint64_t bytes) const {
        return std::min(bytes, m_file.Size() - std::min(offset, m_file.Size()));
    }

    FileWindow& m_file;
    FileLayout& m_layout;
};

void LayoutFinder::ReadMainHeader() {
    MainFileHeader header;
    try {
        if (ReadRecordAt(&m_file.Stream(), 0, header)) m_layout.mainHeader = header;
    } catch (const kxbase::KXException& e) {
        m_layout.refusal = e;
    }
}

void LayoutFinder::FindScanHeader() {
    std::vector<uint64_t> places;
    if (m_layout.mainHeader) places.push_back(m_layout.mainHeader->scanHeaderPosition);
    // A file's own scan header comes behind all its chunks.
    for (auto record = m_layout.survey.records.rbegin(); record != m_layout.survey.records.rend(); ++record) {
        if (record->tag == ScanHeader::Magic) places.push_back(record->position);
    }
    for (const uint64_t position : places) {
        ScanHeader header;
        kxbase::ErrorContext ignored;  // whoever asks for this place reads it again
        if (position == 0 || !ReadRecord(m_file, position, header, ignored)) continue;
        m_layout.scanHeader = header;
        m_layout.scanHeaderPosition = position;
        return;
    }
}

void LayoutFinder::FindTables() {
    const auto take = [&](uint64_t position, LookupTable& table) {
        LookupTableHeader record(&table);
        kxbase::ErrorContext ignored;
        return position != 0 && ReadRecord(m_file, position, record, ignored);
    };
    if (m_layout.mainHeader && take(m_layout.mainHeader->lookupTablePosition, m_layout.patches)) {
        m_layout.tablePosition = m_layout.mainHeader->lookupTablePosition;
    } else {
        const TableEvidence evidence(m_file, m_layout.survey);
        if (evidence.IsValid() && take(evidence.Position(), m_layout.patches))
            m_layout.tablePosition = evidence.Position();
    }
    if (m_layout.mainHeader && m_layout.mainHeader->previewLookupTablePosition != m_layout.tablePosition &&
        take(m_layout.mainHeader->previewLookupTablePosition, m_layout.previews)) {
        m_layout.previewTablePosition = m_layout.mainHeader->previewLookupTablePosition;
        return;
    }
    for (const FoundRecord& record : m_layout.survey.records) {
        if (record.tag != LookupTableHeader::Magic || record.position == m_layout.tablePosition) continue;
        LookupTable table;
        if (!take(record.position, table)) continue;
        const bool onePerComponent =
            !table.empty() && std::all_of(table.begin(), table.end(), [&](auto& entry) {
                return entry.second.size() == 1 &&
                       PlausibleCodecHeader(m_file, entry.second[0].position, entry.second[0].byteCount);
            });
        if (!onePerComponent) continue;
        m_layout.previews = std::move(table);
        m_layout.previewTablePosition = record.position;
        return;
    }
}

/// Chunks that the table lists and the survey did not find.
void LayoutFinder::AddListedChunks(std::vector<FilePiece>& owners) const {
    std::set<std::tuple<uint64_t, uint32_t>> found;
    for (const auto* chunks :
         {&m_layout.survey.chunks, &m_layout.survey.cutChunks, &m_layout.survey.sharedEmpty}) {
        for (const FoundChunk& chunk : *chunks)
            found.insert({chunk.dataPosition, chunk.byteCount});
    }
    const uint32_t perRow = m_layout.scanHeader ? m_layout.scanHeader->properties.grid.PatchesPerRow() : 0;
    for (const auto& [component, entries] : m_layout.patches) {
        for (const LookupEntry& entry : entries) {
            if (entry.position == 0 || entry.byteCount == 0 || entry.position >= m_file.Size()) continue;
            if (!found.insert({entry.position, entry.byteCount}).second) continue;
            FilePiece piece{
                PieceKind::Listed, entry.position, Clipped(entry.position, entry.byteCount), 0, {}, false};
            piece.cut = piece.bytes < entry.byteCount;
            piece.chunk.recordPosition = piece.chunk.dataPosition = entry.position;
            piece.chunk.byteCount = entry.byteCount;
            piece.chunk.component = component;
            piece.chunk.row = perRow == 0 ? 0 : entry.index / perRow;
            piece.chunk.column = perRow == 0 ? entry.index : entry.index % perRow;
            piece.chunk.trust = ChunkTrust::Listed;
            owners.push_back(piece);
        }
    }
}

void LayoutFinder::CollectPieces() {
    // These own their bytes, whatever a search may have seen in them.
    std::vector<FilePiece> owners;
    for (const auto& [component, entries] : m_layout.previews) {
        for (const LookupEntry& entry : entries) {
            if (entry.position == 0 || entry.byteCount == 0 || entry.position >= m_file.Size()) continue;
            FilePiece piece{
                PieceKind::Preview, entry.position, Clipped(entry.position, entry.byteCount), 0, {}, false};
            piece.cut = piece.bytes < entry.byteCount;
            piece.chunk.dataPosition = piece.chunk.recordPosition = entry.position;
            piece.chunk.byteCount = entry.byteCount;
            piece.chunk.component = component;
            owners.push_back(piece);
        }
    }
    AddListedChunks(owners);
    std::sort(owners.begin(), owners.end(), [](const auto& a, const auto& b) { return a.offset < b.offset; });
    std::vector<uint64_t> ends;  // the farthest end of all owners up to each
    for (const FilePiece& owner : owners)
        ends.push_back(std::max(ends.empty() ? 0 : ends.back(), owner.End()));
    const auto isInside = [&](const FilePiece& piece) {
        const auto next =
            std::upper_bound(owners.begin(), owners.end(), piece.offset,
                             [](uint64_t offset, const auto& owner) { return offset < owner.offset; });
        return next != owners.begin() && ends[static_cast<size_t>(next - owners.begin()) - 1] >= piece.End();
    };

    std::vector<FilePiece> pieces;
    if (m_layout.mainHeader)
        pieces.push_back(
            {PieceKind::Record, 0, m_layout.mainHeader->HeaderSize(), MainFileHeader::Magic, {}, false});
    for (const FoundRecord& record : m_layout.survey.records)
        pieces.push_back({PieceKind::Record, record.position, record.size, record.tag, {}, false});
    for (const auto* chunks :
         {&m_layout.survey.chunks, &m_layout.survey.cutChunks, &m_layout.survey.sharedEmpty}) {
        for (const FoundChunk& chunk : *chunks) {
            const uint64_t bytes = chunk.End() - chunk.recordPosition;
            FilePiece piece{PieceKind::Chunk,
                            chunk.recordPosition,
                            Clipped(chunk.recordPosition, bytes),
                            DataChunkHeader::Magic,
                            chunk,
                            false};
            piece.cut = piece.bytes < bytes;
            pieces.push_back(piece);
        }
    }
    std::erase_if(pieces, isInside);
    pieces.insert(pieces.end(), owners.begin(), owners.end());
    std::stable_sort(pieces.begin(), pieces.end(),
                     [](const auto& a, const auto& b) { return a.offset < b.offset; });

    // What is left over between them.
    uint64_t end = 0;
    for (const FilePiece& piece : pieces) {
        if (piece.offset > end)
            m_layout.pieces.push_back({PieceKind::Unknown, end, piece.offset - end, 0, {}, false});
        m_layout.pieces.push_back(piece);
        end = std::max(end, piece.End());
    }
    if (end < m_file.Size())
        m_layout.pieces.push_back({PieceKind::Unknown, end, m_file.Size() - end, 0, {}, false});
}

}  // namespace

FileLayout FindLayout(FileWindow& file, const SurveyProgress& progress) {
    FileLayout layout;
    LayoutFinder(file, layout).Run(progress);
    return layout;
}

bool ReadRecord(FileWindow& file, uint64_t position, kxbase::IOHeader& record,
                kxbase::ErrorContext& problem) {
    try {
        if (ReadRecordAt(&file.Stream(), position, record)) return true;
        problem = ProblemOf(record, position);
    } catch (const kxbase::KXException& e) {
        problem = e.Context();
        problem.detail = std::string(e.what()) + (problem.detail.empty() ? "" : ": " + problem.detail);
        if (!problem.offset) problem.offset = position;
    }
    return false;
}

}  // namespace kxio
