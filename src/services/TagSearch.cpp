// SPDX-License-Identifier: MIT
#include "services/TagSearch.h"

#include <algorithm>
#include <cstring>

#include "kxbase/ByteWriter.h"

namespace kxio {

TagSearch::TagSearch(const std::vector<uint64_t>& tags) {
    m_shift.fill(kTagBytes);
    for (const uint64_t tag : tags) {
        Tag bytes{};
        kxbase::ByteWriter(bytes).U64(tag);
        for (uint64_t i = 0; i + 1 < kTagBytes; ++i) {
            unsigned char& shift = m_shift[bytes[i]];
            shift = std::min(shift, static_cast<unsigned char>(kTagBytes - 1 - i));
        }
        m_isLast[bytes[kTagBytes - 1]] = true;
        m_tags.push_back(bytes);
    }
}

uint64_t TagSearch::FindNext(std::span<const unsigned char> bytes, uint64_t from) const {
    if (bytes.size() < kTagBytes) return kNotFound;
    const uint64_t end = bytes.size() - kTagBytes;  // of the window's possible starts
    const unsigned char* data = bytes.data();
    for (uint64_t at = from; at <= end;) {
        const unsigned char last = data[at + kTagBytes - 1];
        if (m_isLast[last]) {
            for (const Tag& tag : m_tags) {
                if (std::memcmp(data + at, tag.data(), kTagBytes) == 0) return at;
            }
        }
        at += m_shift[last];
    }
    return kNotFound;
}

}  // namespace kxio
