// SPDX-License-Identifier: MIT
// The new file of a recovery: patches, grid, properties, report.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "kxbase/Exceptions.h"
#include "kxbase/IInFileStream.h"
#include "kxbase/IOutFileStream.h"
#include "kxbase/Sizes.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/Quantise.h"
#include "reader/PatchDecoder.h"
#include "services/ScanRebuild.h"
#include "writer/PatchLimits.h"
#include "writer/PatchPlace.h"
#include "writer/QSNScanWriterImpl.h"

namespace kxio {

namespace {

using kxbase::ComponentType;
using kxbase::GridTopology;
using kxcodecs::ChunkHeaderInfo;
using kxcodecs::DecodeStatus;
using kxcodecs::QKXChunkCodec;

/// Larger elements get no preview.
constexpr uint64_t kMostPreviewElementBytes = 64;
/// Bytes per cell that a patch may decode to.
constexpr uint64_t kMostCellBytes = 64;

std::string Count(uint64_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

void ScanRebuild::SetPreviewSize(GridTopology& grid) const {
    grid.UpdatePreview(2.0);
    if (!m_decision.sizeFromHeader || m_table->Previews().empty()) return;
    const ChunkHeaderInfo& first = m_table->Previews().begin()->second;
    const uint64_t pixels = first.ElementCount();
    if (first.width == 0 || first.height == 0 || first.width > grid.columns || first.height > grid.rows ||
        pixels * kMostPreviewElementBytes > m_previewBytesLeft) {
        return;
    }
    grid.previewWidth = first.width;
    grid.previewHeight = first.height;
    grid.columnRatio = static_cast<float>(grid.columns) / static_cast<float>(first.width);
    grid.rowRatio = static_cast<float>(grid.rows) / static_cast<float>(first.height);
}

void ScanRebuild::Create() {
    GridTopology& grid = m_decision.grid;
    if (grid.PatchCount64() > MostTableEntries(m_file.Size())) {
        kxbase::ErrorContext context;
        context.file = kxbase::Encode_UTF8(m_file.Stream().GetName());
        context.record = "ScanHeader";
        context.detail = "no chunk was found, and a grid of " + std::to_string(grid.PatchCount64()) +
                         " patches cannot be that of a file of " + std::to_string(m_file.Size()) + " bytes";
        throw kxbase::KXIncompleteFileException("Nothing to recover", context);
    }
    grid.UpdateHalfSteps();
    SetPreviewSize(grid);
    if (m_decision.withoutGrid) {
        m_writer.CreateNew(&m_out);
    } else {
        m_writer.CreateNew(&m_out, grid);
    }
    m_writer.DisableHistogramComputation(!MakesHistograms());
    m_writer.SetIntegrity(m_salvaged.hashes);
}

/// A file whose tail is whole and holds no histogram was written without any.
bool ScanRebuild::MakesHistograms() const {
    return !m_salvaged.tailWhole || !m_salvaged.histograms.empty();
}

void ScanRebuild::WritePatches() {
    // Patches in the order of the file, for the sake of the disk and of whoever reads the new file.
    std::vector<size_t> patches;
    for (size_t i = 0; i < m_candidates.size(); ++i) {
        const bool first =
            i == 0 ||
            std::tuple(m_candidates[i - 1].component, m_candidates[i - 1].row, m_candidates[i - 1].column) !=
                std::tuple(m_candidates[i].component, m_candidates[i].row, m_candidates[i].column);
        if (first) patches.push_back(i);
    }
    std::sort(patches.begin(), patches.end(), [&](size_t a, size_t b) {
        return m_candidates[a].recordPosition < m_candidates[b].recordPosition;
    });
    for (const size_t first : patches) {
        const FoundChunk& patch = m_candidates[first];
        Progress(m_report.fileBytes + patch.recordPosition);
        for (size_t i = first; i < m_candidates.size(); ++i) {
            const FoundChunk& chunk = m_candidates[i];
            if (chunk.component != patch.component || chunk.row != patch.row ||
                chunk.column != patch.column || WritePatch(chunk)) {
                break;
            }
        }
    }
    if (m_components.contains(kxbase::Range)) {
        m_writer.SetPointcount(m_report.pointsSaved);
    } else {
        // The points are those of another component; nobody but the scan header knows their number.
        m_writer.SetPointcount(m_salvaged.properties.validPointCount);
    }
}

/// Whether the writer may make a preview of the component; it keeps the image in memory.
bool ScanRebuild::MayBePreviewed(ComponentType component, uint64_t elementBytes) {
    if (elementBytes > kMostPreviewElementBytes) return false;
    const GridTopology& grid = m_decision.grid;
    const uint64_t bytes = kxbase::SizeProduct(grid.previewWidth, grid.previewHeight, elementBytes);
    uint64_t& taken = m_previewElementBytes[component];
    if (taken >= elementBytes) return true;
    if (bytes > m_previewBytesLeft) return false;
    m_previewBytesLeft -= bytes;
    taken = elementBytes;
    return true;
}

/// Reads and decodes a chunk into `m_chunk` and `m_values`. False when it is not whole, or other values than
/// were written came out.
bool ScanRebuild::ReadValues(const FoundChunk& chunk, ChunkHeaderInfo& header) {
    if (chunk.byteCount > m_readBudget) return false;
    const auto claim = PlausibleCodecHeader(m_file, chunk.dataPosition, chunk.byteCount, UINT64_MAX);
    if (!claim || !ExceededLimit(*claim, chunk.byteCount, m_options.limits).empty()) return false;
    m_readBudget -= chunk.byteCount;
    m_file.Read(chunk.dataPosition, chunk.byteCount, m_chunk);
    const GridTopology& grid = m_decision.grid;
    const uint64_t patchBytes = kxbase::SizeProduct(grid.patchWidth, grid.patchHeight, kMostCellBytes);
    const bool small = m_decision.withoutGrid || patchBytes < (1 << 20);
    const uint64_t most = small ? m_options.limits.decodedBytes : patchBytes;
    return m_chunk.size() == chunk.byteCount && !m_hashes.IsChanged(chunk.dataPosition, m_chunk) &&
           QKXChunkCodec::DecodeChunk(m_chunk, header, m_values, most) == DecodeStatus::Decoded;
}

/// Where anything but chunks was hit, or the grid is put together from what is left, everything is decoded.
void ScanRebuild::FindWholeComponents() {
    if (m_salvaged.thumbnail.empty() || m_in.HiddenFrom() || !m_decision.sizeFromHeader ||
        !m_decision.anglesFromHeader || m_decision.withoutGrid) {
        return;
    }
    m_hashes.FindWhole(m_file, m_survey, m_candidates, m_decision.grid.PatchesPerRow(),
                       [this](uint64_t /*bytes*/) { Progress(m_report.fileBytes); });
}

/// What the file tells of the patches of a component is told of them in the new one.
void ScanRebuild::KeepWhole(ComponentType component, uint64_t codecId) {
    const HashEvidence::Component& parts = m_hashes.Whole().at(component);
    std::unique_ptr<StoredChunkCodec>& codec = m_codecs[component];
    codec = std::make_unique<StoredChunkCodec>(codecId);
    m_writer.m_impl->KeepPreview(component, codec.get(), [this, preview = parts.preview] {
        m_file.Read(preview.position, preview.byteCount, m_values);
        return std::span<const unsigned char>(m_values);
    });
    if (parts.histogram != 0) {
        m_writer.m_impl->KeepHistogram([this, position = parts.histogram] {
            auto record = std::make_unique<ExtendedHeader>();
            if (!m_in.Seek(position) || record->Read(&m_in) == 0) record.reset();
            return record;
        });
    }
    if (component == kxbase::Range) m_report.pointsSaved = m_salvaged.properties.validPointCount;
}

/// Copies a chunk of a component of which all are as they were written.
bool ScanRebuild::CopyChunk(const FoundChunk& chunk) {
    const auto header = PlausibleCodecHeader(m_file, chunk.dataPosition, chunk.byteCount, UINT64_MAX);
    if (!header || !ExceededLimit(*header, chunk.byteCount, m_options.limits).empty()) return false;
    m_file.Read(chunk.dataPosition, chunk.byteCount, m_chunk);
    if (m_hashes.IsChanged(chunk.dataPosition, m_chunk)) return false;
    if (!m_codecs.contains(chunk.component)) KeepWhole(chunk.component, header->codecId);
    EncodedPatchDescriptor patch(chunk.component, header->ElementBytes());
    patch.data = m_chunk.data();
    patch.size = m_chunk.size();
    if (chunk.component == kxbase::Range) {
        const MinMaxPair limits =
            m_hashes.LimitsOf(uint64_t{m_decision.grid.PatchesPerRow()} * chunk.row + chunk.column);
        patch.min = limits.minimum;
        patch.max = limits.maximum;
    }
    m_writer.AddPatch({&patch}, chunk.row, chunk.column);
    RecoveredComponent& counts = m_components[chunk.component];
    ++counts.recovered;
    counts.storedBytes += chunk.byteCount;
    return true;
}

/// Copies one chunk when it is whole.
bool ScanRebuild::WritePatch(const FoundChunk& chunk) {
    if (m_hashes.Whole().contains(chunk.component)) return CopyChunk(chunk);
    const GridTopology& grid = m_decision.grid;
    const uint64_t patchCells = uint64_t{grid.patchWidth} * grid.patchHeight;
    ChunkHeaderInfo header;
    if (!ReadValues(chunk, header)) return false;
    const uint64_t elementBytes = header.ElementBytes();
    kxcodecs::Dequantise(m_values, elementBytes, header.step);

    const uint64_t cells = m_values.size() / elementBytes;
    if ((m_decision.withoutGrid || cells <= patchCells) && MayBePreviewed(chunk.component, elementBytes)) {
        std::unique_ptr<StoredChunkCodec>& codec = m_codecs[chunk.component];
        if (!codec) codec = std::make_unique<StoredChunkCodec>(header.codecId);
        codec->Stand(m_values.data(), &m_chunk);
        FlatPatchDescriptor patch(chunk.component, elementBytes, RowMajor, 1.0, codec.get());
        patch.data = m_values.data();
        patch.size = cells;
        const uint64_t points = m_writer.m_impl->GetPointcount();
        m_writer.AddPatch({&patch}, chunk.row, chunk.column);
        m_report.pointsSaved += m_writer.m_impl->GetPointcount() - points;
        codec->Stand(nullptr, nullptr);
    } else {
        PatchLimits limits;
        if (chunk.component == kxbase::Range && elementBytes == sizeof(float)) {
            const PatchPlace place{grid, chunk.row, chunk.column, 0};
            limits = MeasurePatch(m_values, place, false,
                                  m_decision.withoutGrid ? CountedValues::All : CountedValues::InsideGrid);
        }
        // The bytes of an empty patch are made in memory too.
        const bool fits =
            elementBytes <= QKXChunkCodec::kDefaultMaxDecodedBytes / std::max<uint64_t>(1, patchCells);
        EncodedPatchDescriptor patch(chunk.component, fits ? elementBytes : 1);
        patch.data = m_chunk.data();
        patch.size = m_chunk.size();
        patch.min = limits.pair.minimum;
        patch.max = limits.pair.maximum;
        m_writer.AddPatch({&patch}, chunk.row, chunk.column);
        m_report.pointsSaved += limits.points;
    }
    NoteAngles(chunk, header);
    RecoveredComponent& counts = m_components[chunk.component];
    ++counts.recovered;
    counts.storedBytes += chunk.byteCount;
    return true;
}

/// A few cells of each row and column of a patch of angles, for the fit.
void ScanRebuild::NoteAngles(const FoundChunk& chunk, const ChunkHeaderInfo& header) {
    const GridTopology& grid = m_decision.grid;
    const bool columns = chunk.component == kxbase::HorizontalAngle;
    const bool rows = chunk.component == kxbase::VerticalAngle;
    if (m_decision.anglesFromHeader || m_decision.withoutGrid || (!columns && !rows) ||
        header.ElementBytes() != sizeof(float) ||
        header.ElementCount() != uint64_t{grid.patchWidth} * grid.patchHeight) {
        return;
    }
    constexpr uint64_t kSamples = 7;
    const uint64_t along = columns ? grid.patchWidth : grid.patchHeight;
    const uint64_t across = columns ? grid.patchHeight : grid.patchWidth;
    const uint64_t first = columns ? uint64_t{chunk.column} * along : uint64_t{chunk.row} * along;
    const uint64_t end = columns ? grid.columns : grid.rows;
    for (uint64_t i = 0; i < along && first + i < end; ++i) {
        for (uint64_t k = 0; k < kSamples; ++k) {
            const uint64_t j = across * k / kSamples;
            const uint64_t cell = columns ? j * grid.patchWidth + i : i * grid.patchWidth + j;
            float angle = 0;
            std::memcpy(&angle, m_values.data() + cell * sizeof(float), sizeof(float));
            (columns ? m_columnAngles : m_rowAngles).Add(static_cast<uint32_t>(first + i), angle);
        }
    }
}

/// A scan without a grid is as wide as its last patch; where that is lost, an empty one keeps its place.
void ScanRebuild::KeepWidthWithoutGrid() {
    const uint32_t columns = m_decision.grid.columns;
    if (!m_decision.withoutGrid || m_components.empty() ||
        m_writer.GetScanProperties().grid.columns >= columns) {
        return;
    }
    EmptyPatchDescriptor last(m_components.begin()->first,
                              kxbase::ComponentElementBytes(m_components.begin()->first));
    m_writer.AddPatch({&last}, 0, columns - 1);
}

void ScanRebuild::SetAngles() {
    if (m_decision.anglesFromHeader || m_decision.withoutGrid) return;
    GridTopology& grid = m_writer.GetScanProperties().grid;
    const auto columns = m_columnAngles.Fit();
    const auto rows = m_rowAngles.Fit();
    // What cannot be fitted is the writer's step for grids without angles.
    grid.columnStartAngle = columns ? static_cast<float>(columns->start) : 0.0F;
    grid.columnAngularStep = columns ? static_cast<float>(std::abs(columns->step)) : 0.1F;
    grid.rowStartAngle = rows ? static_cast<float>(rows->start) : 0.0F;
    grid.rowAngularStep = rows ? static_cast<float>(std::abs(rows->step)) : 0.1F;
    grid.UpdateHalfSteps();
    m_report.anglesFitted = columns && rows;
    if (!columns) m_report.warnings.push_back("no horizontal angles to fit the columns of the grid to");
    if (!rows) m_report.warnings.push_back("no vertical angles to fit the rows of the grid to");
    if (columns && columns->step > 0) {
        m_report.warnings.push_back(
            "the horizontal angles grow with the column; the grid can only say that they fall");
    }
    if (rows && rows->step < 0) {
        m_report.warnings.push_back(
            "the vertical angles fall with the row; the grid can only say that they grow");
    }
}

void ScanRebuild::SetProperties() {
    ScanProperties& target = m_writer.GetScanProperties();
    const GridTopology grid = target.grid;
    const kxbase::UUID fresh = target.scanUUID;
    target = m_salvaged.properties;
    target.grid = grid;
    if (target.scanUUID.IsZero()) target.scanUUID = fresh;
    if (!m_salvaged.thumbnail.empty()) {
        m_writer.SetCompressedThumbnail(m_salvaged.thumbnail);
        m_report.thumbnailKept = true;
    }
}

void ScanRebuild::AppendFurtherRecords() {
    if (m_salvaged.furtherRecords.empty()) return;
    if (!m_out.SeekEnd(0)) {
        throw kxbase::KXWritingException("Cannot write file", {{}, {}, {}, {}, "its end cannot be reached"});
    }
    for (ExtendedHeader& record : m_salvaged.furtherRecords) {
        record.SetLink(0);  // its old one leads nowhere now
        record.Write(&m_out);
    }
}

void ScanRebuild::CompleteReport() {
    RecoveryReport& r = m_report;
    r.grid = m_writer.GetScanProperties().grid;
    const uint64_t patches = m_decision.withoutGrid ? r.grid.columns : r.grid.PatchCount64();
    for (auto& [component, counts] : m_components) {
        counts.lost = counts.found - counts.recovered;
        counts.missing = patches - std::min(patches, counts.found);
        r.chunksFound += counts.found;
        r.chunksRecovered += counts.recovered;
        r.chunksLost += counts.lost;
        r.components.push_back(counts);
    }
    r.mainHeaderFound = m_survey.mainHeader.has_value();
    r.scanHeaderFound = m_salvaged.hasScanHeader;
    r.lookupTableFound = m_table->IsValid();
    r.extendedRecordsFound = m_salvaged.extendedRecords;
    r.damagedPlaces = m_survey.damagedPlaces;
    r.unreadableBytes = m_file.UnreadableBytes();
    if (!r.scanHeaderFound) {
        r.gridSource = RecoveredGrid::Chunks;
    } else {
        const bool whole = m_decision.sizeFromHeader && m_decision.anglesFromHeader;
        r.gridSource = whole ? RecoveredGrid::ScanHeader : RecoveredGrid::ScanHeaderAndChunks;
    }

    if (!m_decision.sizeFromHeader) r.rebuilt.push_back("size of the grid");
    if (r.anglesFitted) r.rebuilt.push_back("angles of the grid");
    const auto isMadeAnew = [this](ComponentType component) { return !m_hashes.Whole().contains(component); };
    if (m_components.contains(kxbase::Range) && isMadeAnew(kxbase::Range))
        r.rebuilt.push_back("point count and limits");
    const bool previews = std::any_of(m_codecs.begin(), m_codecs.end(),
                                      [&](const auto& made) { return isMadeAnew(made.first); });
    if (!m_decision.withoutGrid && previews) r.rebuilt.push_back("previews");
    const bool counted = std::any_of(r.components.begin(), r.components.end(), [&](const auto& c) {
        return c.recovered != 0 && isMadeAnew(c.component) &&
               (c.component == kxbase::Luminance8 || c.component == kxbase::Luminance16 ||
                c.component == kxbase::Class || c.component == kxbase::Segment);
    });
    if (counted && MakesHistograms()) r.rebuilt.push_back("histograms");
    if (!r.thumbnailKept) r.rebuilt.push_back("thumbnail");
    r.rebuilt.push_back("lookup tables");

    auto& notes = r.warnings;
    notes.insert(notes.end(), m_decision.notes.begin(), m_decision.notes.end());
    notes.insert(notes.end(), m_salvaged.notes.begin(), m_salvaged.notes.end());
    if (!r.scanHeaderFound) {
        notes.push_back("no scan header found: registration, dates, model and flags are lost");
    }
    if (m_survey.foreignFiles != 0) {
        notes.push_back(Count(m_survey.foreignFiles, "scan file", "scan files") +
                        " inside the data of this one passed over");
    }
    if (m_survey.secondFile) {
        notes.push_back("another scan file begins at byte " + std::to_string(*m_survey.secondFile) +
                        "; it was not looked at");
    }
    if (r.unreadableBytes != 0) {
        notes.push_back(Count(r.unreadableBytes, "byte", "bytes") + " could not be read");
    }
    m_writer.AddWarning(kxbase::Decode_UTF8(r.Summary()));
}

std::string RecoveryReport::Summary() const {
    std::string text = "Recovered from a damaged file: " + std::to_string(chunksRecovered) + " of " +
                       Count(chunksFound, "chunk", "chunks") + " saved";
    std::string lost;
    for (const RecoveredComponent& c : components) {
        if (c.lost == 0) continue;
        lost += (lost.empty() ? "" : ", ") + kxbase::ComponentToString(c.component) + " " +
                std::to_string(c.lost) + " of " + std::to_string(c.found);
    }
    text += lost.empty() ? ", nothing known to be lost" : "; lost: " + lost;
    switch (gridSource) {
        case RecoveredGrid::ScanHeader:
            text += "; grid from the scan header";
            break;
        case RecoveredGrid::ScanHeaderAndChunks:
            text += "; grid from the scan header, put right by the chunks";
            break;
        case RecoveredGrid::Chunks:
            text += "; no scan header, grid derived from the chunks";
            break;
    }
    if (anglesFitted) text += ", angles fitted";
    return text;
}

}  // namespace kxio
