// SPDX-License-Identifier: MIT
// The end of creation: missing patches, tables, previews, limits, tail records, the final main header.
#include <exception>
#include <utility>

#include "kxbase/Exceptions.h"
#include "kxio/ColorizationModeExtendedHeader.h"
#include "kxio/CommentExtendedHeader.h"
#include "kxio/ERExtendedHeader.h"
#include "kxio/EmptyPatchDescriptor.h"
#include "kxio/HDRExtendedHeader.h"
#include "kxio/HQExtendedHeader.h"
#include "kxio/HistogramHeader.h"
#include "kxio/PreregistrationExtendedHeader.h"
#include "kxio/ScanHeader.h"
#include "kxio/ScanningModeExtendedHeader.h"
#include "kxio/UUIDExtendedHeader.h"
#include "kxio/WarningExtendedHeader.h"
#include "writer/HistogramRecords.h"
#include "writer/QSNScanWriterImpl.h"

namespace kxio {

namespace {

// Below this a team of threads costs more than it saves.
constexpr uint64_t kParallelPixels = 16 * 1024;

}  // namespace

std::map<std::string, uint64_t> QSNScanWriterImpl::EndCreation() {
    RequireCreated();
    m_state = State::Ended;
    kxbase::ErrorContext where;
    where.file = StreamName();
    try {
        FillMissingPatches();
        m_mainHeader.scanHeaderPosition = m_stream->Tell();
        m_mainHeader.chunkDataEndPosition = m_mainHeader.scanHeaderPosition;
        WriteScanHeader();
        WriteLookupTable(m_chunkLookup, m_mainHeader.lookupTablePosition);
        WriteThumbnail();
        if (HasPreviews(m_properties.grid)) WritePreviewsAndLimits();
        WriteExtendedHeaders();
        // The header leads to all the rest. A loss of power must not keep it and take the hashes that would
        // tell what else is lost.
        if (m_integrityWanted && m_ownedFile) m_ownedFile->Sync();
        RewriteMainHeader();
        m_endTime = kxbase::Date::Now();
        m_stream = nullptr;
        if (const auto file = std::move(m_ownedFile)) file->Close();
    } catch (kxbase::KXException& e) {
        e.AddContext(where);
        throw;
    }
    m_statistics["PointCount"] = m_pointCount;
    return m_statistics;
}

void QSNScanWriterImpl::FillMissingPatches() {
    const kxbase::GridTopology grid = m_properties.grid;
    // A component that never came stays absent, so without components there is nothing to look at, however
    // large the grid.
    if (m_writtenPatches.empty()) return;
    const uint32_t across = grid.PatchesPerRow();
    const uint32_t down = grid.PatchesPerColumn();
    std::vector<EmptyPatchDescriptor> missing;
    std::vector<PatchDescriptor*> list;
    for (uint32_t column = 0; column < across; ++column) {
        for (uint32_t row = 0; row < down; ++row) {
            const uint64_t index = uint64_t{across} * row + column;
            missing.clear();
            list.clear();
            for (const auto& [component, written] : m_writtenPatches) {
                if (index < written.size() && written[static_cast<size_t>(index)]) continue;
                missing.emplace_back(component, m_previewInfo[component].pixelLength);
            }
            for (EmptyPatchDescriptor& descriptor : missing)
                list.push_back(&descriptor);
            if (!list.empty()) Intake(list, row, column);
        }
    }
}

void QSNScanWriterImpl::WriteScanHeader() {
    ScanHeader header;
    header.properties = m_properties;
    header.properties.validPointCount = m_pointCount;
    WriteRecord(header);
    m_statistics["Headers"] += header.HeaderSize();
}

void QSNScanWriterImpl::WriteLookupTable(LookupTable& table, uint64_t& position) {
    position = m_stream->Tell();
    LookupTableHeader header(&table);
    WriteRecord(header);
    m_statistics["LookupTables"] += header.HeaderSize();
}

void QSNScanWriterImpl::WritePreviewsAndLimits() {
    struct Preview {
        kxbase::ComponentType component;
        const PreviewInfo* info;
        std::vector<unsigned char> chunk;
        std::exception_ptr error;
    };
    std::vector<Preview> previews;
    for (const auto& [component, info] : m_previewInfo) {
        if (info.kept || (info.image != nullptr && !info.image->empty()))
            previews.push_back({component, &info, {}, nullptr});
    }
    const auto encode = [this](Preview& preview) noexcept {
        if (preview.info->kept) return;
        const auto codec = m_codecs.find(preview.component);
        try {
            EncodeOrSnappy(codec == m_codecs.end() ? nullptr : codec->second, *preview.info->image,
                           m_previewWidth, m_previewHeight, preview.chunk);
        } catch (...) {
            preview.error = std::current_exception();
        }
    };
    const auto count = static_cast<int64_t>(previews.size());
#pragma omp parallel for schedule(static) if (count > 1 && \
                                              uint64_t{m_previewWidth} * m_previewHeight >= kParallelPixels)
    for (int64_t i = 0; i < count; ++i)
        encode(previews[static_cast<size_t>(i)]);
    for (const Preview& preview : previews) {
        if (preview.error != nullptr) std::rethrow_exception(preview.error);
        const auto& kept = preview.info->kept;
        const std::span<const unsigned char> chunk = kept ? kept() : preview.chunk;
        if (!chunk.empty()) WritePreview(chunk, preview.component);
    }
    WriteLookupTable(m_previewLookup, m_mainHeader.previewLookupTablePosition);

    m_mainHeader.boundingInformationPosition = m_stream->Tell();
    MinMaxHeader limits(&m_limits);
    WriteRecord(limits);
    m_statistics["Limits"] = limits.HeaderSize();
}

std::vector<std::unique_ptr<ExtendedHeader>> QSNScanWriterImpl::MakeExtendedHeaders(
    const std::vector<std::wstring>& histogramWarnings) const {
    const ScanProperties& p = m_properties;
    std::vector<std::unique_ptr<ExtendedHeader>> records;
    records.push_back(std::make_unique<UUIDExtendedHeader>(p.scanUUID, p.parentUUID));
    records.push_back(std::make_unique<PreregistrationExtendedHeader>(
        p.preregistrationValue, p.preregistrationUUID, p.preregistration));
    for (const auto* texts : {&m_warnings, &p.warnings}) {
        for (const std::wstring& text : *texts)
            records.push_back(std::make_unique<WarningExtendedHeader>(text));
    }
    for (const std::wstring& text : histogramWarnings)
        records.push_back(std::make_unique<WarningExtendedHeader>(text));
    for (const auto* texts : {&m_messages, &p.messages}) {
        for (const std::wstring& text : *texts)
            records.push_back(std::make_unique<CommentExtendedHeader>(text));
    }
    records.push_back(std::make_unique<ScanningModeExtendedHeader>(p.scanningMode));
    records.push_back(std::make_unique<ColorizationModeExtendedHeader>(p.colorizationMode));
    for (const kxbase::UUID& link : p.hqLinks)
        records.push_back(std::make_unique<HQExtendedHeader>(link));
    for (const kxbase::UUID& link : p.erLinks)
        records.push_back(std::make_unique<ERExtendedHeader>(link));
    for (const kxbase::UUID& link : p.hdrLinks)
        records.push_back(std::make_unique<HDRExtendedHeader>(link));
    return records;
}

void QSNScanWriterImpl::WriteExtendedHeaders() {
    HistogramRecords made = MakeHistogramRecords(m_histograms);
    const auto records = MakeExtendedHeaders(made.warnings);
    std::vector<std::unique_ptr<ExtendedHeader>> kept;
    for (const auto& load : m_keptHistograms) {
        if (auto record = load()) kept.push_back(std::move(record));
    }
    m_mainHeader.firstExtendedHeaderPosition = m_stream->Tell();
    size_t left = records.size() + made.records.size() + kept.size();
    const auto linkBehind = [&](uint64_t recordBytes) {
        const bool last = --left == 0 && !m_integrityWanted;
        return last ? 0 : m_stream->Tell() + recordBytes;
    };
    for (const auto& record : records) {
        record->SetLink(linkBehind(record->HeaderSize()));
        WriteRecord(*record);
    }
    // Histograms are reported under the names of their records.
    for (PackedHistogram& histogram : made.records) {
        m_statistics[histogram.Name()] = histogram.RecordBytes();
        WriteHistogram(histogram, linkBehind(histogram.RecordBytes()));
    }
    for (auto& record : kept) {
        if (HistogramComponent(record->GetType()))
            m_statistics[record->GetRecordName()] = record->HeaderSize();
        record->SetLink(linkBehind(record->HeaderSize()));
        WriteRecord(*record);
        record.reset();
    }
    if (m_integrityWanted) WriteIntegrity();
}

void QSNScanWriterImpl::RewriteMainHeader() {
    if (!m_stream->Seek(0)) {
        kxbase::ErrorContext context;
        context.record = m_mainHeader.GetRecordName();
        context.detail = "the stream cannot go back to its start";
        throw kxbase::KXWritingException("Cannot write file", context);
    }
    m_mainHeader.Write(m_stream);
}

}  // namespace kxio
