// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kxcodecs/ChunkHeader.h"
#include "kxio/Limits.h"

namespace kxio {

/// Memory for one decode after the other; keep it to avoid allocations.
struct PatchBuffers {
    std::vector<unsigned char> chunk;   ///< the stored bytes
    std::vector<unsigned char> values;  ///< decoded values that found no other place
    /// Optional: where the values go when they are exactly this many bytes. Undefined after a failure.
    std::span<unsigned char> direct;
};

/// Decoded values: quantised ones already turned into what they stand for.
struct DecodedPatch {
    kxcodecs::ChunkHeaderInfo header;
    uint64_t elementBytes = 0;
    /// In `PatchBuffers::direct` or `values`. A foreign chunk may unpack to fewer whole elements than
    /// width x height.
    std::span<const unsigned char> bytes;
};

/// Decodes `buffers.chunk`, whatever it holds, in bounded time and memory.
/// \param mostBytes  what it can decode to where it lies, besides the limits; chunks that claim more are
/// refused \throws KXUnreadablePatchException "Patch cannot be decoded", with the reason as detail
DecodedPatch DecodeChunk(PatchBuffers& buffers, const Limits& limits, uint64_t mostBytes = UINT64_MAX);

/// The limit that a chunk exceeds by what its header claims, in words; empty when it exceeds none.
/// \param chunkBytes  of the whole stored chunk
std::string ExceededLimit(const kxcodecs::ChunkHeaderInfo& header, uint64_t chunkBytes, const Limits& limits);

}  // namespace kxio
