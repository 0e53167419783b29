// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "kxbase/Export.h"

namespace kxbase {

/// The mirror of `ByteReader`: fields into a buffer of fixed size, little-endian.
/// A write that does not fit throws `KXWrongDataSizeofException`: it is a mistake of the caller's
/// size computation, never of a file.
class KXBASE_EXPORT ByteWriter {
public:
    /// The buffer is borrowed.
    explicit ByteWriter(std::span<unsigned char> buffer);

    void U8(uint8_t value);                            ///< one byte
    void U16(uint16_t value);                          ///< two bytes
    void U32(uint32_t value);                          ///< four bytes
    void U64(uint64_t value);                          ///< eight bytes
    void F32(float value);                             ///< IEEE 754 single precision
    void F64(double value);                            ///< IEEE 754 double precision
    void Bytes(std::span<const unsigned char> bytes);  ///< as they are
    /// Writes `count` zero bytes.
    void Zeros(uint64_t count);
    /// The text up to its first NUL, then one NUL.
    void TextWithNul(std::string_view text);

    uint64_t Position() const { return m_position; }                     ///< bytes written
    uint64_t Remaining() const { return m_buffer.size() - m_position; }  ///< bytes of the buffer left

private:
    unsigned char* Next(uint64_t count);

    std::span<unsigned char> m_buffer;
    uint64_t m_position = 0;
};

}  // namespace kxbase
