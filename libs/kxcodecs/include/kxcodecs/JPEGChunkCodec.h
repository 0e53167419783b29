// SPDX-License-Identifier: MIT
#pragma once

#include "kxcodecs/QKXChunkCodec.h"

namespace kxcodecs {

/// Lossy, for colour and grey images: elements of 3 bytes (red, green, blue) or 1 byte. The payload is one
/// JPEG image without chroma subsampling. Never quantises: the quality argument of `Encode` is checked
/// and otherwise ignored. Sides are 1 to 65500. For lossless colour use ZLib or Snappy on 3-byte elements.
class KXCODECS_EXPORT JPEGChunkCodec : public QKXChunkCodec {
public:
    static constexpr uint64_t kIdentifier = 0x00004745504a584b;  // "KXJPEG", read little-endian
    static constexpr const char* kName = "JPEG";
    static constexpr int kDefaultLevel = 2;

    JPEGChunkCodec() = default;
    ~JPEGChunkCodec() override;

    uint64_t GetIdentifier() const override { return kIdentifier; }
    /// 1 (best) to 9 (smallest), default 2; the JPEG quality is 100 - 5 x level.
    void SetCompressionLevel(int level) override;

protected:
    bool Quantises() const override;
    void EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                       std::vector<unsigned char>& out) const override;
    bool CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const override;
    bool DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                       std::span<unsigned char> out) const override;

private:
    int m_level = kDefaultLevel;
};

}  // namespace kxcodecs
