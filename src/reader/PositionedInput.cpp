// SPDX-License-Identifier: MIT
#include "reader/PositionedInput.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "format/PendingEdit.h"
#include "reader/Locks.h"

namespace kxio {

namespace {

// What files can address; a lent stream that can do less refuses when it is read.
constexpr uint64_t kMaxPosition = INT64_MAX;

}  // namespace

uint64_t PositionedInput::ReadAt(uint64_t position, void* out, uint64_t bytes) const {
    if (edit == nullptr) return ReadStored(position, out, bytes);
    bytes = std::min(bytes, edit->position - std::min(position, edit->position));
    const uint64_t got = ReadStored(position, out, bytes);
    ApplyPendingEdit(*edit, position, {static_cast<unsigned char*>(out), got});
    return got;
}

uint64_t PositionedInput::ReadStored(uint64_t position, void* out, uint64_t bytes) const {
    if (file != nullptr) return file->ReadAt(position, out, bytes);
    if (stream == nullptr) return 0;
    const std::lock_guard lock(FileAccessLock());
    // A failed seek must not read whatever lies at the old position.
    return stream->Seek(position) ? stream->Read(out, bytes) : 0;
}

uint64_t PositionedInput::Size() const {
    return edit == nullptr ? StoredSize() : std::min(StoredSize(), edit->position);
}

uint64_t PositionedInput::StoredSize() const {
    if (file != nullptr) return file->GetSize();
    if (stream == nullptr) return 0;
    const std::lock_guard lock(FileAccessLock());
    return stream->GetSize();
}

InputWindow::InputWindow(const PositionedInput& input, uint64_t size, uint64_t windowBytes)
    : m_input(input), m_size(size), m_windowBytes(windowBytes) {}

bool InputWindow::Seek(uint64_t absolutePosition) {
    if (absolutePosition > kMaxPosition) return false;
    m_position = absolutePosition;
    return true;
}
bool InputWindow::SeekForward(uint64_t bytes) {
    return bytes <= kMaxPosition - m_position && Seek(m_position + bytes);
}
bool InputWindow::SeekBackward(uint64_t bytes) {
    return bytes <= m_position && Seek(m_position - bytes);
}
bool InputWindow::SeekEnd(uint64_t offset) {
    return offset <= m_size && Seek(m_size - offset);
}

std::wstring InputWindow::GetName() const {
    return m_input.stream != nullptr ? m_input.stream->GetName() : std::wstring();
}

uint64_t InputWindow::TakeFromWindow(unsigned char* out, uint64_t bytes) {
    if (m_position < m_windowStart || m_position - m_windowStart >= m_window.size()) return 0;
    const uint64_t from = m_position - m_windowStart;
    const uint64_t count = std::min<uint64_t>(bytes, m_window.size() - from);
    if (count != 0) std::memcpy(out, m_window.data() + from, count);
    m_position += count;
    return count;
}

uint64_t InputWindow::Read(void* out, uint64_t bytes) {
    auto* target = static_cast<unsigned char*>(out);
    uint64_t done = TakeFromWindow(target, bytes);
    if (done < bytes && bytes - done < m_windowBytes) {
        m_window.resize(m_windowBytes);
        m_windowStart = m_position;
        m_window.resize(m_input.ReadAt(m_position, m_window.data(), m_windowBytes));
        done += TakeFromWindow(target + done, bytes - done);
    } else if (done < bytes) {
        const uint64_t got = m_input.ReadAt(m_position, target + done, bytes - done);
        m_position += got;
        done += got;
    }
    m_lastRead = done;
    return done;
}

}  // namespace kxio
