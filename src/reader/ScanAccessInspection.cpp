// SPDX-License-Identifier: MIT
// What ScanAccess tells without decoding.
#include <algorithm>
#include <tuple>

#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/ScanAccess.h"
#include "reader/PositionedInput.h"
#include "reader/RecordAt.h"

namespace kxio {

namespace {

using kxbase::ComponentType;

// Counts chunks, shared ones once.
void CountChunks(std::span<const LookupEntry> entries, ComponentSummary& summary) {
    std::vector<LookupEntry> stored;
    for (const LookupEntry& entry : entries) {
        if (entry.position != 0 && entry.byteCount != 0) stored.push_back(entry);
    }
    const auto key = [](const LookupEntry& e) { return std::tie(e.position, e.byteCount); };
    std::sort(stored.begin(), stored.end(), [&](const auto& a, const auto& b) { return key(a) < key(b); });
    for (auto chunk = stored.begin(); chunk != stored.end();) {
        const auto next =
            std::find_if(chunk, stored.end(), [&](const auto& e) { return key(e) != key(*chunk); });
        const auto users = static_cast<uint64_t>(next - chunk);
        (users == 1 ? summary.storedPatches : summary.emptyPatches) += users;
        summary.storedBytes += chunk->byteCount;
        chunk = next;
    }
}

}  // namespace

std::vector<ComponentSummary> ScanAccess::Summarise() const {
    const uint64_t patchCount = Grid().PatchCount64();
    const auto& codecs = m_reader->GetScanInformation().componentCodecs;
    std::vector<ComponentSummary> summaries;
    for (const ComponentType component : Components()) {
        ComponentSummary summary;
        summary.component = component;
        if (const auto codec = codecs.find(component); codec != codecs.end()) summary.codec = codec->second;
        summary.elementBytes = ElementBytes(component);
        CountChunks(PatchEntries(component), summary);
        const uint64_t present = summary.storedPatches + summary.emptyPatches;
        summary.absentPatches = patchCount > present ? patchCount - present : 0;
        summaries.push_back(std::move(summary));
    }
    return summaries;
}

std::span<const LookupEntry> ScanAccess::PatchEntries(ComponentType component) const {
    const auto entries = m_reader->m_patchTable.find(component);
    if (entries == m_reader->m_patchTable.end()) return {};
    // Entries behind the grid's last patch belong to no patch.
    return std::span(entries->second)
        .first(static_cast<size_t>(std::min<uint64_t>(entries->second.size(), Grid().PatchCount64())));
}

std::optional<LookupEntry> ScanAccess::PreviewEntry(ComponentType component) const {
    const auto entries = m_reader->m_previewTable.find(component);
    if (entries == m_reader->m_previewTable.end() || entries->second.empty()) return std::nullopt;
    return entries->second.front();
}

kxcodecs::ChunkHeaderInfo ScanAccess::ReadChunkHeader(ComponentType component, uint32_t patchRow,
                                                      uint32_t patchColumn) const {
    GetPatchRect(patchRow, patchColumn);
    const uint64_t index = m_reader->LinearIndex(patchRow, patchColumn);
    try {
        m_reader->RequireComponent(component);
        const LookupEntry& entry = m_reader->LocateChunk(index, component);
        std::vector<unsigned char> bytes;
        m_reader->ReadBytes(entry.position, std::min(entry.byteCount, kxcodecs::ChunkHeaderInfo::kByteSize),
                            bytes);
        kxcodecs::ChunkHeaderInfo header;
        if (!kxcodecs::QKXChunkCodec::ReadHeader(bytes, header)) {
            kxbase::ErrorContext context;
            context.offset = entry.position;
            context.detail = "the chunk has " + std::to_string(entry.byteCount) + " bytes, its header 28";
            throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
        }
        return header;
    } catch (kxbase::KXException& e) {
        e.AddContext(m_reader->PatchContext(index, component));
        throw;
    }
}

std::optional<ScanLimits> ScanAccess::ReadLimits() const {
    const uint64_t position = m_reader->m_mainHeader.boundingInformationPosition;
    if (position == 0) return std::nullopt;
    InputWindow input = m_reader->RecordInput(0);
    ScanLimits limits;
    MinMaxHeader record(&limits.patches);
    record.LimitPayload(m_reader->GetLimits().recordBytes, "recordBytes");
    if (!ReadRecordAt(&input, position, record)) {
        throw kxbase::KXIncompleteFileException("No bounding information found", ProblemOf(record, position));
    }
    limits.minimum = record.minimum;
    limits.maximum = record.maximum;
    return limits;
}

ExtendedHeader ScanAccess::ReadHistogramRecord(ComponentType component) const {
    return m_reader->GetCompressedHistogram(component);
}

uint64_t ScanAccess::GetFileSize() const {
    return m_reader->Input().Size();
}

}  // namespace kxio
