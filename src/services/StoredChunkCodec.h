// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "kxcodecs/ChunkCodecFactory.h"
#include "kxcodecs/QKXChunkCodec.h"

namespace kxio {

/// Gives for values that were decoded from a chunk that very chunk, byte for byte, and encodes everything
/// else with a codec of its own: empty patches as ever, previews quickly. Through it the scan writer takes a
/// decoded patch as it takes any other, with preview, limits, point count and histogram, and stores the old
/// bytes.
class StoredChunkCodec : public kxcodecs::QKXChunkCodec {
public:
    /// \param codecIdentifier  of a codec that the library knows
    explicit StoredChunkCodec(uint64_t codecIdentifier);
    ~StoredChunkCodec() override;

    /// From now on the values at `values` stand for `chunk`; both are borrowed. Null ends it.
    void Stand(const unsigned char* values, const std::vector<unsigned char>* chunk) {
        m_values = values;
        m_chunk = chunk;
    }

    void Encode(const void* data, uint32_t width, uint32_t height, uint64_t byteCount, float quality,
                std::vector<unsigned char>& out) const override;
    uint64_t GetIdentifier() const override { return m_codec->GetIdentifier(); }

private:
    kxcodecs::ChunkCodecFactory::CodecPtr m_codec;
    kxcodecs::ChunkCodecFactory::CodecPtr m_previewCodec;  // where there is a quicker one
    const unsigned char* m_values = nullptr;
    const std::vector<unsigned char>* m_chunk = nullptr;
};

}  // namespace kxio
