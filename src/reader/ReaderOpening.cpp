// SPDX-License-Identifier: MIT
// Opening: headers, lookup tables, preview size.
#include <algorithm>
#include <array>

#include "format/LongLookupTable.h"
#include "kxbase/Sizes.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/ComponentHeader.h"
#include "kxio/QSNScanReader.h"
#include "reader/PositionedInput.h"
#include "reader/RecordAt.h"

namespace kxio {

namespace {

// What a table takes in the file, but for a few bytes.
uint64_t EntryBytes(const LookupTable& table) {
    uint64_t bytes = 0;
    for (const auto& [component, entries] : table) {
        bytes = kxbase::SizeSum(bytes, kxbase::SizeProduct(entries.size(), LookupTableHeader::EntryBytes));
    }
    return bytes;
}

// False, with the reason, when no table lies there. `kept`: bytes of the file that are in memory already.
bool ReadTable(InputWindow& input, uint64_t position, uint64_t kept, const Limits& limits,
               LookupTableHeader& table, kxbase::ErrorContext& problem) {
    kept = std::min(kept, input.GetSize());
    // From here on a table is not held in memory beside its bytes.
    constexpr uint64_t kLong = uint64_t{1} << 20;
    std::array<unsigned char, kxbase::IOHeader::FrameSize> bytes{};
    if (input.Seek(position) && input.Read(bytes.data(), bytes.size()) == bytes.size()) {
        const kxbase::RecordFrame frame = kxbase::IOHeader::DecodeFrame(bytes);
        const uint64_t start = input.Tell();
        if (frame.tag == LookupTableHeader::Magic && frame.version >= LookupTableHeader::MinimumVersion &&
            frame.payloadSize > kLong && frame.payloadSize <= limits.recordBytes &&
            frame.payloadSize <= input.GetSize() - kept &&
            frame.payloadSize <= input.GetSize() - std::min(start, input.GetSize())) {
            return ReadLongLookupTable(input, start, frame.payloadSize, limits.components, *table.GetTable(),
                                       problem);
        }
    }
    table.LimitComponents(limits.components, "components");
    if (ReadRecordAt(&input, position, table)) return true;
    problem = ProblemOf(table, position);
    return false;
}

}  // namespace

void QSNScanReader::SetupPostOpening() {
    ResetTables();
    InitFile();
    try {
        FillupScanProperties();
        ReadTailHeaders();
        AnalyseCodecs();
        SetupComponentMap();
    } catch (kxbase::KXException& e) {
        e.AddContext(FileContext());
        Close();
        throw;
    } catch (...) {
        Close();
        throw;
    }
}

void QSNScanReader::InitFile() {
    if (ReadHeaders() == 0) {
        kxbase::ErrorContext context = FileContext();
        context.record = m_mainHeader.GetRecordName();
        context.field = "first chunk position";
        context.offset = 0;
        context.detail = "the position is 0";
        Close();
        throw kxbase::KXHeaderReadingException("Error opening file", context);
    }
    try {
        FillupPatchPosition();
        FillupPreviewPosition();
        SetupGrid();
    } catch (kxbase::KXException& e) {
        e.AddContext(FileContext());
        throw;
    }
}

// Before a record of any size is read. Records do not lie inside each other, so what opening keeps of them
// and the next one are together no longer than the file; positions that say otherwise must not cost more.
void QSNScanReader::BoundRecord(kxbase::IOHeader& record) const {
    const uint64_t kept = kxbase::SizeSum(EntryBytes(m_patchTable), EntryBytes(m_previewTable));
    const uint64_t left = m_streamBytes - std::min(kept, m_streamBytes);
    const bool byFile = left < m_limits.recordBytes;
    record.LimitPayload(byFile ? left : m_limits.recordBytes, byFile ? "file size" : "recordBytes");
}

uint64_t QSNScanReader::ReadHeaders() {
    try {
        if (m_stream == nullptr) throw kxbase::KXHeaderReadingException("Cannot open file");
        // The component records follow the main header: its window mostly holds them too.
        InputWindow input = RecordInput(InputWindow::kUsualBytes);
        InputWindow scanInput = RecordInput(InputWindow::kUsualBytes);
        if (!ReadRecordAt(&input, 0, m_mainHeader)) {
            throw kxbase::KXHeaderReadingException("Invalid main header", ProblemOf(m_mainHeader, 0));
        }
        const bool byText = m_limits.textBytes < m_limits.recordBytes;
        m_scanHeader.LimitPayload(byText ? m_limits.textBytes : m_limits.recordBytes,
                                  byText ? "textBytes" : "recordBytes");
        if (!ReadRecordAt(&scanInput, m_mainHeader.scanHeaderPosition, m_scanHeader)) {
            throw kxbase::KXHeaderReadingException("Invalid scan headers",
                                                   ProblemOf(m_scanHeader, m_mainHeader.scanHeaderPosition));
        }
        m_scanProperties = m_scanHeader.properties;

        // Where the file has no component records the position is 0; the first read then meets the main
        // header and ends the run.
        ComponentHeader component;
        bool found = ReadRecordAt(&input, m_mainHeader.firstComponentHeaderPosition, component);
        for (; found; found = component.Read(&input) != 0) {
            m_codecs[component.component] = kxcodecs::ChunkCodecFactory::MakeCodec(component.codecIdentifier);
            m_componentValues[component.component] = component.value;
            if (m_codecs.size() > m_limits.components) {
                throw kxbase::KXHeaderReadingException(
                    "Error opening file",
                    {{},
                     component.GetRecordName(),
                     {},
                     {},
                     kxbase::OverLimit("components", m_codecs.size(), m_limits.components)});
            }
        }
        for (const auto& [type, codec] : m_codecs) {
            if (codec) continue;
            kxbase::ErrorContext context;
            context.record = component.GetRecordName();
            context.field = "codec identifier";
            context.detail = "no such codec for component " + kxbase::ComponentToString(type);
            throw kxbase::KXUnkownCodecException("Invalid codec ", context);
        }
        return m_mainHeader.firstChunkPosition;
    } catch (kxbase::KXException& e) {
        e.AddContext(FileContext());
        Close();
        throw;
    } catch (...) {
        Close();
        throw;
    }
}

void QSNScanReader::FillupPatchPosition() {
    kxbase::ErrorContext context;
    if (m_mainHeader.lookupTablePosition == 0) {
        context.record = m_mainHeader.GetRecordName();
        context.field = "lookup table position";
        context.detail = "the position is 0: the file was not finished";
        throw kxbase::KXIncompleteFileException("Lookup table not found", context);
    }
    InputWindow input = RecordInput(InputWindow::kUsualBytes);
    LookupTableHeader table(&m_patchTable);
    BoundRecord(table);
    if (!ReadTable(input, m_mainHeader.lookupTablePosition, 0, m_limits, table, context))
        throw kxbase::KXIncompleteFileException("Lookup table not found", context);
}

void QSNScanReader::FillupPreviewPosition() {
    if (m_mainHeader.previewLookupTablePosition == 0) return;
    InputWindow input = RecordInput(InputWindow::kUsualBytes);
    LookupTableHeader table(&m_previewTable);
    BoundRecord(table);
    kxbase::ErrorContext context;
    if (!ReadTable(input, m_mainHeader.previewLookupTablePosition, EntryBytes(m_patchTable), m_limits, table,
                   context))
        throw kxbase::KXIncompleteFileException("No preview found", context);
    // A preview is one chunk; only the first entry of a component is ever looked at.
    for (auto& [component, entries] : m_previewTable) {
        if (entries.size() > 1) entries = {entries.front()};
    }
}

void QSNScanReader::SetupGrid() {
    kxbase::GridTopology& grid = m_scanProperties.grid;
    grid.previewWidth = 0;
    grid.previewHeight = 0;
    grid.columnRatio = 1.0F;
    grid.rowRatio = 1.0F;
    if (m_previewTable.empty()) return;
    std::vector<unsigned char> chunk;
    ReadPreviewChunk(chunk, m_previewTable.begin()->first, kxcodecs::QKXChunkCodec::HeaderSize);
    kxcodecs::ChunkHeaderInfo header;
    if (!kxcodecs::QKXChunkCodec::ReadHeader(chunk, header)) return;
    grid.previewWidth = header.width;
    grid.previewHeight = header.height;
    if (header.width == 0 || header.height == 0) return;
    grid.columnRatio = static_cast<float>(grid.columns) / static_cast<float>(header.width);
    grid.rowRatio = static_cast<float>(grid.rows) / static_cast<float>(header.height);
}

void QSNScanReader::FillupScanProperties() {
    m_scanProperties.writerRevision = m_mainHeader.writerRevision;
    for (const auto& [component, value] : m_componentValues) {
        if (component >= 1 && component <= 3) m_scanProperties.componentValue[component - 1] = value;
    }
}

}  // namespace kxio
