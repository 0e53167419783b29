// SPDX-License-Identifier: MIT
#include "services/BufferedOutput.h"

namespace kxio {

namespace {

/// What is held back fits a processor's cache.
constexpr size_t kHeldBytes = size_t{1} << 18;

}  // namespace

BufferedOutput::BufferedOutput(kxbase::IOutFileStream& out) : m_out(out) {
    m_held.reserve(kHeldBytes);
}

void BufferedOutput::Flush() {
    if (m_held.empty()) return;
    m_out.Write(m_held.data(), m_held.size());
    m_held.clear();
}

bool BufferedOutput::Seek(uint64_t absolutePosition) {
    Flush();
    return m_out.Seek(absolutePosition);
}
bool BufferedOutput::SeekForward(uint64_t bytes) {
    Flush();
    return m_out.SeekForward(bytes);
}
bool BufferedOutput::SeekBackward(uint64_t bytes) {
    Flush();
    return m_out.SeekBackward(bytes);
}
bool BufferedOutput::SeekEnd(uint64_t offset) {
    Flush();
    return m_out.SeekEnd(offset);
}

uint64_t BufferedOutput::Write(const void* data, uint64_t bytes) {
    if (bytes > kHeldBytes - m_held.size()) Flush();
    if (bytes >= kHeldBytes) return m_out.Write(data, bytes);
    const auto* first = static_cast<const unsigned char*>(data);
    m_held.insert(m_held.end(), first, first + bytes);
    return bytes;
}

void BufferedOutput::Close() {
    Flush();
    m_out.Close();
}

}  // namespace kxio
