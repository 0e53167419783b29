// SPDX-License-Identifier: MIT
#pragma once

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

    uint8_t U8(const char* field);    ///< one byte
    uint16_t U16(const char* field);  ///< two bytes
    uint32_t U32(const char* field);  ///< four bytes
    uint64_t U64(const char* field);  ///< eight bytes
    float F32(const char* field);     ///< IEEE 754 single precision
    double F64(const char* field);    ///< IEEE 754 double precision
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
    const unsigned char* Next(uint64_t count, const char* field, FieldKind kind);

    std::span<const unsigned char> m_bytes;
    uint64_t m_position = 0;
    uint64_t m_baseOffset;
    std::string m_recordName;
    FieldSink* m_sink = nullptr;
};

}  // namespace kxbase
