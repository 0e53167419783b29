// SPDX-License-Identifier: MIT
#include "services/VerifyTables.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/DataChunkHeader.h"

namespace kxio {

namespace {

std::string Number(uint64_t value) {
    return std::to_string(value);
}

std::string PlaceText(uint32_t row, uint32_t column) {
    return "row " + Number(row) + ", column " + Number(column);
}

bool IsSharedEmpty(const FoundChunk& chunk) {
    return chunk.row == DataChunkHeader::SharedEmptyPosition ||
           chunk.column == DataChunkHeader::SharedEmptyPosition;
}

class TableCheck {
public:
    TableCheck(FileWindow& file, const FileLayout& layout, FindingList& findings, VerifyReport& report)
        : m_file(file), m_layout(layout), m_findings(findings), m_report(report) {
        if (layout.scanHeader) m_grid = layout.scanHeader->properties.grid;
        for (const FilePiece& piece : layout.pieces) {
            if (piece.kind == PieceKind::Chunk) m_chunks.push_back(&piece);
        }
        std::sort(m_chunks.begin(), m_chunks.end(), [](const FilePiece* a, const FilePiece* b) {
            return a->chunk.dataPosition < b->chunk.dataPosition;
        });
        m_listed.resize(m_chunks.size());
    }

    ListedChunks Run() {
        TableRecords();
        Previews();
        Pieces();
        if (m_layout.tablePosition) {
            for (const auto& [component, entries] : m_layout.patches)
                Entries(component, entries);
            UnlistedChunks();
        } else {
            FoundChunks();
        }
        Count();
        return std::move(m_result);
    }

private:
    struct Use {
        uint64_t position;
        uint32_t byteCount;
        uint32_t index;
    };

    void TableRecords();
    void Previews();
    void Pieces();
    void Unknown(const FilePiece& piece);
    void Entries(kxbase::ComponentType component, const std::vector<LookupEntry>& entries);
    bool Entry(kxbase::ComponentType component, const Use& use, uint64_t users, ListedChunk& listed);
    void UnlistedChunks();
    void FoundChunks();
    void Count();
    const FilePiece* PieceAt(uint64_t dataPosition, size_t& index) const;
    FindingDraft PatchError(kxbase::ComponentType component, uint32_t row, uint32_t column) {
        return Error("lookup table").Of(component).Patch(row, column);
    }

    FileWindow& m_file;
    const FileLayout& m_layout;
    FindingList& m_findings;
    VerifyReport& m_report;
    kxbase::GridTopology m_grid;
    std::vector<const FilePiece*> m_chunks;  // by data position
    std::vector<bool> m_listed;              // of them
    ListedChunks m_result;
};

void TableCheck::TableRecords() {
    kxbase::ErrorContext problem;
    const auto check = [&](uint64_t position, const char* field, const std::optional<uint64_t>& used,
                           const LookupTable& expected) {
        LookupTable table;
        LookupTableHeader record(&table);
        if (!ReadRecord(m_file, position, record, problem)) {
            m_findings.Add(
                Error("LookupTableHeader")
                    .At(problem.offset)
                    .Field(problem.field)
                    .Says("no such record where the main header's " + std::string(field) + " points, byte " +
                          Number(position) + ": " + problem.detail +
                          (used ? "; the one at byte " + Number(*used) + " was taken" : std::string())));
            return;
        }
        LookupTable copy = expected;
        const LookupTableHeader size(&copy);
        if (record.GetDataSize() != size.DataSize(record.GetVersion()))
            m_findings.Add(Warning("LookupTableHeader")
                               .At(position + 12)
                               .Field("payload size")
                               .Says(Number(record.GetDataSize()) + " bytes, of which " +
                                     Number(size.DataSize(record.GetVersion())) + " are used"));
        if (record.GetVersion() != LookupTableHeader::CurrentVersion)
            m_findings.Add(Warning("LookupTableHeader")
                               .At(position + 8)
                               .Field("version")
                               .Says(Number(record.GetVersion()) + ", where " +
                                     Number(LookupTableHeader::CurrentVersion) + " is known"));
    };
    if (m_layout.mainHeader) {
        const MainFileHeader& h = *m_layout.mainHeader;
        if (h.lookupTablePosition == 0) {
            m_findings.Add(Error("MainFileHeader")
                               .At(kxbase::IOHeader::FrameSize + 48)
                               .Field("lookup table position")
                               .Says("0: the file was not finished"));
        } else {
            check(h.lookupTablePosition, "lookup table position", m_layout.tablePosition, m_layout.patches);
        }
        if (h.previewLookupTablePosition != 0)
            check(h.previewLookupTablePosition, "preview lookup table position",
                  m_layout.previewTablePosition, m_layout.previews);
    }
    if (!m_layout.tablePosition)
        m_findings.Add(
            Error("LookupTableHeader").Says("no lookup table; the chunks that were found are taken"));
}

void TableCheck::Previews() {
    for (const auto& [component, entries] : m_layout.previews) {
        if (entries.size() != 1)
            m_findings.Add(Warning("preview lookup table")
                               .At(m_layout.previewTablePosition)
                               .Of(component)
                               .Says(Number(entries.size()) + " entries, where 1 is expected"));
        m_report.previews += entries.size();
        if (!m_layout.patches.empty() && !m_layout.patches.contains(component))
            m_findings.Add(Warning("preview lookup table")
                               .At(m_layout.previewTablePosition)
                               .Of(component)
                               .Says("the file has no patches of this component"));
        for (const LookupEntry& entry : entries) {
            if (entry.position == 0 || entry.byteCount == 0) {
                m_findings.Add(Error("preview lookup table")
                                   .At(m_layout.previewTablePosition)
                                   .Of(component)
                                   .Says("an entry without a preview"));
            } else if (entry.position > m_file.Size() || entry.byteCount > m_file.Size() - entry.position) {
                m_findings.Add(Error("preview lookup table")
                                   .At(m_layout.previewTablePosition)
                                   .Of(component)
                                   .Says(Number(entry.byteCount) + " bytes at byte " +
                                         Number(entry.position) + ", but the file ends at " +
                                         Number(m_file.Size())));
            } else if (!PlausibleCodecHeader(m_file, entry.position, entry.byteCount)) {
                m_findings.Add(Error("preview")
                                   .At(entry.position)
                                   .Of(component)
                                   .Says("no header of a codec that this library has"));
            }
        }
    }
}

void TableCheck::Unknown(const FilePiece& piece) {
    // A preview that lost its place in the table to another one stays in the file.
    const bool preview = piece.bytes <= UINT32_MAX && m_layout.mainHeader &&
                         PlausibleCodecHeader(m_file, piece.offset, static_cast<uint32_t>(piece.bytes));
    if (preview && !m_layout.previews.empty()) {
        std::vector<unsigned char> chunk;
        kxcodecs::ChunkHeaderInfo header;
        std::vector<unsigned char> values;
        m_file.Read(piece.offset, piece.bytes, chunk);
        if (kxcodecs::QKXChunkCodec::DecodeChunk(chunk, header, values) == kxcodecs::DecodeStatus::Decoded)
            return;
    }
    m_findings.Add(
        Error("bytes")
            .At(piece.offset)
            .Says(Number(piece.bytes) + " bytes up to byte " + Number(piece.End()) + " belong to no record"));
}

void TableCheck::Pieces() {
    uint64_t end = 0;
    const FilePiece* farthest = nullptr;
    for (const FilePiece& piece : m_layout.pieces) {
        switch (piece.kind) {
            case PieceKind::Unknown:
                Unknown(piece);
                continue;
            case PieceKind::Chunk:
                ++m_report.records;
                if (piece.cut)
                    m_findings.Add(Error("chunk")
                                       .At(piece.offset)
                                       .Field("byte count")
                                       .Of(piece.chunk.component)
                                       .Says(Number(piece.chunk.byteCount) + ", but the file ends at byte " +
                                             Number(m_file.Size())));
                if (piece.chunk.trust == ChunkTrust::Repaired)
                    m_findings.Add(Error("chunk")
                                       .At(piece.offset)
                                       .Field("frame")
                                       .Says("the frame of its record is damaged"));
                break;
            case PieceKind::Record:
                ++m_report.records;
                break;
            default:
                break;
        }
        if (farthest != nullptr && piece.offset < end)
            m_findings.Add(
                Error("bytes")
                    .At(piece.offset)
                    .Says("what begins here lies inside what begins at byte " + Number(farthest->offset)));
        if (piece.End() > end) {
            end = piece.End();
            farthest = &piece;
        }
    }
    m_report.isScanFile = m_report.records != 0;
    if (m_layout.survey.secondFile)
        m_findings.Add(Error("bytes").At(m_layout.survey.secondFile).Says("another scan file begins here"));
}

const FilePiece* TableCheck::PieceAt(uint64_t dataPosition, size_t& index) const {
    const auto found = std::lower_bound(
        m_chunks.begin(), m_chunks.end(), dataPosition,
        [](const FilePiece* piece, uint64_t position) { return piece->chunk.dataPosition < position; });
    if (found == m_chunks.end() || (*found)->chunk.dataPosition != dataPosition) return nullptr;
    index = static_cast<size_t>(found - m_chunks.begin());
    return *found;
}

/// Verifies what an entry points to. False when there is nothing to decode.
bool TableCheck::Entry(kxbase::ComponentType component, const Use& use, uint64_t users, ListedChunk& listed) {
    const uint32_t perRow = m_grid.PatchesPerRow();
    listed.position = use.position;
    listed.byteCount = use.byteCount;
    listed.index = use.index;
    listed.row = perRow == 0 ? 0 : use.index / perRow;
    listed.column = perRow == 0 ? use.index : use.index % perRow;
    const auto error = [&](const char* field, std::string text) {
        m_findings.Add(PatchError(component, listed.row, listed.column)
                           .At(use.position)
                           .Field(field)
                           .Says(std::move(text)));
        listed.damaged = true;
    };
    if (use.position > m_file.Size() || use.byteCount > m_file.Size() - use.position) {
        error("position", Number(use.byteCount) + " bytes at byte " + Number(use.position) +
                              ", but the file ends at " + Number(m_file.Size()));
        return false;
    }
    size_t index = 0;
    const FilePiece* piece = PieceAt(use.position, index);
    if (piece == nullptr) {
        error("position", "no chunk record lies just before byte " + Number(use.position));
        return true;
    }
    m_listed[index] = true;
    const FoundChunk& chunk = piece->chunk;
    listed.sharedEmpty = IsSharedEmpty(chunk);
    if (chunk.byteCount != use.byteCount)
        error("byte count", Number(use.byteCount) + ", but the chunk record says " + Number(chunk.byteCount));
    if (chunk.component != component)
        error("component", "the chunk record says " + kxbase::ComponentToString(chunk.component));
    if (listed.sharedEmpty) return true;
    if (users > 1) {
        error("position", "the chunk of one patch stands for " + Number(users) + " patches");
    } else if (perRow != 0 && (chunk.row != listed.row || chunk.column != listed.column)) {
        error("position", "the chunk record says " + PlaceText(chunk.row, chunk.column));
    }
    if (chunk.trust == ChunkTrust::Repaired) listed.damaged = true;
    return true;
}

void TableCheck::Entries(kxbase::ComponentType component, const std::vector<LookupEntry>& entries) {
    std::vector<Use> uses;
    uint64_t absent = 0;
    const uint64_t patches = m_grid.PatchCount64();
    const uint32_t perRow = m_grid.PatchesPerRow();
    std::optional<uint32_t> firstAbsent;
    for (const LookupEntry& entry : entries) {
        const bool has = entry.position != 0 && entry.byteCount != 0;
        if (has && entry.index < std::max<uint64_t>(patches, m_layout.scanHeader ? 0 : UINT64_MAX)) {
            uses.push_back({entry.position, entry.byteCount, entry.index});
        } else if (has) {
            m_findings.Add(Error("lookup table")
                               .At(entry.position)
                               .Of(component)
                               .Says("entry " + Number(entry.index) + ", but the grid has " +
                                     Number(patches) + " patches"));
        } else {
            if (entry.position != 0 || entry.byteCount != 0)
                m_findings.Add(Error("lookup table")
                                   .At(m_layout.tablePosition)
                                   .Of(component)
                                   .Says("entry " + Number(entry.index) + " has position " +
                                         Number(entry.position) + " and byte count " +
                                         Number(entry.byteCount) + "; only both may be 0"));
            if (entry.index < patches) {
                ++absent;
                if (!firstAbsent) firstAbsent = entry.index;
            }
        }
    }
    if (m_layout.scanHeader && entries.size() < patches) {
        absent += patches - entries.size();
        if (!firstAbsent) firstAbsent = static_cast<uint32_t>(entries.size());
    }
    m_report.absentPatches += absent;
    if (absent != 0 && perRow != 0)
        m_findings.Add(Warning("lookup table")
                           .At(m_layout.tablePosition)
                           .Of(component)
                           .Patch(*firstAbsent / perRow, *firstAbsent % perRow)
                           .Says(Number(absent) + " patches are not in the file, this one the first"));

    std::sort(uses.begin(), uses.end(), [](const Use& a, const Use& b) {
        return std::tie(a.position, a.byteCount, a.index) < std::tie(b.position, b.byteCount, b.index);
    });
    std::vector<ListedChunk>& chunks = m_result[component];
    uint64_t shared = 0;
    for (size_t i = 0; i < uses.size();) {
        size_t end = i + 1;
        while (end < uses.size() && uses[end].position == uses[i].position &&
               uses[end].byteCount == uses[i].byteCount)
            ++end;
        ListedChunk listed;
        const bool toDecode = Entry(component, uses[i], end - i, listed);
        if (listed.sharedEmpty) {
            m_report.emptyPatches += end - i;
            if (++shared == 2)
                m_findings.Add(Note("chunk")
                                   .At(listed.position)
                                   .Of(component)
                                   .Says("a second chunk that empty patches share"));
        }
        ++m_report.chunks;
        if (toDecode) {
            chunks.push_back(listed);
        } else {
            ++m_report.damagedChunks;
        }
        i = end;
    }
}

/// Chunks that a valid table does not list: earlier ones of a patch that came twice, or lost ones.
void TableCheck::UnlistedChunks() {
    const uint32_t perRow = m_grid.PatchesPerRow();
    std::set<std::pair<kxbase::ComponentType, uint64_t>> superseding;
    for (size_t i = 0; i < m_chunks.size(); ++i) {
        if (m_listed[i]) continue;
        const FoundChunk& chunk = m_chunks[i]->chunk;
        const auto entries = m_layout.patches.find(chunk.component);
        const uint64_t index = uint64_t{perRow} * chunk.row + chunk.column;
        size_t ignored = 0;
        const bool other = entries != m_layout.patches.end() && chunk.row < m_grid.PatchesPerColumn() &&
                           chunk.column < perRow && index < entries->second.size() &&
                           entries->second[index].position > chunk.dataPosition &&
                           PieceAt(entries->second[index].position, ignored) != nullptr;
        if (other) {
            superseding.insert({chunk.component, index});
            m_findings.Add(Note("chunk")
                               .At(m_chunks[i]->offset)
                               .Of(chunk.component)
                               .Patch(chunk.row, chunk.column)
                               .Says("a later chunk of the same patch takes its place"));
            continue;
        }
        FindingDraft draft = Error("chunk").At(m_chunks[i]->offset).Of(chunk.component);
        if (!IsSharedEmpty(chunk)) draft.Patch(chunk.row, chunk.column);
        m_findings.Add(draft.Says("the lookup table does not list it"));
    }
    if (superseding.empty()) return;
    for (auto& [component, chunks] : m_result) {
        for (ListedChunk& listed : chunks)
            listed.superseded = !listed.sharedEmpty && superseding.contains({component, listed.index});
    }
}

/// Without a table the last chunk of each patch counts.
void TableCheck::FoundChunks() {
    std::set<std::tuple<kxbase::ComponentType, uint32_t, uint32_t>> taken;
    const uint32_t perRow = m_grid.PatchesPerRow();
    for (auto piece = m_chunks.rbegin(); piece != m_chunks.rend(); ++piece) {
        const FoundChunk& chunk = (*piece)->chunk;
        if ((*piece)->cut || !taken.insert({chunk.component, chunk.row, chunk.column}).second) continue;
        ListedChunk listed;
        listed.position = chunk.dataPosition;
        listed.byteCount = chunk.byteCount;
        listed.row = chunk.row;
        listed.column = chunk.column;
        listed.sharedEmpty = IsSharedEmpty(chunk);
        listed.index = perRow * chunk.row + chunk.column;
        listed.damaged = chunk.trust == ChunkTrust::Repaired;
        m_result[chunk.component].push_back(listed);
        ++m_report.chunks;
    }
    for (auto& [component, chunks] : m_result)
        std::reverse(chunks.begin(), chunks.end());
}

void TableCheck::Count() {
    m_report.components = m_result.size();
    m_report.patches = m_grid.PatchCount64() * m_result.size();
}

}  // namespace

ListedChunks VerifyTables(FileWindow& file, const FileLayout& layout, FindingList& findings,
                          VerifyReport& report) {
    return TableCheck(file, layout, findings, report).Run();
}

}  // namespace kxio
