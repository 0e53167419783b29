// SPDX-License-Identifier: MIT
#include "kxcodecs/ZLibChunkCodec.h"

#include <libdeflate.h>

#include <algorithm>
#include <memory>
#include <new>

#include "kxbase/Exceptions.h"

namespace kxcodecs {
namespace {

constexpr std::size_t kLargeChunk = std::size_t{1} << 24;

struct FreeCompressor {
    void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
};
struct FreeDecompressor {
    void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};

}  // namespace

ZLibChunkCodec::~ZLibChunkCodec() = default;

void ZLibChunkCodec::SetCompressionLevel(int level) {
    m_level = std::clamp(level, 0, 9);
}

void ZLibChunkCodec::EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& /*layout*/,
                                   std::vector<unsigned char>& out) const {
    const std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor(
        libdeflate_alloc_compressor(m_level));
    if (!compressor) throw std::bad_alloc();
    const std::size_t start = out.size();
    const auto pack = [&](std::size_t room) {
        out.resize(start + room);
        return libdeflate_zlib_compress(compressor.get(), bytes.data(), bytes.size(), out.data() + start,
                                        room);
    };
    // Large chunks are summaries that pack well: memory counts more than a second try.
    std::size_t packedBytes = bytes.size() >= kLargeChunk ? pack(bytes.size() / 4) : 0;
    if (packedBytes == 0) packedBytes = pack(libdeflate_zlib_compress_bound(compressor.get(), bytes.size()));
    if (packedBytes == 0) throw kxbase::KXException("Chunk cannot be encoded");
    out.resize(start + packedBytes);
}

bool ZLibChunkCodec::CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const {
    // Deflate's densest code: 258 bytes from two bits.
    return layout.uncompressedBytes <= uint64_t{payload.size()} * 1032 + 1024;
}

bool ZLibChunkCodec::DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& /*layout*/,
                                   std::span<unsigned char> out) const {
    const std::unique_ptr<libdeflate_decompressor, FreeDecompressor> decompressor(
        libdeflate_alloc_decompressor());
    if (!decompressor) return false;
    std::size_t used = 0;
    std::size_t filled = 0;
    const libdeflate_result result = libdeflate_zlib_decompress_ex(
        decompressor.get(), payload.data(), payload.size(), out.data(), out.size(), &used, &filled);
    // Bytes behind the container would be lost silently: such a payload is damaged.
    return result == LIBDEFLATE_SUCCESS && used == payload.size() && filled == out.size();
}

}  // namespace kxcodecs
