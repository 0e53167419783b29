// SPDX-License-Identifier: MIT
#include "kxbase/ByteWriter.h"

#include <bit>
#include <cstring>

#include "kxbase/Exceptions.h"

namespace kxbase {

namespace {

template <class T>
void PutLittleEndian(unsigned char* p, T value) {
    for (unsigned i = 0; i < sizeof(T); ++i)
        p[i] = static_cast<unsigned char>(value >> (8 * i));
}

}  // namespace

ByteWriter::ByteWriter(std::span<unsigned char> buffer) : m_buffer(buffer) {}

unsigned char* ByteWriter::Next(uint64_t count) {
    if (count > Remaining()) {
        ErrorContext context;
        context.detail = std::to_string(count) + " bytes to write, room for " + std::to_string(Remaining());
        throw KXWrongDataSizeofException("Record does not fit its size", context);
    }
    unsigned char* place = m_buffer.data() + m_position;
    m_position += count;
    return place;
}

void ByteWriter::U8(uint8_t value) {
    *Next(1) = value;
}
void ByteWriter::U16(uint16_t value) {
    PutLittleEndian(Next(2), value);
}
void ByteWriter::U32(uint32_t value) {
    PutLittleEndian(Next(4), value);
}
void ByteWriter::U64(uint64_t value) {
    PutLittleEndian(Next(8), value);
}
void ByteWriter::F32(float value) {
    U32(std::bit_cast<uint32_t>(value));
}
void ByteWriter::F64(double value) {
    U64(std::bit_cast<uint64_t>(value));
}

void ByteWriter::Bytes(std::span<const unsigned char> bytes) {
    unsigned char* place = Next(bytes.size());
    if (!bytes.empty()) std::memcpy(place, bytes.data(), bytes.size());
}

void ByteWriter::Zeros(uint64_t count) {
    unsigned char* place = Next(count);
    if (count != 0) std::memset(place, 0, static_cast<size_t>(count));
}

void ByteWriter::TextWithNul(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    unsigned char* place = Next(text.size() + 1);
    if (!text.empty()) std::memcpy(place, text.data(), text.size());
    place[text.size()] = 0;
}

}  // namespace kxbase
