// SPDX-License-Identifier: MIT
#include <libdeflate.h>
#include <zlib.h>
#include <zstd.h>

#include <cstring>
#include <memory>

#include "CompareWays.h"
#include "kxcodecs/kxcodecs.h"

namespace {

using Bytes = CompareWay::Bytes;
using kxcodecs::QKXChunkCodec;

template <class Codec, class... Arguments>
CompareWay OfCodec(const std::string& name, Arguments... arguments) {
    return {
        name,
        [=](const ComparePatch& patch, Bytes& packed) {
            packed.clear();
            Codec(arguments...)
                .Encode(patch.values.data(), patch.width, patch.height, patch.values.size(), 1.0F, packed);
        },
        [=](const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
            kxcodecs::ChunkHeaderInfo header;
            if (!QKXChunkCodec::ReadHeader(packed, header)) return false;
            Codec codec(arguments...);
            codec.SetLayout(header);
            return codec.DecodeInto(packed.data() + QKXChunkCodec::HeaderSize,
                                    packed.size() - QKXChunkCodec::HeaderSize, {out, patch.values.size()});
        },
        [](uint32_t bytes) { return bytes <= sizeof(uint64_t); }};
}

CompareWay OfZstd(int level) {
    return {"zstd " + std::to_string(level),
            [level](const ComparePatch& patch, Bytes& packed) {
                packed.resize(ZSTD_compressBound(patch.values.size()));
                packed.resize(ZSTD_compress(packed.data(), packed.size(), patch.values.data(),
                                            patch.values.size(), level));
            },
            [](const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
                const std::size_t size = patch.values.size();
                return ZSTD_decompress(out, size, packed.data(), packed.size()) == size;
            },
            nullptr};
}

void ZlibPack(const ComparePatch& patch, Bytes& packed) {
    uLongf size = compressBound(patch.values.size());
    packed.resize(size);
    compress2(packed.data(), &size, patch.values.data(), patch.values.size(), 6);
    packed.resize(size);
}

bool ZlibUnpack(const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
    uLongf size = patch.values.size();
    return uncompress(out, &size, packed.data(), packed.size()) == Z_OK && size == patch.values.size();
}

void DeflatePack(const ComparePatch& patch, Bytes& packed) {
    const std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> packer(
        libdeflate_alloc_compressor(6), libdeflate_free_compressor);
    packed.resize(libdeflate_zlib_compress_bound(packer.get(), patch.values.size()));
    packed.resize(libdeflate_zlib_compress(packer.get(), patch.values.data(), patch.values.size(),
                                           packed.data(), packed.size()));
}

bool DeflateUnpack(const ComparePatch& patch, const Bytes& packed, unsigned char* out) {
    const std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> unpacker(
        libdeflate_alloc_decompressor(), libdeflate_free_decompressor);
    return libdeflate_zlib_decompress(unpacker.get(), packed.data(), packed.size(), out, patch.values.size(),
                                      nullptr) == LIBDEFLATE_SUCCESS;
}

}  // namespace

void AddPlainWays(std::vector<CompareWay>& ways) {
    ways.push_back({"memcpy", [](const ComparePatch& patch, Bytes& packed) { packed = patch.values; },
                    [](const ComparePatch&, const Bytes& packed, unsigned char* out) {
                        std::memcpy(out, packed.data(), packed.size());
                        return true;
                    },
                    nullptr});
    ways.push_back({"zlib 6", ZlibPack, ZlibUnpack, nullptr});
    ways.push_back({"libdeflate 6", DeflatePack, DeflateUnpack, nullptr});
    for (const int level : {1, 3, 9})
        ways.push_back(OfZstd(level));
}

void AddOwnWays(std::vector<CompareWay>& ways) {
    using kxcodecs::GridChunkCodec;
    ways.push_back(OfCodec<kxcodecs::SnappyChunkCodec>("Snappy chunk"));
    ways.push_back(OfCodec<kxcodecs::ZLibChunkCodec>("ZLib chunk"));
    ways.push_back(OfCodec<kxcodecs::ZstdChunkCodec>("Zstd chunk"));
    ways.push_back(OfCodec<GridChunkCodec>("Grid FAST", GridChunkCodec::Mode::Fast));
    ways.push_back(OfCodec<GridChunkCodec>("Grid BALANCED", GridChunkCodec::Mode::Balanced));
}
