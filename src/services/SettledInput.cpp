// SPDX-License-Identifier: MIT
#include "services/SettledInput.h"

#include <algorithm>
#include <span>

#include "kxbase/Exceptions.h"
#include "kxio/MainFileHeader.h"
#include "services/ExtendedChain.h"

namespace kxio {

SettledInput::SettledInput(kxbase::IInFileStream& in) : m_in(in), m_stored(in.GetSize()), m_size(m_stored) {
    m_promise = FindPendingEdit(m_in, m_size);
    if (m_promise) m_size = m_promise->position;
    MainFileHeader header;
    try {
        if (!Seek(0) || header.Read(this) == 0) return;
    } catch (const kxbase::KXUnreadablePatchException&) {
        throw;
    } catch (const kxbase::KXException&) {
        return;  // of another version: nothing is known about it
    }
    const auto tail = FindInterruptedTail(*this, header);
    if (tail && tail->isCertain) m_size = tail->position;
}

std::optional<uint64_t> SettledInput::HiddenFrom() const {
    return m_size < m_stored ? std::optional(m_size) : std::nullopt;
}

bool SettledInput::Seek(uint64_t absolutePosition) {
    if (!m_in.Seek(absolutePosition)) return false;
    m_position = absolutePosition;
    return true;
}
bool SettledInput::SeekForward(uint64_t bytes) {
    return bytes <= UINT64_MAX - m_position && Seek(m_position + bytes);
}
bool SettledInput::SeekBackward(uint64_t bytes) {
    return bytes <= m_position && Seek(m_position - bytes);
}
bool SettledInput::SeekEnd(uint64_t offset) {
    return offset <= m_size && Seek(m_size - offset);
}

uint64_t SettledInput::Read(void* out, uint64_t bytes) {
    const uint64_t left = m_position < m_size ? m_size - m_position : 0;
    // Every time: others may have moved the stream.
    m_lastRead = m_in.Seek(m_position) ? m_in.Read(out, std::min(bytes, left)) : 0;
    if (m_promise)
        ApplyPendingEdit(*m_promise, m_position, {static_cast<unsigned char*>(out), size_t(m_lastRead)});
    m_position += m_lastRead;
    return m_lastRead;
}

}  // namespace kxio
