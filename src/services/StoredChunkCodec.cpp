// SPDX-License-Identifier: MIT
#include "services/StoredChunkCodec.h"

#include <algorithm>
#include <span>

#include "kxcodecs/ZLibChunkCodec.h"

namespace kxio {

namespace {

/// Of previews, which were the dearest part of saving scans with hashes: at this level they take three
/// quarters of the time and are up to 10 % longer than at the usual one.
constexpr int kPreviewLevel = 2;

/// As in an empty patch. A preview without any value may be taken for one.
bool IsEmpty(const void* data, uint64_t byteCount) {
    const std::span bytes(static_cast<const unsigned char*>(data), byteCount);
    return std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
}

}  // namespace

StoredChunkCodec::StoredChunkCodec(uint64_t codecIdentifier)
    : m_codec(kxcodecs::ChunkCodecFactory::MakeCodec(codecIdentifier)) {
    // Of the other codecs some are quick anyway, and some would give other values.
    if (codecIdentifier != kxcodecs::ZLibChunkCodec::kIdentifier) return;
    m_previewCodec = kxcodecs::ChunkCodecFactory::MakeCodec(codecIdentifier);
    m_previewCodec->SetCompressionLevel(kPreviewLevel);
}
StoredChunkCodec::~StoredChunkCodec() = default;

void StoredChunkCodec::Encode(const void* data, uint32_t width, uint32_t height, uint64_t byteCount,
                              float quality, std::vector<unsigned char>& out) const {
    if (m_values != nullptr && data == m_values) {
        out = *m_chunk;
        return;
    }
    const bool isPreview = m_previewCodec && data != nullptr && !IsEmpty(data, byteCount);
    (isPreview ? m_previewCodec : m_codec)->Encode(data, width, height, byteCount, quality, out);
}

}  // namespace kxio
