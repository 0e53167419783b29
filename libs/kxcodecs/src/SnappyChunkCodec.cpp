// SPDX-License-Identifier: MIT
#include "kxcodecs/SnappyChunkCodec.h"

#include <snappy.h>

namespace kxcodecs {
namespace {

const char* AsChars(const unsigned char* bytes) {
    return reinterpret_cast<const char*>(bytes);
}
char* AsChars(unsigned char* bytes) {
    return reinterpret_cast<char*>(bytes);
}

}  // namespace

SnappyChunkCodec::~SnappyChunkCodec() = default;

void SnappyChunkCodec::EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& /*layout*/,
                                     std::vector<unsigned char>& out) const {
    const std::size_t start = out.size();
    out.resize(start + snappy::MaxCompressedLength(bytes.size()));
    std::size_t packedBytes = 0;
    snappy::RawCompress(AsChars(bytes.data()), bytes.size(), AsChars(out.data() + start), &packedBytes);
    out.resize(start + packedBytes);
}

bool SnappyChunkCodec::CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const {
    // The densest element of a block yields 64 bytes from 3; the rest covers the length prefix.
    if (uint64_t{layout.uncompressedBytes} * 3 > uint64_t{payload.size()} * 64 + 192) return false;
    std::size_t claimed = 0;
    return snappy::GetUncompressedLength(AsChars(payload.data()), payload.size(), &claimed) &&
           claimed == layout.uncompressedBytes;
}

bool SnappyChunkCodec::DecodePayload(std::span<const unsigned char> payload,
                                     const ChunkHeaderInfo& /*layout*/, std::span<unsigned char> out) const {
    return snappy::RawUncompress(AsChars(payload.data()), payload.size(), AsChars(out.data()));
}

}  // namespace kxcodecs
