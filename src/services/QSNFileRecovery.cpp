// SPDX-License-Identifier: MIT
#include "kxio/QSNFileRecovery.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iostream>
#include <limits>

#include "kxbase/Exceptions.h"
#include "kxbase/Points.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxbase/kxOutFile.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxcodecs/Quantise.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/ScanHeader.h"
#include "services/TagSearch.h"

namespace kxio {

namespace {

using kxbase::ComponentType;
using kxbase::ErrorContext;
using kxbase::InMemoryStream;
using kxbase::IOHeader;
using kxcodecs::ChunkHeaderInfo;
using kxcodecs::DecodeStatus;
using kxcodecs::QKXChunkCodec;

/// Values that the four strips of one patch row may hold together (1 GiB).
constexpr uint64_t kMaxStripValues = uint64_t{1} << 28;
/// Text is handed to the file in pieces of about this size.
constexpr size_t kTextBlockBytes = size_t{4} << 20;

std::vector<unsigned char> LoadFile(const std::wstring& path) {
    kxbase::kxInFile in(path);
    if (!in.IsOpen()) return {};
    std::vector<unsigned char> bytes(in.GetSize());
    bytes.resize(in.Read(bytes.data(), bytes.size()));
    return bytes;
}

/// Finds the records of one class that a read at every single byte position would find: behind a record
/// the search goes on at its end, anywhere else at the next byte.
///
/// Only positions that hold the tag are tried, and only frames that the read would not refuse by
/// themselves, so that no payload is copied in vain. `found(position)` ends the search by returning false.
template <class Record, class Found>
void SearchRecords(InMemoryStream& stream, uint32_t leastPayload, Found found) {
    const std::span<const unsigned char> bytes = stream.GetBytes();
    // A payload that is read and then refused costs its size. A file could be made of nothing but such
    // frames, one inside the other; once they have cost many times the file, long ones are passed over.
    constexpr uint64_t kAlwaysTried = 4096;
    uint64_t effortLeft = 16 * bytes.size() + (uint64_t{64} << 20);
    const TagSearch search({Record::Magic});
    Record record;
    uint64_t position = 0;
    while ((position = search.FindNext(bytes, position)) != TagSearch::kNotFound) {
        const uint64_t left = bytes.size() - position;
        if (left < IOHeader::FrameSize) return;
        const kxbase::RecordFrame frame = IOHeader::DecodeFrame(bytes.subspan(position, IOHeader::FrameSize));
        const bool worthReading = frame.version >= Record::MinimumVersion &&
                                  frame.payloadSize >= leastPayload &&
                                  frame.payloadSize <= left - IOHeader::FrameSize &&
                                  (frame.payloadSize <= kAlwaysTried || frame.payloadSize <= effortLeft);
        bool read = false;
        if (worthReading) {
            stream.Seek(position);
            try {
                read = record.Read(&stream) != 0;
            } catch (const kxbase::KXHeaderReadingException&) {
                read = false;  // refused by its version: no record here
            }
            if (!read) effortLeft -= std::min<uint64_t>(effortLeft, frame.payloadSize);
        }
        if (!read) {
            ++position;
            continue;
        }
        if (!found(record, position)) return;
        position += record.HeaderSize();
    }
}

/// Decodes a whole chunk; values that were quantised become floats or doubles.
DecodeStatus DecodeValues(const std::vector<unsigned char>& chunk, ChunkHeaderInfo& header,
                          std::vector<unsigned char>& values) {
    const DecodeStatus status = QKXChunkCodec::DecodeChunk(chunk, header, values);
    if (status == DecodeStatus::Decoded) {
        kxcodecs::Dequantise(values, header.ElementBytes(), header.step);
    }
    return status;
}

template <class Stored>
Stored Element(const std::vector<unsigned char>& values, uint64_t index) {
    Stored value;
    std::memcpy(&value, values.data() + index * sizeof(Stored), sizeof(Stored));
    return value;
}

/// Element `index` as an angle or range; 0 for element sizes that are no floats.
float FloatElement(const std::vector<unsigned char>& values, uint64_t elementBytes, uint64_t index) {
    switch (elementBytes) {
        case 4:
            return Element<float>(values, index);
        case 8:
            return static_cast<float>(Element<double>(values, index));
        default:
            return 0.0F;
    }
}

/// Element `index` as an intensity; 0 for element sizes that are none. A 4-byte value that was quantised is
/// a float by now.
uint32_t IntensityElement(const std::vector<unsigned char>& values, uint64_t elementBytes, bool quantised,
                          uint64_t index) {
    switch (elementBytes) {
        case 1:
            return values[index];
        case 2:
            return Element<uint16_t>(values, index);
        case 4: {
            if (!quantised) return Element<uint32_t>(values, index);
            const double value = std::round(static_cast<double>(Element<float>(values, index)));
            if (!(value > 0)) return 0;
            return static_cast<uint32_t>(
                std::min(value, static_cast<double>(std::numeric_limits<uint32_t>::max())));
        }
        default:
            return 0;
    }
}

void AppendFixed(std::string& text, float value) {
    char digits[64];  // the longest float has 39 digits before the point
    const auto end = std::to_chars(digits, digits + sizeof digits, static_cast<double>(value),
                                   std::chars_format::fixed, 5);
    text.append(digits, end.ptr);
    text += ' ';
}

void AppendPoint(std::string& text, float range, float horizontal, float vertical, uint32_t intensity) {
    const kxbase::tBaseXYZPoint<float> point(
        kxbase::tBasePolarPoint<float>(range / 1000.0F, horizontal, vertical));
    AppendFixed(text, point.x);
    AppendFixed(text, point.y);
    AppendFixed(text, point.z);
    const std::string number = std::to_string(intensity);
    text += number + ' ' + number + ' ' + number + ' ' + number + '\n';
}

}  // namespace

/// The values of one component in one patch row, patch by patch; cells of absent patches are zero. Floats
/// and intensities share the storage, each in its own vector.
struct QSNFileRecovery::Strip {
    struct Patch {
        std::vector<float> floats;
        std::vector<uint32_t> intensities;
    };
    std::map<uint32_t, Patch> patches;  // by patch column

    float Float(uint32_t column, uint64_t cell) const {
        const auto patch = patches.find(column);
        return patch != patches.end() && cell < patch->second.floats.size() ? patch->second.floats[cell] : 0;
    }
    uint32_t Intensity(uint32_t column, uint64_t cell) const {
        const auto patch = patches.find(column);
        const bool there = patch != patches.end() && cell < patch->second.intensities.size();
        return there ? patch->second.intensities[cell] : 0;
    }
};

/// An export under way.
struct QSNFileRecovery::Export {
    std::ostream* messages;
    AsciiReport report;
    uint64_t valuesLeft = 0;  // of the present patch row

    void Print(const std::string& line) const {
        if (messages != nullptr) *messages << line + "\n";
    }
};

QSNFileRecovery::QSNFileRecovery(const std::wstring& path) try : QSNFileRecovery(LoadFile(path)) {
} catch (kxbase::KXException& e) {
    ErrorContext context;
    context.file = kxbase::Encode_UTF8(path);
    e.AddContext(context);
    throw;
}

QSNFileRecovery::QSNFileRecovery(std::vector<unsigned char> bytes) : m_stream(std::move(bytes)) {
    m_patches = AnalysePatches();
    m_patchSide = GetPatchSize();
}

QSNFileRecovery::QSNFileRecovery(const QSNFileRecovery&) = default;
QSNFileRecovery& QSNFileRecovery::operator=(const QSNFileRecovery&) = default;
QSNFileRecovery::~QSNFileRecovery() = default;

QSNFileRecovery::PatchMap QSNFileRecovery::AnalysePatches() {
    PatchMap patches;
    SearchRecords<DataChunkHeader>(
        m_stream, DataChunkHeader::PayloadSize, [&](const DataChunkHeader& record, uint64_t position) {
            // The chunk that empty patches share belongs to no row and no column.
            if (!record.IsSharedEmpty()) {
                m_largestRow = std::max(m_largestRow, record.patchRow);
                m_largestColumn = std::max(m_largestColumn, record.patchColumn);
                patches[record.patchRow][record.patchColumn][record.component] = {record.byteCount, position};
            }
            return true;
        });
    return patches;
}

std::vector<unsigned char> QSNFileRecovery::GetCompressedChunk(const ChunkAddress& address) {
    DataChunkHeader record;
    m_stream.Seek(address.position);
    if (record.Read(&m_stream) == 0) return {};
    if (address.dataSize > m_stream.GetSize() - m_stream.Tell()) return {};
    std::vector<unsigned char> chunk(address.dataSize);
    if (m_stream.Read(chunk.data(), chunk.size()) != chunk.size()) return {};
    return chunk;
}

uint32_t QSNFileRecovery::GetPatchSize() {
    for (const auto& [row, columns] : m_patches) {
        for (const auto& [column, components] : columns) {
            const auto range = components.find(ComponentType::Range);
            if (range == components.end()) continue;
            const std::vector<unsigned char> chunk = GetCompressedChunk(range->second);
            ChunkHeaderInfo header;
            std::vector<unsigned char> values;
            const DecodeStatus status = QKXChunkCodec::DecodeChunk(chunk, header, values);
            if (status == DecodeStatus::Decoded) return header.width;
            ErrorContext context;
            context.record =
                "range chunk of patch (" + std::to_string(row) + "," + std::to_string(column) + ")";
            context.offset = range->second.position;
            context.detail = kxcodecs::ToText(status);
            throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
        }
    }
    return 0;
}

QSNFileRecovery::Strip QSNFileRecovery::BuildStrip(uint32_t row, ComponentType component, Export& state) {
    Strip strip;
    const auto columns = m_patches.find(row);
    if (columns == m_patches.end()) {
        state.Print("Missing row: " + std::to_string(row));
        return strip;
    }
    for (const auto& [column, components] : columns->second) {
        if (components.size() != 4) {
            state.Print("Beep Col size: " + std::to_string(components.size()));
        }
        const auto address = components.find(component);
        if (address == components.end() || address->second.dataSize == 0) continue;
        ChunkHeaderInfo header;
        std::vector<unsigned char> values;
        if (DecodeValues(GetCompressedChunk(address->second), header, values) != DecodeStatus::Decoded) {
            state.Print("Cannot decompress: ");
            ++state.report.chunksLost;
            continue;
        }
        // Patches of the largest column have no place: the strip ends before them.
        if (column >= m_largestColumn) continue;
        const uint64_t elementBytes = header.ElementBytes();
        const uint64_t cells =
            std::min(values.size() / elementBytes, uint64_t{m_patchSide} * uint64_t{m_patchSide});
        if (cells > state.valuesLeft) {
            ErrorContext context;
            context.record = "patch row " + std::to_string(row);
            context.detail = "its patches decode to more than " + std::to_string(kMaxStripValues) + " values";
            throw kxbase::KXException("Patch row too large", context);
        }
        state.valuesLeft -= cells;
        Strip::Patch& patch = strip.patches[column];
        if (component == ComponentType::Luminance16) {
            patch.intensities.reserve(cells);
            for (uint64_t i = 0; i < cells; ++i) {
                patch.intensities.push_back(IntensityElement(values, elementBytes, header.step != 1.0F, i));
            }
        } else {
            patch.floats.reserve(cells);
            for (uint64_t i = 0; i < cells; ++i) {
                patch.floats.push_back(FloatElement(values, elementBytes, i));
            }
        }
    }
    return strip;
}

void QSNFileRecovery::ExportAscii(const std::wstring& path) {
    AsciiOptions options;
    options.messages = &std::cout;
    ExportAscii(path, options);
}

QSNFileRecovery::AsciiReport QSNFileRecovery::ExportAscii(const std::wstring& path,
                                                          const AsciiOptions& options) {
    kxbase::kxOutFile out(path, kxbase::kxOutFile::CreateOrTruncate);
    if (!out.IsOpen()) {
        ErrorContext context;
        context.file = kxbase::Encode_UTF8(path);
        if (out.IsHeldByAnother()) context.detail = "another one is writing or editing it";
        throw kxbase::KXFileNotOpenException("Cannot file not open", context);
    }
    const AsciiReport report = ExportAscii(out, options);
    out.Close();
    return report;
}

QSNFileRecovery::AsciiReport QSNFileRecovery::ExportAscii(kxbase::IOutFileStream& out,
                                                          const AsciiOptions& options) {
    Export state{options.messages, {}};
    for (const auto& [row, columns] : m_patches) {
        for (const auto& [column, components] : columns)
            state.report.chunksFound += components.size();
    }
    std::string text;
    // Long rows are written in pieces: the same bytes in less memory.
    const auto flush = [&] {
        if (!text.empty()) out.Write(text.data(), text.size());
        text.clear();
    };
    for (uint32_t row = 0; row < m_largestRow; ++row) {
        if (!m_patches.contains(row)) {
            ++state.report.rowsMissing;
            if (options.messages == nullptr) {
                // Nobody wants to hear of each of them, and one damaged number may claim billions.
                const auto present = m_patches.lower_bound(row);
                const uint32_t next = present == m_patches.end() ? m_largestRow : present->first;
                state.report.rowsMissing += next - row - 1;
                row = next - 1;
                if (options.rowDone) options.rowDone(row + 1, m_largestRow);
                continue;
            }
        }
        state.valuesLeft = kMaxStripValues;
        const Strip ranges = BuildStrip(row, ComponentType::Range, state);
        const Strip vertical = BuildStrip(row, ComponentType::VerticalAngle, state);
        const Strip horizontal = BuildStrip(row, ComponentType::HorizontalAngle, state);
        const Strip intensity = BuildStrip(row, ComponentType::Luminance16, state);
        uint64_t mostCells = 0;
        for (const auto& [column, patch] : ranges.patches) {
            mostCells = std::max<uint64_t>(mostCells, patch.floats.size());
        }
        for (uint64_t first = 0; first < mostCells; first += m_patchSide) {  // one grid row after the other
            for (const auto& [column, patch] : ranges.patches) {
                const uint64_t end = std::min<uint64_t>(first + m_patchSide, patch.floats.size());
                for (uint64_t cell = first; cell < end; ++cell) {
                    if (!(patch.floats[cell] > 0)) continue;
                    AppendPoint(text, patch.floats[cell], horizontal.Float(column, cell),
                                vertical.Float(column, cell), intensity.Intensity(column, cell));
                    ++state.report.points;
                    if (text.size() >= kTextBlockBytes) flush();
                }
            }
        }
        flush();
        state.Print(std::to_string(row + 1) + "/" + std::to_string(m_largestRow));
        if (options.rowDone) options.rowDone(row + 1, m_largestRow);
    }
    if (options.messages != nullptr) options.messages->flush();
    return state.report;
}

bool QSNFileRecovery::TryToFindScanProperties(ScanProperties& properties) {
    ScanProperties last;
    unsigned count = 0;
    SearchRecords<ScanHeader>(m_stream, 0, [&](const ScanHeader& record, uint64_t /*position*/) {
        if (++count == 1) last = record.properties;
        return count < 2;
    });
    if (count != 1) return false;
    properties = last;
    return true;
}

}  // namespace kxio
