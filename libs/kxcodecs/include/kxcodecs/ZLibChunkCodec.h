// SPDX-License-Identifier: MIT
#pragma once

#include "kxcodecs/QKXChunkCodec.h"

namespace kxcodecs {

/// Lossless, any element size. The payload is one zlib container (RFC 1950) with its checksum, and nothing
/// behind it.
class KXCODECS_EXPORT ZLibChunkCodec : public QKXChunkCodec {
public:
    static constexpr uint64_t kIdentifier = 0x000042494c5a584b;  // "KXZLIB", read little-endian
    static constexpr const char* kName = "ZLib";
    static constexpr int kDefaultLevel = 6;

    ZLibChunkCodec() = default;
    ~ZLibChunkCodec() override;

    uint64_t GetIdentifier() const override { return kIdentifier; }
    /// 0 (stored) to 9 (smallest), default 6.
    void SetCompressionLevel(int level) override;

protected:
    void EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                       std::vector<unsigned char>& out) const override;
    bool CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const override;
    bool DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                       std::span<unsigned char> out) const override;

private:
    int m_level = kDefaultLevel;
};

}  // namespace kxcodecs
