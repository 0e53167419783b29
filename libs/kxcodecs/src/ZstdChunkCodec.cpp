// SPDX-License-Identifier: MIT
#include "kxcodecs/ZstdChunkCodec.h"

#include <algorithm>

#include "ByteFilter.h"
#include "ZstdFrame.h"

namespace kxcodecs {

ZstdChunkCodec::~ZstdChunkCodec() = default;

void ZstdChunkCodec::SetCompressionLevel(int level) {
    m_level = std::clamp(level, 1, 19);
}

void ZstdChunkCodec::EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                                   std::vector<unsigned char>& out) const {
    AppendFiltered(bytes, layout.width, layout.height, m_level, out);
}

bool ZstdChunkCodec::CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const {
    return layout.uncompressedBytes <= payload.size() * kMostZstdExpansion &&
           layout.uncompressedBytes == layout.decodedBytes;
}

bool ZstdChunkCodec::DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                                   std::span<unsigned char> out) const {
    return UnpackFiltered(payload, layout.width, layout.height, out);
}

}  // namespace kxcodecs
