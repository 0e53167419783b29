// SPDX-License-Identifier: MIT
#pragma once

#include "kxcodecs/QKXChunkCodec.h"

namespace kxcodecs {

/// Lossless, made for colours of 3 bytes (red, green, blue): red and blue less green, each channel predicted
/// from its neighbours, black cells (those without a colour) stored as a mask, the rest entropy coded.
/// Elements of other sizes, and images that it does not help, are stored as the Zstd codec stores them.
class KXCODECS_EXPORT ColorChunkCodec : public QKXChunkCodec {
public:
    static constexpr uint64_t kIdentifier = 0x00524f4c4f43584b;  // "KXCOLOR", read little-endian
    static constexpr const char* kName = "Color";

    ColorChunkCodec() = default;
    ~ColorChunkCodec() override;

    uint64_t GetIdentifier() const override { return kIdentifier; }

protected:
    void EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                       std::vector<unsigned char>& out) const override;
    bool CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const override;
    bool DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                       std::span<unsigned char> out) const override;
};

}  // namespace kxcodecs
