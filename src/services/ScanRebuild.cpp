// SPDX-License-Identifier: MIT
// Finding what there is to rebuild a scan from; ScanRebuildWriting.cpp writes it.
#include "services/ScanRebuild.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <unordered_set>

#include "kxbase/Exceptions.h"
#include "kxbase/IInFileStream.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxio/DataChunkHeader.h"

namespace kxio {

namespace {

/// Components of one file that are recovered; more are the work of damage.
constexpr size_t kMostComponents = 256;
/// Memory for previews in the making.
constexpr uint64_t kMostPreviewBytes = uint64_t{512} << 20;

auto PatchOf(const FoundChunk& chunk) {
    return std::tuple(chunk.component, chunk.row, chunk.column);
}

/// One of the components that have a number of their own.
bool IsNamed(kxbase::ComponentType component) {
    return component >= kxbase::Range && component <= kxbase::Segment;
}

/// By patch; within one the chunks that are better founded first, then those further back in the file.
bool ComesBefore(const FoundChunk& a, const FoundChunk& b) {
    if (PatchOf(a) != PatchOf(b)) return PatchOf(a) < PatchOf(b);
    if (a.trust != b.trust) return a.trust > b.trust;
    return a.recordPosition > b.recordPosition;
}

}  // namespace

ScanRebuild::ScanRebuild(kxbase::IInFileStream& in, kxbase::IOutFileStream& out,
                         const RecoveryOptions& options)
    : m_in(in),
      m_file(m_in),
      m_out(out),
      m_options(options),
      m_previewBytesLeft(kMostPreviewBytes),
      // Chunks that overlap could make the reading cost the square of the file's size.
      m_readBudget(4 * m_file.Size() + (uint64_t{64} << 20)) {
    m_file.ReadAhead();
}

ScanRebuild::~ScanRebuild() = default;

void ScanRebuild::Progress(uint64_t done) {
    if (m_options.progress) m_options.progress(done, 2 * m_report.fileBytes);
}

RecoveryReport ScanRebuild::Run() {
    m_report.fileBytes = m_file.Size();
    if (m_in.HiddenFrom()) {
        m_report.warnings.push_back(m_in.IsPromised() ? "an edit that was interrupted counts as made"
                                                      : "what an interrupted edit left is left out");
    }
    Gather();
    Create();
    FindWholeComponents();
    WritePatches();
    KeepWidthWithoutGrid();
    SetAngles();
    SetProperties();
    CompleteReport();
    m_writer.EndCreation();
    AppendFurtherRecords();
    Progress(2 * m_report.fileBytes);
    return std::move(m_report);
}

void ScanRebuild::Gather() {
    m_survey = SurveyRecords(m_file, [&](uint64_t bytes) { Progress(bytes); });
    m_table = std::make_unique<TableEvidence>(m_file, m_survey);
    m_salvaged = SalvageProperties(m_file, m_survey, *m_table);
    if (m_salvaged.hashes && m_options.limits.checkHashes) m_hashes = HashEvidence(m_file, m_survey);
    std::optional<kxbase::GridTopology> header;
    if (m_salvaged.hasScanHeader) header = m_salvaged.properties.grid;

    uint32_t patchesPerRow = m_table->PatchesPerRow();
    if (patchesPerRow == 0 && header) patchesPerRow = header->PatchesPerRow();
    AddListedChunks(patchesPerRow);
    AddUnlistedChunks();
    KeepCommonComponents();
    std::set<kxbase::ComponentType> components;
    for (const FoundChunk& chunk : m_candidates)
        components.insert(chunk.component);
    const uint64_t strays = RemoveStrayChunks(m_candidates, header, m_file.Size(), components.size());
    if (strays != 0) {
        m_report.warnings.push_back(
            std::to_string(strays) +
            " chunks with row or column numbers that can only be damage were left out");
    }
    if (m_candidates.empty() && !header) {
        kxbase::ErrorContext context;
        context.file = kxbase::Encode_UTF8(m_file.Stream().GetName());
        context.detail = "neither a chunk nor a scan header in " + std::to_string(m_file.Size()) + " bytes";
        throw kxbase::KXIncompleteFileException("Nothing to recover", context);
    }
    const ChunkStatistics statistics = MeasureChunks(m_file, m_candidates);
    m_decision = DecideGrid(header, *m_table, statistics, m_file.Size(), components.size());
    std::sort(m_candidates.begin(), m_candidates.end(), ComesBefore);
    CountFound();
    if (!m_decision.withoutGrid) TrimGrid();
}

/// Where only whole patches are known, the grid ends with the last column and row that hold a value: writers
/// fill up the last patches with zeros, and no cell of a scan has all its angles zero.
void ScanRebuild::TrimGrid() {
    kxbase::GridTopology& grid = m_decision.grid;
    const uint32_t lastColumn = grid.PatchesPerRow() - 1;
    const uint32_t lastRow = grid.PatchesPerColumn() - 1;
    uint64_t columns = 0;  // of the last patches, that hold a value
    uint64_t rows = 0;
    const FoundChunk* before = nullptr;
    for (const FoundChunk& chunk : m_candidates) {
        const bool best = before == nullptr || PatchOf(*before) != PatchOf(chunk);
        before = &chunk;
        const bool right = m_decision.columnsAreWholePatches && chunk.column == lastColumn;
        const bool bottom = m_decision.rowsAreWholePatches && chunk.row == lastRow;
        kxcodecs::ChunkHeaderInfo header;
        if (!best || (!right && !bottom) || !ReadValues(chunk, header)) continue;
        // JPEG makes something of nothing.
        if (header.codecId == kxcodecs::JPEGChunkCodec::kIdentifier) continue;
        if (header.width != grid.patchWidth || header.height != grid.patchHeight) return;
        const uint64_t elementBytes = header.ElementBytes();
        for (uint64_t i = 0; i < m_values.size(); ++i) {
            if (m_values[i] == 0) continue;
            const uint64_t cell = i / elementBytes;
            if (right) columns = std::max(columns, cell % grid.patchWidth + 1);
            if (bottom) rows = std::max(rows, cell / grid.patchWidth + 1);
        }
    }
    const kxbase::GridTopology whole = grid;
    if (columns != 0) grid.columns = static_cast<uint32_t>(uint64_t{lastColumn} * grid.patchWidth + columns);
    if (rows != 0) grid.rows = static_cast<uint32_t>(uint64_t{lastRow} * grid.patchHeight + rows);
    if (grid.columns != whole.columns || grid.rows != whole.rows) {
        m_decision.notes.push_back("the grid ends with the last column and row that hold a value: " +
                                   std::to_string(grid.columns) + " x " + std::to_string(grid.rows));
    }
}

/// The chunks that the lookup table names, at the place in the grid that it names.
void ScanRebuild::AddListedChunks(uint32_t patchesPerRow) {
    uint64_t moved = 0;
    for (const TableEvidence::Listed& listed : m_table->Chunks()) {
        FoundChunk chunk = listed.chunk;
        if (patchesPerRow != 0) {
            chunk.row = listed.index / patchesPerRow;
            chunk.column = listed.index % patchesPerRow;
            const bool same = chunk.row == listed.chunk.row && chunk.column == listed.chunk.column;
            if (listed.found && !same) ++moved;
        } else if (!listed.found) {
            chunk.row = 0;
            chunk.column = listed.index;
        }
        m_candidates.push_back(chunk);
    }
    if (moved != 0) {
        m_report.warnings.push_back(std::to_string(moved) +
                                    " chunks lie at the patch that the lookup table names, not at the one "
                                    "that their record names");
    }
    if (m_table->ContradictedRecords() != 0) {
        m_report.warnings.push_back(
            std::to_string(m_table->ContradictedRecords()) +
            " chunks have the component that the lookup table names, not the one that "
            "their record names");
    }
    if (m_table->ContradictedEntries() != 0) {
        m_report.warnings.push_back(
            std::to_string(m_table->ContradictedEntries()) +
            " chunks have the component that their record names, not the one that the "
            "lookup table names");
    }
}

/// All other chunks, but not those that lie inside chunks of the table.
void ScanRebuild::AddUnlistedChunks() {
    std::unordered_set<uint64_t> listed;
    for (const TableEvidence::Listed& chunk : m_table->Chunks()) {
        if (chunk.found) listed.insert(chunk.chunk.recordPosition);
    }
    std::set<kxbase::ComponentType> components;
    for (const FoundChunk& chunk : m_candidates)
        components.insert(chunk.component);
    for (const FoundChunk& chunk : m_survey.chunks) {
        if (chunk.trust == ChunkTrust::Framed) components.insert(chunk.component);
    }
    uint64_t inside = 0;
    for (const FoundChunk& chunk : m_survey.chunks) {
        if (listed.contains(chunk.recordPosition)) continue;
        if (m_table->IsInsideChunk(chunk.recordPosition, m_survey.EndOfRun(chunk))) {
            ++inside;
            continue;
        }
        // Where the frame was damaged, what follows it may be too.
        const bool known = components.contains(chunk.component) || IsNamed(chunk.component);
        if (chunk.trust == ChunkTrust::Repaired && !known) continue;
        m_candidates.push_back(chunk);
    }
    if (inside != 0) {
        m_report.warnings.push_back(std::to_string(inside) +
                                    " chunk records inside the data of other chunks were passed over");
    }
}

void ScanRebuild::KeepCommonComponents() {
    std::map<kxbase::ComponentType, uint64_t> uses;
    for (const FoundChunk& chunk : m_candidates)
        ++uses[chunk.component];
    if (uses.size() <= kMostComponents) return;
    std::vector<std::pair<uint64_t, kxbase::ComponentType>> byUse;
    for (const auto& [component, count] : uses)
        byUse.emplace_back(count, component);
    std::sort(byUse.rbegin(), byUse.rend());
    std::set<kxbase::ComponentType> kept;
    for (size_t i = 0; i < kMostComponents; ++i)
        kept.insert(byUse[i].second);
    std::erase_if(m_candidates, [&](const FoundChunk& chunk) { return !kept.contains(chunk.component); });
    m_report.warnings.push_back("only " + std::to_string(kMostComponents) + " of " +
                                std::to_string(uses.size()) + " components were recovered");
}

/// Counts per component the patches of which something was found, also where nothing can be read.
void ScanRebuild::CountFound() {
    const FoundChunk* before = nullptr;
    for (const FoundChunk& chunk : m_candidates) {
        if (before == nullptr || PatchOf(*before) != PatchOf(chunk)) ++m_components[chunk.component].found;
        before = &chunk;
    }
    const auto byPatch = [](const FoundChunk& a, const FoundChunk& b) { return PatchOf(a) < PatchOf(b); };
    const kxbase::GridTopology& grid = m_decision.grid;
    std::vector<FoundChunk> cut;
    for (const FoundChunk& chunk : m_survey.cutChunks) {
        // Its size may be what is damaged, and so may be its place.
        const bool inside = m_decision.withoutGrid ||
                            (chunk.row < grid.PatchesPerColumn() && chunk.column < grid.PatchesPerRow());
        if (inside && m_components.contains(chunk.component) &&
            !m_table->IsInsideChunk(chunk.recordPosition, m_survey.EndOfRun(chunk)) &&
            !std::binary_search(m_candidates.begin(), m_candidates.end(), chunk, byPatch)) {
            cut.push_back(chunk);
        }
    }
    std::sort(cut.begin(), cut.end(), byPatch);
    before = nullptr;
    for (const FoundChunk& chunk : cut) {
        if (before == nullptr || PatchOf(*before) != PatchOf(chunk)) ++m_components[chunk.component].found;
        before = &chunk;
    }
    for (auto& [component, counts] : m_components)
        counts.component = component;
}

}  // namespace kxio
