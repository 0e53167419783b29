// SPDX-License-Identifier: MIT
#include "kxio/DumpRecords.h"

#include <algorithm>
#include <bit>
#include <map>
#include <memory>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxInFile.h"
#include "kxcodecs/JPEG.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/ComponentHeader.h"
#include "kxio/DataChunkHeader.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/PreregistrationExtendedHeader.h"
#include "kxio/ThumbnailHeader.h"
#include "kxio/UUIDExtendedHeader.h"
#include "services/FileLayout.h"
#include "services/VerifyExtended.h"

namespace kxio {

namespace {

using kxbase::FieldKind;

constexpr size_t kMostShownBytes = 32;
constexpr size_t kMostTextBytes = 4096;

std::string Hex(std::span<const unsigned char> bytes) {
    static const char* digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes.first(std::min(bytes.size(), kMostShownBytes))) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text + (bytes.size() > kMostShownBytes ? "..." : "");
}

uint64_t Unsigned(std::span<const unsigned char> bytes) {
    uint64_t value = 0;
    for (size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | bytes[i];
    return value;
}

/// What is no UTF-8 becomes U+FFFD, so that every dump can be shown.
std::string ShownText(std::span<const unsigned char> bytes) {
    const auto end = std::find(bytes.begin(), bytes.end(), 0);
    std::string text(
        bytes.begin(),
        std::min(end, bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), kMostTextBytes))));
    return kxbase::Encode_UTF8(kxbase::Decode_UTF8(text));
}

/// Collects fields; of repeated ones the first.
class FieldCollector : public kxbase::FieldSink {
public:
    FieldCollector(DumpedRecord& record, uint64_t mostEntries) : m_record(record), m_most(mostEntries) {}

    void OnField(const char* field, FieldKind kind, uint64_t offset,
                 std::span<const unsigned char> bytes) override {
        const std::string name = field;
        // A count begins a list anew.
        if (name.starts_with("number of")) m_seen.clear();
        const bool entry =
            name == "position" || name == "byte count" || name == "minimum" || name == "maximum";
        if (entry && m_seen[name]++ >= m_most) {
            ++m_record.leftOut;
            return;
        }
        DumpedField dumped{name, {}, offset, bytes.size(), uint64_t{0}};
        switch (kind) {
            case FieldKind::Unsigned:
                dumped.type = "u" + std::to_string(8 * bytes.size());
                dumped.value = Unsigned(bytes);
                break;
            case FieldKind::Float:
                dumped.type = "f" + std::to_string(8 * bytes.size());
                dumped.value =
                    bytes.size() == sizeof(float)
                        ? static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(Unsigned(bytes))))
                        : std::bit_cast<double>(Unsigned(bytes));
                break;
            case FieldKind::Text:
                dumped.type = "text";
                dumped.value = ShownText(bytes);
                break;
            case FieldKind::Bytes:
                dumped.type = "bytes";
                dumped.value = Hex(bytes);
                break;
        }
        m_record.fields.push_back(std::move(dumped));
    }

private:
    DumpedRecord& m_record;
    uint64_t m_most;
    std::map<std::string, uint64_t> m_seen;
};

/// A record object for a tag; null for an unknown one.
std::unique_ptr<kxbase::IOHeader> MakeRecord(uint64_t tag, LookupTable& table,
                                             std::vector<MinMaxPair>& pairs) {
    switch (tag) {
        case MainFileHeader::Magic:
            return std::make_unique<MainFileHeader>();
        case ScanHeader::Magic:
            return std::make_unique<ScanHeader>();
        case ComponentHeader::Magic:
            return std::make_unique<ComponentHeader>();
        case DataChunkHeader::Magic:
            return std::make_unique<DataChunkHeader>();
        case LookupTableHeader::Magic:
            return std::make_unique<LookupTableHeader>(&table);
        case MinMaxHeader::Magic:
            return std::make_unique<MinMaxHeader>(&pairs);
        case ThumbnailHeader::Magic:
            return std::make_unique<ThumbnailHeader>();
        case ExtendedHeader::Magic:
            return std::make_unique<ExtendedHeader>();
        default:
            return nullptr;
    }
}

class Dumper {
public:
    Dumper(FileWindow& file, const DumpOptions& options) : m_file(file), m_options(options) {}

    DumpedRecord Dump(const FilePiece& piece) {
        DumpedRecord record;
        record.offset = piece.offset;
        record.bytes = piece.bytes;
        switch (piece.kind) {
            case PieceKind::Unknown:
                record.kind = "Unknown bytes";
                Damaged(record, "they belong to no record");
                Start(record);
                break;
            case PieceKind::Preview:
                record.kind = "Preview";
                Chunk(record, piece);
                break;
            case PieceKind::Listed:
                record.kind = "Chunk without a record";
                Damaged(record, "the lookup table lists it, but no chunk record lies in front of it");
                Chunk(record, piece);
                break;
            case PieceKind::Chunk:
            case PieceKind::Record:
                Framed(record, piece);
                break;
        }
        if (piece.cut) Damaged(record, "the file ends before it does");
        return record;
    }

private:
    /// Of several reasons the first is kept.
    static void Damaged(DumpedRecord& record, std::string problem) {
        record.damaged = true;
        if (record.problem.empty()) record.problem = std::move(problem);
    }

    /// The first bytes of what could not be told.
    void Start(DumpedRecord& record) {
        const auto bytes = m_file.Peek(record.offset, std::min<uint64_t>(record.bytes, kMostShownBytes));
        record.fields.push_back({"bytes", "bytes", record.offset, record.bytes,
                                 Hex(bytes) + (record.bytes > bytes.size() ? "..." : "")});
    }

    void Framed(DumpedRecord& record, const FilePiece& piece) {
        LookupTable table;
        std::vector<MinMaxPair> pairs;
        const auto frameBytes = m_file.Peek(piece.offset, kxbase::IOHeader::FrameSize);
        if (frameBytes.size() == kxbase::IOHeader::FrameSize)
            record.version = kxbase::IOHeader::DecodeFrame(frameBytes).version;
        const auto object = MakeRecord(piece.tag, table, pairs);
        if (!object) return Damaged(record, "an unknown tag");
        record.kind = object->GetRecordName();
        FieldCollector fields(record, m_options.mostEntries);
        object->SetFieldSink(&fields);
        kxbase::ErrorContext problem;
        if (!ReadRecord(m_file, piece.offset, *object, problem))
            Damaged(record, (problem.field.empty() ? "" : problem.field + ": ") + problem.detail);
        if (auto* extended = dynamic_cast<ExtendedHeader*>(object.get());
            extended != nullptr && !record.damaged)
            Extended(record, *extended);
        if (auto* thumbnail = dynamic_cast<ThumbnailHeader*>(object.get());
            thumbnail != nullptr && !record.damaged)
            Thumbnail(record, *thumbnail);
        if (piece.kind == PieceKind::Chunk) Chunk(record, piece);
    }

    void Extended(DumpedRecord& record, const ExtendedHeader& extended) {
        const std::string name = ExtendedKindName(extended.GetType());
        record.kind = name.empty() ? record.kind : "ExtendedHeader (" + name + ")";
        const uint64_t data = record.offset + kxbase::IOHeader::FrameSize + ExtendedHeader::FixedSize;
        const std::span bytes(extended.GetDataBuffer(), extended.GetDataBufferSize());
        // The kinds tell their fields themselves; the copy tells them to the same collector.
        const auto dropRaw = [&] { record.fields.pop_back(); };
        if (extended.GetType() == UUIDExtendedHeader::Type && bytes.size() >= UUIDExtendedHeader::ByteSize) {
            dropRaw();
            const UUIDExtendedHeader kind(extended);
        } else if (extended.GetType() == PreregistrationExtendedHeader::Type &&
                   bytes.size() >= PreregistrationExtendedHeader::ByteSize) {
            dropRaw();
            const PreregistrationExtendedHeader kind(extended);
        } else if (!name.empty() && name.find("histogram") == std::string::npos) {
            dropRaw();
            record.fields.push_back({"text", "text", data, bytes.size(), ShownText(bytes)});
        }
    }

    void Thumbnail(DumpedRecord& record, const ThumbnailHeader& thumbnail) {
        if (!m_options.decode) return;
        const std::vector<unsigned char>& jpeg = thumbnail.GetCompressed();
        unsigned char* pixels = nullptr;
        uint64_t bytes = 0;
        unsigned width = 0;
        unsigned height = 0;
        if (!kxcodecs::JPEG::Decode(jpeg.data(), jpeg.size(), pixels, bytes, width, height))
            Damaged(record, "the image is damaged");
        kxcodecs::JPEG::Free(pixels);
    }

    /// The codec header, and whether the data decodes.
    void Chunk(DumpedRecord& record, const FilePiece& piece) {
        const uint64_t data = piece.chunk.dataPosition;
        if (piece.chunk.trust == ChunkTrust::Repaired) Damaged(record, "the frame of its record is damaged");
        const auto head = m_file.Peek(
            data, std::min<uint64_t>(piece.chunk.byteCount, kxcodecs::ChunkHeaderInfo::kByteSize));
        if (head.size() < kxcodecs::ChunkHeaderInfo::kByteSize)
            return Damaged(record, "its data is shorter than the header of a codec");
        FieldCollector fields(record, m_options.mostEntries);
        kxcodecs::DecodeChunkHeader(head, &fields, data);
        if (piece.cut) return;
        if (!PlausibleCodecHeader(m_file, data, piece.chunk.byteCount))
            return Damaged(record, "no header of a codec that this library has");
        if (!m_options.decode) return;
        kxcodecs::ChunkHeaderInfo header;
        m_file.Read(data, piece.chunk.byteCount, m_chunk);
        const auto status = kxcodecs::QKXChunkCodec::DecodeChunk(m_chunk, header, m_values);
        if (status != kxcodecs::DecodeStatus::Decoded) Damaged(record, kxcodecs::ToText(status));
    }

    FileWindow& m_file;
    const DumpOptions& m_options;
    std::vector<unsigned char> m_chunk;
    std::vector<unsigned char> m_values;
};

}  // namespace

void DumpRecords(kxbase::IInFileStream& stream, const std::function<void(const DumpedRecord&)>& take,
                 const DumpOptions& options) {
    FileWindow file(stream);
    const FileLayout layout = FindLayout(file, [&](uint64_t done) {
        if (options.progress) options.progress(options.decode ? done / 100 : done / 2, file.Size());
    });
    Dumper dumper(file, options);
    for (const FilePiece& piece : layout.pieces) {
        take(dumper.Dump(piece));
        if (options.progress) options.progress(piece.End(), file.Size());
    }
}

void DumpRecords(const std::wstring& path, const std::function<void(const DumpedRecord&)>& take,
                 const DumpOptions& options) {
    kxbase::kxInFile file(path);
    if (!file.IsOpen()) {
        kxbase::ErrorContext context;
        context.file = kxbase::Encode_UTF8(path);
        throw kxbase::KXHeaderReadingException("Cannot open file", context);
    }
    file.SetPatient();  // what cannot be read is told with the rest
    DumpRecords(file, take, options);
}

}  // namespace kxio
