// SPDX-License-Identifier: MIT
#include "services/StoredChunkCodec.h"

namespace kxio {

StoredChunkCodec::~StoredChunkCodec() = default;

void StoredChunkCodec::Encode(const void* data, uint32_t width, uint32_t height, uint64_t byteCount,
                              float quality, std::vector<unsigned char>& out) const {
    if (m_values != nullptr && data == m_values) {
        out = *m_chunk;
    } else {
        m_codec->Encode(data, width, height, byteCount, quality, out);
    }
}

}  // namespace kxio
