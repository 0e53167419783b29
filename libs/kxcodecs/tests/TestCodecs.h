// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "kxcodecs/kxcodecs.h"

// Small helpers that the tests of this folder share.

namespace kxcodecs::test {

using Bytes = std::vector<unsigned char>;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The bytes of native values, as a caller hands them to a codec.
template <class Value>
Bytes BytesOf(const std::vector<Value>& values) {
    Bytes bytes(values.size() * sizeof(Value));
    if (!bytes.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

template <class Value>
std::vector<Value> ValuesOf(const Bytes& bytes) {
    std::vector<Value> values(bytes.size() / sizeof(Value));
    if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(Value));
    return values;
}

inline Bytes EncodeWith(const QKXChunkCodec& codec, const Bytes& data, uint32_t width, uint32_t height,
                        float quality = 1.0F) {
    Bytes chunk;
    codec.Encode(data.data(), width, height, data.size(), quality, chunk);
    return chunk;
}

inline DecodeStatus Decode(const Bytes& chunk, Bytes& out) {
    ChunkHeaderInfo header;
    return QKXChunkCodec::DecodeChunk(chunk, header, out);
}

/// Smooth colours, so that a lossy codec stays close.
inline Bytes SmoothImage(uint32_t width, uint32_t height, uint32_t channels) {
    Bytes image;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const uint32_t shades[3] = {40 + 2 * x, 60 + 2 * y, 90 + x + y};
            for (uint32_t c = 0; c < channels; ++c) {
                image.push_back(static_cast<unsigned char>(shades[c] % 256));
            }
        }
    }
    return image;
}

/// Reproducible noise.
inline Bytes Noise(std::size_t count, uint32_t seed) {
    Bytes bytes(count);
    uint32_t state = seed * 2654435761U + 1;
    for (unsigned char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(state >> 24);
    }
    return bytes;
}

/// The payload that follows a chunk's header.
inline Bytes PayloadOf(const Bytes& chunk) {
    return {chunk.begin() + QKXChunkCodec::HeaderSize, chunk.end()};
}

}  // namespace kxcodecs::test
