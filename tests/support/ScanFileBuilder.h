// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/InMemoryStream.h"
#include "kxcodecs/ChunkCodecFactory.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxio/ScanHeader.h"
#include "support/RecordBytes.h"

namespace kxtest {

/// Payload offsets of the main header's fields, for `SetMainField`.
struct MainField {
    static constexpr size_t ScanHeader = 0;
    static constexpr size_t FirstComponentHeader = 8;
    static constexpr size_t FirstChunk = 16;
    static constexpr size_t FirstExtendedHeader = 24;
    static constexpr size_t ChunkDataEnd = 32;
    static constexpr size_t Thumbnail = 40;
    static constexpr size_t LookupTable = 48;
    static constexpr size_t PreviewLookupTable = 56;
    static constexpr size_t BoundingInformation = 64;
    static constexpr size_t WriterRevision = 72;
};

inline void PutU32(Bytes& bytes, size_t offset, uint32_t value) {
    for (size_t i = 0; i < 4; ++i)
        bytes.at(offset + i) = static_cast<unsigned char>(value >> (8 * i));
}
inline void PutU64(Bytes& bytes, size_t offset, uint64_t value) {
    for (size_t i = 0; i < 8; ++i)
        bytes.at(offset + i) = static_cast<unsigned char>(value >> (8 * i));
}
inline uint64_t GetU64(const Bytes& bytes, size_t offset) {
    uint64_t value = 0;
    for (size_t i = 8; i-- > 0;)
        value = value << 8 | bytes.at(offset + i);
    return value;
}
inline void SetMainField(Bytes& file, size_t field, uint64_t value) {
    PutU64(file, 16 + field, value);
}
inline uint64_t GetMainField(const Bytes& file, size_t field) {
    return GetU64(file, 16 + field);
}

/// The 28 bytes before a chunk's payload.
inline Bytes ChunkHeader(uint64_t codec, uint32_t width, uint32_t height, uint32_t decodedBytes, float step,
                         uint32_t uncompressedBytes) {
    return ByteList().U64(codec).U32(width).U32(height).U32(decodedBytes).F32(step).U32(uncompressedBytes);
}
inline constexpr uint64_t kSnappyCodec = 0x595050414e53584bULL;
inline constexpr uint64_t kZLibCodec = 0x000042494c5a584bULL;

/// A chunk spelled out: the bytes as one Snappy block of literals of up to 60 bytes.
inline Bytes LiteralChunk(const Bytes& bytes, uint32_t width, uint32_t height, float step = 1.0F) {
    const auto size = static_cast<uint32_t>(bytes.size());
    ByteList chunk;
    chunk.Raw(ChunkHeader(kSnappyCodec, width, height, size, step, size));
    uint32_t length = size;  // the block begins with its length, seven bits a byte
    for (; length >= 0x80; length >>= 7)
        chunk.U8(static_cast<uint8_t>(length | 0x80));
    chunk.U8(static_cast<uint8_t>(length));
    for (size_t at = 0; at < bytes.size(); at += 60) {
        const size_t count = std::min<size_t>(60, bytes.size() - at);
        chunk.U8(static_cast<uint8_t>((count - 1) << 2));
        chunk.Raw(Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                        bytes.begin() + static_cast<std::ptrdiff_t>(at + count)));
    }
    return chunk;
}

/// Values of any type as a chunk made by a codec.
template <class T>
Bytes EncodedChunk(const kxcodecs::QKXChunkCodec& codec, const std::vector<T>& values, uint32_t width,
                   uint32_t height, float quality = 1.0F) {
    Bytes chunk;
    codec.Encode(values.data(), width, height, values.size() * sizeof(T), quality, chunk);
    return chunk;
}
template <class T>
Bytes SnappyChunk(const std::vector<T>& values, uint32_t width, uint32_t height, float quality = 1.0F) {
    return EncodedChunk(kxcodecs::SnappyChunkCodec(), values, width, height, quality);
}

/// Puts a scan file together record by record, without the library's writer, so that odd and damaged files
/// are as easy to make as good ones. Order in the file: main header, chunks as added, scan header, lookup
/// table, thumbnail, previews and their table, limits, extended records. What was not added is left out and
/// its position is 0.
class ScanFileBuilder {
public:
    /// Goes into the scan header, unless `scanHeader` holds a whole record.
    kxio::ScanProperties properties;
    Bytes scanHeader;
    uint32_t writerRevision = 240;
    bool withLookupTable = true;

    ScanFileBuilder(uint32_t columns, uint32_t rows, uint32_t patchWidth, uint32_t patchHeight) {
        properties.grid.columns = columns;
        properties.grid.rows = rows;
        properties.grid.patchWidth = patchWidth;
        properties.grid.patchHeight = patchHeight;
        properties.grid.columnAngularStep = 0.01F;
        properties.grid.rowAngularStep = 0.01F;
        properties.tilt.kind = 0;
    }

    /// Appends a chunk record and its chunk, and notes its place in the table.
    ScanFileBuilder& Chunk(uint32_t component, uint32_t row, uint32_t column, const Bytes& chunk) {
        Place(component, row * properties.grid.PatchesPerRow() + column) =
            Append(component, row, column, chunk);
        return *this;
    }
    /// Appends one chunk that the patches of these linear indexes share.
    ScanFileBuilder& SharedChunk(uint32_t component, const std::vector<uint32_t>& indexes,
                                 const Bytes& chunk) {
        const Entry entry = Append(component, 0xffffffffU, 0xffffffffU, chunk);
        for (const uint32_t index : indexes)
            Place(component, index) = entry;
        return *this;
    }
    /// The component's table has an entry for every patch, also without any chunk.
    ScanFileBuilder& Component(uint32_t component) {
        if (m_table[component].empty()) m_table[component].resize(properties.grid.PatchCount());
        return *this;
    }
    /// Sets a table entry as it is.
    ScanFileBuilder& Entry0(uint32_t component, uint32_t index, uint64_t position, uint32_t bytes) {
        Place(component, index) = {position, bytes};
        return *this;
    }
    /// Bytes between the chunks, without a record.
    ScanFileBuilder& RawBytes(const Bytes& bytes) {
        m_chunks.Raw(bytes);
        return *this;
    }
    ScanFileBuilder& Preview(uint32_t component, const Bytes& chunk) {
        m_previews.emplace_back(component, chunk);
        return *this;
    }
    ScanFileBuilder& Thumbnail(const Bytes& jpeg, uint32_t width, uint32_t height) {
        m_thumbnail =
            Record(kThumbnailRecord,
                   ByteList().U32(width).U32(height).U32(static_cast<uint32_t>(jpeg.size())).Raw(jpeg));
        return *this;
    }
    ScanFileBuilder& Limits(float minimum, float maximum, const std::vector<std::pair<float, float>>& pairs) {
        ByteList payload;
        payload.F32(minimum).F32(maximum).U32(static_cast<uint32_t>(pairs.size()));
        for (const auto& [low, high] : pairs)
            payload.F32(low).F32(high);
        m_limits = Record(kMinMaxRecord, payload);
        return *this;
    }
    ScanFileBuilder& ComponentRecord(uint32_t component, uint64_t codec, double value) {
        m_components.Raw(Record(kComponentRecord, ByteList().U32(component).U64(codec).F64(value)));
        return *this;
    }
    ScanFileBuilder& Tail(const Bytes& record) {
        m_tail.Raw(record);
        return *this;
    }
    ScanFileBuilder& Message(const std::string& text) {
        return Tail(ExtendedRecord(0xac14e2e7714a591eULL, ByteList().Text(text)));
    }

    Bytes Build() const {
        ByteList file;
        std::map<size_t, uint64_t> fields;
        const auto add = [&](size_t field, const Bytes& bytes) {
            if (bytes.empty()) return;
            fields[field] = file.Get().size();
            file.Raw(bytes);
        };
        file.Fill(92, 0);
        fields[MainField::FirstChunk] = 92;
        file.Raw(m_chunks);
        fields[MainField::ChunkDataEnd] = file.Get().size();
        add(MainField::ScanHeader, scanHeader.empty() ? MakeScanHeader() : scanHeader);
        if (withLookupTable) add(MainField::LookupTable, MakeTable(m_table));
        add(MainField::Thumbnail, m_thumbnail);
        std::map<uint32_t, std::vector<Entry>> previews;
        for (const auto& [component, chunk] : m_previews) {
            previews[component] = {{file.Get().size(), static_cast<uint32_t>(chunk.size())}};
            file.Raw(chunk);
        }
        if (!previews.empty()) add(MainField::PreviewLookupTable, MakeTable(previews));
        add(MainField::BoundingInformation, m_limits);
        add(MainField::FirstComponentHeader, m_components);
        add(MainField::FirstExtendedHeader, m_tail);

        ByteList main;
        for (size_t field = 0; field < 72; field += 8)
            main.U64(fields.count(field) != 0 ? fields.at(field) : 0);
        main.U32(writerRevision);
        Bytes bytes = file;
        const Bytes record = Record(kMainRecord, main);
        std::memcpy(bytes.data(), record.data(), record.size());
        return bytes;
    }

private:
    struct Entry {
        uint64_t position = 0;
        uint32_t byteCount = 0;
    };

    Entry& Place(uint32_t component, uint32_t index) {
        Component(component);
        return m_table[component].at(index);
    }
    Entry Append(uint32_t component, uint32_t row, uint32_t column, const Bytes& chunk) {
        const auto size = static_cast<uint32_t>(chunk.size());
        m_chunks.Raw(Record(kChunkRecord, ByteList().U32(size).U32(component).U32(row).U32(column)));
        const Entry entry{92 + m_chunks.Get().size(), size};
        m_chunks.Raw(chunk);
        return entry;
    }
    Bytes MakeScanHeader() const {
        kxio::ScanHeader record;
        record.properties = properties;
        return Written(record);
    }
    static Bytes MakeTable(const std::map<uint32_t, std::vector<Entry>>& table) {
        ByteList payload;
        payload.U32(static_cast<uint32_t>(table.size()));
        for (const auto& [component, entries] : table) {
            payload.U32(component).U32(static_cast<uint32_t>(entries.size()));
            for (const Entry& entry : entries)
                payload.U64(entry.position).U32(entry.byteCount);
        }
        return Record(kLookupRecord, payload);
    }

    ByteList m_chunks;
    std::map<uint32_t, std::vector<Entry>> m_table;
    std::vector<std::pair<uint32_t, Bytes>> m_previews;
    Bytes m_thumbnail;
    Bytes m_limits;
    ByteList m_components;
    ByteList m_tail;
};

}  // namespace kxtest
