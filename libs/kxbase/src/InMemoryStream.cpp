// SPDX-License-Identifier: MIT
#include "kxbase/InMemoryStream.h"

#include <algorithm>
#include <cstring>

#include "kxbase/Exceptions.h"

namespace kxbase {

InMemoryStream::InMemoryStream() = default;
InMemoryStream::InMemoryStream(const void* bytes, uint64_t size) {
    if (size != 0) {
        const auto* first = static_cast<const unsigned char*>(bytes);
        m_bytes.assign(first, first + size);
    }
}
InMemoryStream::InMemoryStream(std::vector<unsigned char> bytes) : m_bytes(std::move(bytes)) {}
InMemoryStream::~InMemoryStream() = default;

const std::vector<unsigned char>& InMemoryStream::GetBytes() const {
    return m_bytes;
}
bool InMemoryStream::IsOpen() const {
    return m_open;
}

bool InMemoryStream::Seek(uint64_t absolutePosition) {
    if (absolutePosition > INT64_MAX) return false;
    m_position = absolutePosition;
    return true;
}
bool InMemoryStream::SeekForward(uint64_t bytes) {
    return bytes <= INT64_MAX - m_position && Seek(m_position + bytes);
}
bool InMemoryStream::SeekBackward(uint64_t bytes) {
    return bytes <= m_position && Seek(m_position - bytes);
}
bool InMemoryStream::SeekEnd(uint64_t offset) {
    return offset <= m_bytes.size() && Seek(m_bytes.size() - offset);
}
uint64_t InMemoryStream::Tell() const {
    return m_position;
}

uint64_t InMemoryStream::Read(void* out, uint64_t bytes) {
    const uint64_t left = m_position < m_bytes.size() ? m_bytes.size() - m_position : 0;
    const uint64_t count = m_open ? std::min(bytes, left) : 0;
    if (count != 0) std::memcpy(out, m_bytes.data() + m_position, count);
    m_position += count;
    m_lastRead = count;
    return count;
}

uint64_t InMemoryStream::GetLastReadCount() const {
    return m_lastRead;
}
uint64_t InMemoryStream::GetSize() const {
    return m_bytes.size();
}
bool InMemoryStream::HasDataLeft() const {
    return m_open && m_position < m_bytes.size();
}

uint64_t InMemoryStream::Write(const void* data, uint64_t bytes) {
    // A seek far behind the end must fail like a full disk does, not exhaust the memory.
    constexpr uint64_t kLargestGap = uint64_t{1} << 30;
    const uint64_t gap = m_position > m_bytes.size() ? m_position - m_bytes.size() : 0;
    if (!m_open || gap > kLargestGap || bytes > m_bytes.max_size() - m_position) {
        ErrorContext context;
        context.offset = m_position;
        context.detail = m_open ? "the position lies too far behind the end" : "the stream is closed";
        throw KXWritingException("Cannot write file", context);
    }
    if (bytes == 0) return 0;
    if (m_position + bytes > m_bytes.size()) m_bytes.resize(m_position + bytes);
    std::memcpy(m_bytes.data() + m_position, data, bytes);
    m_position += bytes;
    return bytes;
}

void InMemoryStream::Close() {
    m_open = false;
}
std::wstring InMemoryStream::GetName() const {
    return L"memory";
}

}  // namespace kxbase
