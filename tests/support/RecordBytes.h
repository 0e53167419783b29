// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstdint>
#include <string_view>

#include "kxbase/IOHeader.h"
#include "kxbase/InMemoryStream.h"
#include "support/Hex.h"

namespace kxtest {

/// Tags, versions and texts of the records, spelled out a second time so that a slip in the library shows.
struct RecordKind {
    uint64_t tag;
    uint32_t version;  ///< as written today
};
inline constexpr RecordKind kMainRecord{0xab797edb9b73de5eULL, 210};
inline constexpr RecordKind kScanRecord{0x9cb282fc40c502d8ULL, 270};
inline constexpr RecordKind kComponentRecord{0x8b72987f4b3b0a2dULL, 200};
inline constexpr RecordKind kChunkRecord{0x982157cf2cfe1ec6ULL, 200};
inline constexpr RecordKind kLookupRecord{0xa76e52dba1ebd435ULL, 200};
inline constexpr RecordKind kMinMaxRecord{0xa16177f6a29638cbULL, 200};
inline constexpr RecordKind kThumbnailRecord{0xb63bc13134b042c8ULL, 200};
inline constexpr RecordKind kExtendedRecord{0xa45065483053115fULL, 100};

/// Puts bytes together field by field, little-endian, without the library's own writer.
///
///     Bytes payload = ByteList().U32(1).U64(92).Text("abc");   // Text adds the closing NUL
class ByteList {
public:
    ByteList& U8(uint8_t value) { return Little(value, 1); }
    ByteList& U16(uint16_t value) { return Little(value, 2); }
    ByteList& U32(uint32_t value) { return Little(value, 4); }
    ByteList& U64(uint64_t value) { return Little(value, 8); }
    ByteList& F32(float value) { return U32(std::bit_cast<uint32_t>(value)); }
    ByteList& F64(double value) { return U64(std::bit_cast<uint64_t>(value)); }
    ByteList& Text(std::string_view text) {
        // One by one: g++ 12 takes the insertion of a range here for an overflow.
        for (const char c : text)
            m_bytes.push_back(static_cast<unsigned char>(c));
        return U8(0);
    }
    ByteList& Raw(const Bytes& bytes) {
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        return *this;
    }
    ByteList& Fill(size_t count, unsigned char value) {
        m_bytes.insert(m_bytes.end(), count, value);
        return *this;
    }
    const Bytes& Get() const { return m_bytes; }
    operator Bytes() const { return m_bytes; }  // NOLINT: the point of the class is to end as bytes

private:
    ByteList& Little(uint64_t value, unsigned count) {
        for (unsigned i = 0; i < count; ++i)
            m_bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
        return *this;
    }
    Bytes m_bytes;
};

/// A whole record: 16-byte frame and payload.
inline Bytes Record(uint64_t tag, uint32_t version, const Bytes& payload) {
    return ByteList().U64(tag).U32(version).U32(static_cast<uint32_t>(payload.size())).Raw(payload);
}
inline Bytes Record(const RecordKind& kind, const Bytes& payload) {
    return Record(kind.tag, kind.version, payload);
}

/// An extended record of the given kind.
inline Bytes ExtendedRecord(uint64_t typeTag, const Bytes& data, uint64_t link = 0) {
    return Record(kExtendedRecord,
                  ByteList().U64(link).U64(typeTag).U32(static_cast<uint32_t>(data.size())).Raw(data));
}

/// The record with another version in its frame.
inline Bytes WithVersion(Bytes record, uint32_t version) {
    for (unsigned i = 0; i < 4; ++i)
        record.at(8 + i) = static_cast<unsigned char>(version >> (8 * i));
    return record;
}

/// The record with another payload size in its frame.
inline Bytes WithPayloadSize(Bytes record, uint32_t size) {
    for (unsigned i = 0; i < 4; ++i)
        record.at(12 + i) = static_cast<unsigned char>(size >> (8 * i));
    return record;
}

/// What `Read` returns for these bytes.
inline uint64_t ReadFrom(kxbase::IOHeader& record, const Bytes& bytes) {
    kxbase::InMemoryStream in(bytes);
    return record.Read(&in);
}

/// The bytes that the record writes.
inline Bytes Written(kxbase::IOHeader& record) {
    kxbase::InMemoryStream out;
    record.Write(&out);
    return out.GetBytes();
}

}  // namespace kxtest
