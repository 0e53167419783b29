// SPDX-License-Identifier: MIT
#include "kxbase/ByteReader.h"

#include <bit>
#include <cstring>

namespace kxbase {

namespace {

// Written out with shifts: compilers make one load of it, and neither the byte order nor the alignment
// of the machine matters.
template <class T>
T LittleEndian(const unsigned char* p) {
    T value = 0;
    for (unsigned i = 0; i < sizeof(T); ++i)
        value = static_cast<T>(value | static_cast<T>(T{p[i]} << (8 * i)));
    return value;
}

}  // namespace

ByteRangeException::~ByteRangeException() = default;
FieldSink::~FieldSink() = default;

ByteReader::ByteReader(std::span<const unsigned char> bytes, uint64_t baseOffset, std::string recordName)
    : m_bytes(bytes), m_baseOffset(baseOffset), m_recordName(std::move(recordName)) {}

void ByteReader::Fail(const char* field, const std::string& detail) const {
    ErrorContext context;
    context.record = m_recordName;
    context.field = field;
    context.offset = Offset();
    context.detail = detail;
    throw ByteRangeException("Record ends too early", context);
}

const unsigned char* ByteReader::Next(uint64_t count, const char* field, FieldKind kind) {
    if (count > Remaining()) {
        Fail(field, std::to_string(count) + " bytes needed, " + std::to_string(Remaining()) + " left");
    }
    const unsigned char* place = m_bytes.data() + m_position;
    if (m_sink != nullptr) m_sink->OnField(field, kind, Offset(), {place, static_cast<size_t>(count)});
    m_position += count;
    return place;
}

uint8_t ByteReader::U8(const char* field) {
    return *Next(1, field, FieldKind::Unsigned);
}
uint16_t ByteReader::U16(const char* field) {
    return LittleEndian<uint16_t>(Next(2, field, FieldKind::Unsigned));
}
uint32_t ByteReader::U32(const char* field) {
    return LittleEndian<uint32_t>(Next(4, field, FieldKind::Unsigned));
}
uint64_t ByteReader::U64(const char* field) {
    return LittleEndian<uint64_t>(Next(8, field, FieldKind::Unsigned));
}
float ByteReader::F32(const char* field) {
    return std::bit_cast<float>(LittleEndian<uint32_t>(Next(4, field, FieldKind::Float)));
}
double ByteReader::F64(const char* field) {
    return std::bit_cast<double>(LittleEndian<uint64_t>(Next(8, field, FieldKind::Float)));
}

void ByteReader::Bytes(std::span<unsigned char> out, const char* field) {
    const unsigned char* place = Next(out.size(), field, FieldKind::Bytes);
    if (!out.empty()) std::memcpy(out.data(), place, out.size());
}

std::span<const unsigned char> ByteReader::Take(uint64_t count, const char* field) {
    const unsigned char* place = Next(count, field, FieldKind::Bytes);
    return {place, static_cast<size_t>(count)};
}

void ByteReader::Skip(uint64_t count, const char* field) {
    Next(count, field, FieldKind::Bytes);
}

std::string ByteReader::TextToNul(const char* field) {
    const unsigned char* first = m_bytes.data() + m_position;
    const void* nul = Remaining() != 0 ? std::memchr(first, 0, static_cast<size_t>(Remaining())) : nullptr;
    if (nul == nullptr) Fail(field, "no closing NUL in the " + std::to_string(Remaining()) + " bytes left");
    const auto length = static_cast<size_t>(static_cast<const unsigned char*>(nul) - first);
    if (m_sink != nullptr) m_sink->OnField(field, FieldKind::Text, Offset(), {first, length + 1});
    m_position += length + 1;
    return std::string(first, first + length);
}

void ByteReader::RequireElements(uint64_t count, uint64_t elementBytes, const char* field) const {
    if (elementBytes != 0 && count > Remaining() / elementBytes) {
        Fail(field, std::to_string(count) + " elements of " + std::to_string(elementBytes) +
                        " bytes claimed, " + std::to_string(Remaining()) + " bytes left");
    }
}

}  // namespace kxbase
