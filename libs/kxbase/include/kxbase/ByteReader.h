// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <string>

#include "kxbase/Exceptions.h"

namespace kxbase {

/// The bytes end before the field does, or a count or size field claims more than is there. Thrown by
/// `ByteReader`; the context names record, field and absolute byte offset.
class KXBASE_EXPORT ByteRangeException : public KXException {
public:
    using KXException::KXException;
    ~ByteRangeException() override;
};

/// How the bytes of a field are meant.
enum class FieldKind { Unsigned, Float, Text, Bytes };

/// Is told of each field that a `ByteReader` takes, in the order in which they are taken: for programs that
/// show records. What decodes a record so also describes it.
class KXBASE_EXPORT FieldSink {
public:
    virtual ~FieldSink();
    /// \param field   its name
    /// \param offset  absolute offset of its first byte
    /// \param bytes   as they are stored, with the closing NUL of a text; valid during the call
    virtual void OnField(const char* field, FieldKind kind, uint64_t offset,
                         std::span<const unsigned char> bytes) = 0;
};

/// A cursor over bytes that came from outside: the only way by which bytes become fields.
///
/// All values are little-endian. Every read is checked in every build; a read that does not fit throws
/// `ByteRangeException` and leaves the position where it was. The view does not own its bytes.
class KXBASE_EXPORT ByteReader {
public:
    /// \param bytes        what may be read
    /// \param baseOffset   absolute offset of the first byte in the file, for messages
    /// \param recordName   kind of record, for messages
    explicit ByteReader(std::span<const unsigned char> bytes, uint64_t baseOffset = 0,
                        std::string recordName = {});

    /// From now on every field that is taken is told to `sink`, which is borrowed; null ends it.
    void ReportTo(FieldSink* sink) { m_sink = sink; }

    /// One byte.
    uint8_t U8(const char* field) { return Number<uint8_t>(field, FieldKind::Unsigned); }
    /// Two bytes.
    uint16_t U16(const char* field) { return Number<uint16_t>(field, FieldKind::Unsigned); }
    /// Four bytes.
    uint32_t U32(const char* field) { return Number<uint32_t>(field, FieldKind::Unsigned); }
    /// Eight bytes.
    uint64_t U64(const char* field) { return Number<uint64_t>(field, FieldKind::Unsigned); }
    /// IEEE 754 single precision.
    float F32(const char* field) { return std::bit_cast<float>(Number<uint32_t>(field, FieldKind::Float)); }
    /// IEEE 754 double precision.
    double F64(const char* field) { return std::bit_cast<double>(Number<uint64_t>(field, FieldKind::Float)); }
    /// Copies `out.size()` bytes.
    void Bytes(std::span<unsigned char> out, const char* field);
    /// A view of the next `count` bytes.
    std::span<const unsigned char> Take(uint64_t count, const char* field);
    /// Moves behind the next `count` bytes.
    void Skip(uint64_t count, const char* field);
    /// Text up to the next NUL, which is passed over too. No NUL before the end: throws.
    std::string TextToNul(const char* field);

    /// Checks a claim: throws unless `count` elements of `elementBytes` bytes are left. Nothing is read.
    void RequireElements(uint64_t count, uint64_t elementBytes, const char* field) const;

    /// Bytes behind the position.
    uint64_t Remaining() const { return m_bytes.size() - m_position; }
    /// Position inside the view.
    uint64_t Position() const { return m_position; }
    /// Absolute offset of the position in the file.
    uint64_t Offset() const { return m_baseOffset + m_position; }

private:
    [[noreturn]] void Fail(const char* field, const std::string& detail) const;
    // Here, so that tables of millions of fields are read as fast as memory.
    const unsigned char* Next(uint64_t count, const char* field, FieldKind kind) {
        if (count > Remaining() || m_sink != nullptr) [[unlikely]]
            return NextWithCare(count, field, kind);
        const unsigned char* place = m_bytes.data() + m_position;
        m_position += count;
        return place;
    }
    const unsigned char* NextWithCare(uint64_t count, const char* field, FieldKind kind);
    // Written out with shifts: compilers make one load of it, and neither the byte order nor the alignment
    // of the machine matters.
    template <class T>
    T Number(const char* field, FieldKind kind) {
        const unsigned char* p = Next(sizeof(T), field, kind);
        T value = 0;
        for (unsigned i = 0; i < sizeof(T); ++i)
            value = static_cast<T>(value | static_cast<T>(T{p[i]} << (8 * i)));
        return value;
    }

    std::span<const unsigned char> m_bytes;
    uint64_t m_position = 0;
    uint64_t m_baseOffset;
    std::string m_recordName;
    FieldSink* m_sink = nullptr;
};

}  // namespace kxbase
