// SPDX-License-Identifier: MIT
#include "ByteSink.h"

#include <algorithm>

namespace kxexchange {

void ByteSink::Append(std::string_view text) {
    while (!text.empty()) {
        if (m_used == kBytes) Flush();
        const size_t piece = std::min(text.size(), kBytes - m_used);
        std::copy_n(text.begin(), piece, m_buffer.begin() + static_cast<std::ptrdiff_t>(m_used));
        m_used += piece;
        text.remove_prefix(piece);
    }
}

void ByteSink::Flush() {
    if (m_used == 0) return;
    m_stream.Write(m_buffer.data(), m_used);
    m_flushed += m_used;
    m_used = 0;
}

}  // namespace kxexchange
