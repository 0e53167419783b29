// SPDX-License-Identifier: MIT
#pragma once

#include "kxcodecs/QKXChunkCodec.h"

namespace kxcodecs {

/// Lossless and simple, any element size: differences of neighbouring elements where they help, bytes parted
/// into planes, one zstd frame with its checksum. Colours of 3 bytes have red and blue stored as differences
/// to green where that helps.
class KXCODECS_EXPORT ZstdChunkCodec : public QKXChunkCodec {
public:
    static constexpr uint64_t kIdentifier = 0x00004454535a584b;  // "KXZSTD", read little-endian
    static constexpr const char* kName = "Zstd";
    static constexpr int kDefaultLevel = 3;

    ZstdChunkCodec() = default;
    ~ZstdChunkCodec() override;

    uint64_t GetIdentifier() const override { return kIdentifier; }
    /// 1 (quickest) to 19 (smallest), default 3.
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
