// SPDX-License-Identifier: MIT
#include "services/VerifyPatches.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>

#include "kxbase/IInFileStream.h"
#include "kxbase/Sizes.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "reader/ExtendedFrame.h"
#include "reader/PatchDecoder.h"
#include "reader/PatchTasks.h"
#include "services/PreviewComparison.h"
#include "services/StoredHistogram.h"
#include "services/VerifyExtended.h"
#include "writer/PatchHistograms.h"
#include "writer/PatchLimits.h"
#include "writer/PatchPlace.h"

namespace kxio {

namespace {

using kxbase::ComponentType;

/// Patches whose results wait at most.
constexpr uint64_t kBatch = 256;
/// Bytes per cell that a patch may decode to.
constexpr uint64_t kMostCellBytes = 64;

std::string Number(uint64_t value) {
    return std::to_string(value);
}

bool IsJpeg(uint64_t codec) {
    return codec == kxcodecs::JPEGChunkCodec::kIdentifier;
}

/// What quantising may have changed of values near `value`, with `step` integers per unit.
double Tolerance(double value, float step) {
    if (step == 1.0F) return 0;
    return 0.5 / static_cast<double>(step) * (1 + 1e-5) + std::abs(value) * 2.4e-7;
}

/// What one patch adds to the sums of its component.
struct PatchResult {
    std::vector<VerifyFinding> findings;
    bool decoded = false;
    bool damaged = false;
    uint64_t uprightPoints = 0;
    uint64_t transposedPoints = 0;
    bool tinyValues = false;  ///< limits say that values below half a step were there
    float step = 1.0F;
    bool measured = false;
    bool jpeg = false;
};

class PatchCheck {
public:
    PatchCheck(FileWindow& file, const FileLayout& layout, const VerifiedHeaders& headers,
               const ListedChunks& chunks, const VerifyOptions& options, FindingList& findings,
               VerifyReport& report)
        : m_file(file),
          m_layout(layout),
          m_headers(headers),
          m_chunks(chunks),
          m_options(options),
          m_findings(findings),
          m_report(report),
          m_deep(options.level == VerifyLevel::Deep) {
        if (layout.scanHeader) m_grid = layout.scanHeader->properties.grid;
        m_withoutGrid = m_grid.patchWidth == 1 && m_grid.patchHeight == 1 && m_grid.rows <= 1;
        m_patchCells = uint64_t{m_grid.patchWidth} * m_grid.patchHeight;
        for (const auto& [component, list] : chunks) {
            for (const ListedChunk& chunk : list)
                m_total += chunk.byteCount;
        }
    }

    void Run();

private:
    void Component(ComponentType component, const std::vector<ListedChunk>& chunks);
    void Patch(ComponentType component, const ListedChunk& chunk, PatchBuffers& buffers, PatchResult& result);
    void Judge(ComponentType component, const ListedChunk& chunk, const DecodedPatch& patch,
               PatchResult& result);
    void Measure(ComponentType component, const ListedChunk& chunk, const DecodedPatch& patch,
                 PatchResult& result);
    void Limits(const ListedChunk& chunk, const PatchLimits& limits, PatchResult& result) const;
    void Histogram(ComponentType component, const ListedChunk& chunk, const DecodedPatch& patch,
                   PatchResult& result) const;
    void PointCount(const std::vector<ListedChunk>& chunks);
    void OpenHistogram(ComponentType component);
    void OpenPreview(ComponentType component);
    void ComparePreview(ComponentType component, const std::vector<ListedChunk>& chunks);
    bool ReadChunk(uint64_t position, uint64_t bytes, std::vector<unsigned char>& out);
    uint64_t MostPatchBytes() const;
    bool CanSample() const;
    PatchPlace PlaceOf(const ListedChunk& chunk) const {
        return {m_grid, chunk.row, chunk.column, chunk.index};
    }

    FileWindow& m_file;
    const FileLayout& m_layout;
    const VerifiedHeaders& m_headers;
    const ListedChunks& m_chunks;
    const VerifyOptions& m_options;
    FindingList& m_findings;
    VerifyReport& m_report;
    const bool m_deep;
    kxbase::GridTopology m_grid;
    bool m_withoutGrid = false;
    uint64_t m_patchCells = 0;
    uint64_t m_total = 0;
    uint64_t m_done = 0;
    std::mutex m_streamLock;

    // Of the component at hand.
    std::optional<StoredHistogram> m_histogram;
    std::unique_ptr<PreviewComparison> m_preview;
    uint64_t m_points = 0;
    uint64_t m_transposedPoints = 0;
    bool m_tinyValues = false;
    bool m_sumsComplete = true;
};

uint64_t PatchCheck::MostPatchBytes() const {
    // Small patches may hold odd things; large claims are bombs.
    return m_withoutGrid || m_patchCells == 0
               ? UINT64_MAX
               : std::max<uint64_t>(kxbase::SizeProduct(m_patchCells, kMostCellBytes), 1 << 20);
}

/// Whether the grid is one that previews are made of; grids that the file cannot back are not walked.
bool PatchCheck::CanSample() const {
    constexpr uint64_t kMostCells = uint64_t{1} << 24;
    constexpr uint64_t kFreePatches = uint64_t{1} << 16;
    const uint64_t patches = m_grid.PatchCount64();
    return !m_withoutGrid && m_patchCells <= kMostCells && patches != 0 &&
           patches <= std::max(kFreePatches, m_file.Size());
}

bool PatchCheck::ReadChunk(uint64_t position, uint64_t bytes, std::vector<unsigned char>& out) {
    const std::lock_guard lock(m_streamLock);
    out.resize(bytes);  // it lies inside the file
    return m_file.Stream().Seek(position) && m_file.Stream().Read(out.data(), bytes) == bytes;
}

void PatchCheck::Run() {
    for (const auto& [component, list] : m_chunks)
        Component(component, list);
    // Previews and histograms of components that have no patches.
    for (const auto& [component, entries] : m_layout.previews) {
        if (!m_chunks.contains(component)) OpenPreview(component);
    }
    for (const auto& [component, position] : m_headers.histograms) {
        if (!m_chunks.contains(component)) OpenHistogram(component);
    }
}

void PatchCheck::OpenHistogram(ComponentType component) {
    m_histogram.reset();
    const auto place = m_headers.histograms.find(component);
    if (place == m_headers.histograms.end() || component < kxbase::Luminance8)
        return;  // 1 to 3 are never read
    const auto frame = PeekExtended(m_file.Stream(), place->second);
    if (!frame) return;  // told with the headers
    const std::string name = ExtendedKindName(frame->type);
    try {
        m_histogram.emplace(m_file.Stream(), m_streamLock, place->second);
        const auto& patches = m_histogram->Patches();
        if (!patches.empty() && m_layout.scanHeader && patches.rbegin()->first >= m_grid.PatchCount64())
            m_findings.Add(Error(name)
                               .At(place->second)
                               .Of(component)
                               .Says("an entry for patch " + Number(patches.rbegin()->first) +
                                     ", but the grid has " + Number(m_grid.PatchCount64())));
    } catch (const kxbase::KXException& e) {
        m_findings.Add(Error(name)
                           .At(place->second)
                           .Of(component)
                           .Says(std::string(e.what()) + ": " + e.Context().detail));
    }
}

void PatchCheck::OpenPreview(ComponentType component) {
    m_preview.reset();
    const auto entries = m_layout.previews.find(component);
    if (entries == m_layout.previews.end() || entries->second.empty()) return;
    const LookupEntry& entry = entries->second.front();
    if (entry.position == 0 || entry.byteCount == 0 || entry.position > m_file.Size() ||
        entry.byteCount > m_file.Size() - entry.position) {
        return;  // told with the tables
    }
    PatchBuffers buffers;
    const auto error = [&](std::string text) {
        m_findings.Add(Error("preview").At(entry.position).Of(component).Says(std::move(text)));
    };
    if (!ReadChunk(entry.position, entry.byteCount, buffers.chunk)) return error("it cannot be read");
    try {
        const DecodedPatch image = DecodeChunk(buffers, m_options.limits);
        const uint32_t wanted = kxbase::ComponentElementBytes(component);
        if (wanted != 0 && image.elementBytes != wanted)
            error("elements of " + Number(image.elementBytes) + " bytes, where the component has " +
                  Number(wanted));
        if (image.bytes.size() != image.header.ElementCount() * image.elementBytes)
            error(Number(image.bytes.size()) + " bytes of " +
                  Number(image.header.ElementCount() * image.elementBytes));
        // Previews among the chunks are the caller's of the writer, who may show what he wants.
        const bool own = m_layout.scanHeaderPosition && entry.position > *m_layout.scanHeaderPosition;
        if (m_deep && own && !IsJpeg(image.header.codecId) && CanSample())
            m_preview = std::make_unique<PreviewComparison>(m_grid, image);
    } catch (const kxbase::KXException& e) {
        error(std::string(e.what()) + ": " + e.Context().detail);
    }
}

void PatchCheck::Component(ComponentType component, const std::vector<ListedChunk>& chunks) {
    OpenHistogram(component);
    OpenPreview(component);
    m_points = 0;
    m_transposedPoints = 0;
    m_tinyValues = false;
    m_sumsComplete = true;
    std::optional<float> step;
    std::vector<PatchResult> results;
    for (uint64_t first = 0; first < chunks.size(); first += kBatch) {
        const uint64_t count = std::min<uint64_t>(kBatch, chunks.size() - first);
        results.assign(count, {});
        RunPatchTasks(count, m_options.threads, [&](uint64_t i, PatchBuffers& buffers) {
            Patch(component, chunks[first + i], buffers, results[i]);
        });
        for (uint64_t i = 0; i < count; ++i) {
            PatchResult& result = results[i];
            if (result.damaged || chunks[first + i].damaged) ++m_report.damagedChunks;
            if (result.measured) ++m_report.recomputedPatches;
            if (m_preview && (!result.measured || result.jpeg) && !chunks[first + i].sharedEmpty)
                m_preview->Skip(chunks[first + i].index);
            if (result.decoded && !chunks[first + i].sharedEmpty) {
                if (!step) step = result.step;
                if (*step != result.step)
                    result.findings.push_back(Note("chunk")
                                                  .At(chunks[first + i].position)
                                                  .Of(component)
                                                  .Patch(chunks[first + i].row, chunks[first + i].column)
                                                  .Says("another step than in the chunks before: its values "
                                                        "have another resolution"));
            }
            m_findings.Add(result.findings);
            m_points += result.uprightPoints;
            m_transposedPoints += result.transposedPoints;
            m_tinyValues = m_tinyValues || result.tinyValues;
            if (!result.decoded || chunks[first + i].superseded || chunks[first + i].damaged)
                m_sumsComplete = false;
            m_done += chunks[first + i].byteCount;
        }
        if (m_options.progress) m_options.progress(m_done, m_total);
    }
    if (!m_deep) return;
    if (component == kxbase::Range) PointCount(chunks);
    ComparePreview(component, chunks);
}

void PatchCheck::Patch(ComponentType component, const ListedChunk& chunk, PatchBuffers& buffers,
                       PatchResult& result) {
    const auto error = [&](std::string text) {
        FindingDraft draft = Error("chunk").At(chunk.position).Of(component);
        if (!chunk.sharedEmpty) draft.Patch(chunk.row, chunk.column);
        result.findings.push_back(draft.Says(std::move(text)));
        result.damaged = true;
    };
    if (!ReadChunk(chunk.position, chunk.byteCount, buffers.chunk)) return error("it cannot be read");
    try {
        const DecodedPatch patch = DecodeChunk(buffers, m_options.limits, MostPatchBytes());
        result.decoded = true;
        result.step = patch.header.step;
        result.jpeg = IsJpeg(patch.header.codecId);
        Judge(component, chunk, patch, result);
        if (m_deep && !chunk.sharedEmpty && !result.damaged) Measure(component, chunk, patch, result);
    } catch (const kxbase::KXException& e) {
        error(std::string(e.what()) + ": " + e.Context().detail);
    }
}

/// Whether the decoded values are those of a patch of this component.
void PatchCheck::Judge(ComponentType component, const ListedChunk& chunk, const DecodedPatch& patch,
                       PatchResult& result) {
    const auto finding = [&](FindingDraft draft, std::string text) {
        draft.At(chunk.position).Of(component);
        if (!chunk.sharedEmpty) draft.Patch(chunk.row, chunk.column);
        result.findings.push_back(draft.Says(std::move(text)));
    };
    const auto& header = patch.header;
    const uint64_t expected = header.ElementCount() * patch.elementBytes;
    if (patch.bytes.size() != expected) {
        finding(Error("chunk"), Number(patch.bytes.size()) + " bytes of " + Number(expected));
        result.damaged = true;
    }
    if (!(header.step > 0) || !std::isfinite(header.step)) {
        finding(Error("chunk"), "step " + std::to_string(header.step) + ", must be above 0");
        result.damaged = true;
    }
    const uint32_t wanted = kxbase::ComponentElementBytes(component);
    const bool zeros =
        std::all_of(patch.bytes.begin(), patch.bytes.end(), [](unsigned char b) { return b == 0; });
    // The empty chunk of a component that never said the size of its values has other ones, which do no harm.
    if (wanted != 0 && patch.elementBytes != wanted && !zeros) {
        finding(Error("chunk"), "elements of " + Number(patch.elementBytes) +
                                    " bytes, where the component has " + Number(wanted));
        result.damaged = true;
    }
    if (chunk.sharedEmpty && !zeros) {
        finding(Error("chunk"), "the chunk that stands for empty patches holds values");
        result.damaged = true;
    }
    if (m_withoutGrid || m_patchCells == 0) return;
    if (header.ElementCount() != m_patchCells) {
        finding(Warning("chunk"), Number(header.width) + " x " + Number(header.height) +
                                      " elements, where a patch has " + Number(m_grid.patchWidth) + " x " +
                                      Number(m_grid.patchHeight));
    } else if (header.width != m_grid.patchWidth) {
        finding(Warning("chunk"), Number(header.width) + " x " + Number(header.height) +
                                      " elements, the other way round than the patch");
    }
}

void PatchCheck::Measure(ComponentType component, const ListedChunk& chunk, const DecodedPatch& patch,
                         PatchResult& result) {
    if (chunk.row >= m_grid.PatchesPerColumn() || chunk.column >= m_grid.PatchesPerRow()) return;
    result.measured = true;
    if (component == kxbase::Range && patch.elementBytes == sizeof(float)) {
        const CountedValues counted = m_withoutGrid ? CountedValues::All : CountedValues::InsideGrid;
        const PatchLimits limits = MeasurePatch(patch.bytes, PlaceOf(chunk), false, counted);
        result.uprightPoints = limits.points;
        result.transposedPoints =
            m_withoutGrid ? limits.points : MeasurePatch(patch.bytes, PlaceOf(chunk), true, counted).points;
        Limits(chunk, limits, result);
    }
    if (m_histogram && !chunk.superseded) Histogram(component, chunk, patch, result);
    if (m_preview && !IsJpeg(patch.header.codecId)) m_preview->Sample(patch, chunk.row, chunk.column);
}

void PatchCheck::Limits(const ListedChunk& chunk, const PatchLimits& limits, PatchResult& result) const {
    if (!m_headers.limits || chunk.index >= m_headers.limits->size()) return;
    const MinMaxPair& stored = (*m_headers.limits)[chunk.index];
    const auto differ = [&](float told, float found) {
        // Integers of 32 bits hold no more.
        if (result.step != 1.0F && !(std::abs(told) * result.step < 2.147e9F)) return false;
        return std::abs(static_cast<double>(told) - static_cast<double>(found)) >
               Tolerance(static_cast<double>(told), result.step);
    };
    const double half = Tolerance(0, result.step);
    // What is that small may have become 0, or come from it.
    result.tinyValues =
        result.step != 1.0F && stored.minimum > 0 && static_cast<double>(stored.minimum) <= half;
    const auto finding = [&](const char* field, uint64_t at, float told, float found) {
        result.findings.push_back(
            Error("MinMaxHeader")
                .At(m_headers.limitsPosition + kxbase::IOHeader::FrameSize + 12 + uint64_t{8} * chunk.index +
                    at)
                .Field(field)
                .Of(kxbase::Range)
                .Patch(chunk.row, chunk.column)
                .Says(std::to_string(told) + ", but the patch has " + std::to_string(found)));
    };
    if (!result.tinyValues && differ(stored.minimum, limits.pair.minimum))
        finding("minimum", 0, stored.minimum, limits.pair.minimum);
    if (differ(stored.maximum, limits.pair.maximum))
        finding("maximum", 4, stored.maximum, limits.pair.maximum);
}

void PatchCheck::Histogram(ComponentType component, const ListedChunk& chunk, const DecodedPatch& patch,
                           PatchResult& result) const {
    if (IsJpeg(patch.header.codecId) || patch.header.step != 1.0F) return;  // other values were counted
    const auto counts = CountPatchValues(component, patch.elementBytes, patch.bytes, PlaceOf(chunk));
    if (!counts) return;
    const auto difference = m_histogram->Compare(chunk.index, *counts);
    if (!difference) return;
    result.findings.push_back(Error("histogram")
                                  .At(m_headers.histograms.at(component))
                                  .Of(component)
                                  .Patch(chunk.row, chunk.column)
                                  .Says(*difference));
}

void PatchCheck::PointCount(const std::vector<ListedChunk>& chunks) {
    if (!m_layout.scanHeader || !m_sumsComplete || chunks.empty()) return;
    const uint64_t told = m_layout.scanHeader->properties.validPointCount;
    if (m_layout.scanHeader->GetVersion() < 210 || told == m_points || told == m_transposedPoints) return;
    if (m_tinyValues && told > m_points) return;  // some were that close that they became 0
    m_findings.Add(Error("ScanHeader")
                       .At(*m_layout.scanHeaderPosition + kxbase::IOHeader::FrameSize + 44)
                       .Field("valid point count")
                       .Of(kxbase::Range)
                       .Says(Number(told) + ", but the patches hold " + Number(m_points)));
}

/// Upright first; a preview that does not fit may be that of patches that lie column after column.
void PatchCheck::ComparePreview(ComponentType component, const std::vector<ListedChunk>& chunks) {
    if (!m_preview) return;
    std::vector<PreviewDifference> differences = m_preview->Differences();
    if (!differences.empty()) {
        m_preview->StartTransposed();
        PatchBuffers buffers;
        for (const ListedChunk& chunk : chunks) {
            if (chunk.sharedEmpty || !ReadChunk(chunk.position, chunk.byteCount, buffers.chunk)) continue;
            try {
                const DecodedPatch patch = DecodeChunk(buffers, m_options.limits, MostPatchBytes());
                if (!IsJpeg(patch.header.codecId)) m_preview->Sample(patch, chunk.row, chunk.column);
            } catch (const kxbase::KXException&) {
                continue;  // told before
            }
        }
        if (m_preview->Differences().empty()) return;
    }
    for (const PreviewDifference& difference : differences) {
        m_findings.Add(
            Error("preview")
                .At(m_layout.previews.at(component).front().position)
                .Of(component)
                .Patch(difference.row, difference.column)
                .Says(Number(difference.pixels) + " pixels differ from the patch, the first at row " +
                      Number(difference.firstPixelRow) + ", column " + Number(difference.firstPixelColumn)));
    }
}

}  // namespace

void VerifyPatches(FileWindow& file, const FileLayout& layout, const VerifiedHeaders& headers,
                   const ListedChunks& chunks, const VerifyOptions& options, FindingList& findings,
                   VerifyReport& report) {
    PatchCheck(file, layout, headers, chunks, options, findings, report).Run();
}

}  // namespace kxio
