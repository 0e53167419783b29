// SPDX-License-Identifier: MIT
#include "kxbase/ByteReader.h"

#include <cstring>

namespace kxbase {

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

const unsigned char* ByteReader::NextWithCare(uint64_t count, const char* field, FieldKind kind) {
    if (count > Remaining()) {
        Fail(field, std::to_string(count) + " bytes needed, " + std::to_string(Remaining()) + " left");
    }
    const unsigned char* place = m_bytes.data() + m_position;
    if (m_sink != nullptr) m_sink->OnField(field, kind, Offset(), {place, static_cast<size_t>(count)});
    m_position += count;
    return place;
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
