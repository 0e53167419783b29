// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "kxcodecs/ChunkHeader.h"

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
/// \param maxDecodedBytes  chunks that claim more are refused
/// \throws KXUnreadablePatchException "Patch cannot be decoded", with the reason as detail
DecodedPatch DecodeChunk(PatchBuffers& buffers, uint64_t maxDecodedBytes);

}  // namespace kxio
