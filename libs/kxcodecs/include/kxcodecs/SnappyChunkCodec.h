// SPDX-License-Identifier: MIT
#pragma once

#include "kxcodecs/QKXChunkCodec.h"

namespace kxcodecs {

/// Lossless and quick, any element size. The payload is one raw Snappy block (length prefix included).
/// The compression level is ignored.
class KXCODECS_EXPORT SnappyChunkCodec : public QKXChunkCodec {
public:
    static constexpr uint64_t kIdentifier = 0x595050414e53584b;  // "KXSNAPPY", read little-endian
    static constexpr const char* kName = "Snappy";

    SnappyChunkCodec() = default;
    ~SnappyChunkCodec() override;

    uint64_t GetIdentifier() const override { return kIdentifier; }

protected:
    void EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                       std::vector<unsigned char>& out) const override;
    bool CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const override;
    bool DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                       std::span<unsigned char> out) const override;
};

}  // namespace kxcodecs
