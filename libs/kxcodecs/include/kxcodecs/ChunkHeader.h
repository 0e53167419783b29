// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "kxcodecs/Export.h"

namespace kxbase {
class FieldSink;
}

namespace kxcodecs {

/// The 28 bytes with which every chunk begins, little-endian.
///
///     @0  u64 codecId            which codec made the payload
///     @8  u32 width              in elements
///     @12 u32 height             in elements
///     @16 u32 decodedBytes       width x height x element size
///     @20 f32 step               stored integer = value x step; 1.0: values are stored as they are
///     @24 u32 uncompressedBytes  what the payload unpacks to; equal to decodedBytes for all codecs here
struct ChunkHeaderInfo {
    static constexpr uint32_t kByteSize = 28;  ///< bytes of the header

    uint64_t codecId = 0;            ///< which codec made the payload
    uint32_t width = 0;              ///< in elements
    uint32_t height = 0;             ///< in elements
    uint32_t decodedBytes = 0;       ///< width x height x element size
    float step = 1.0F;               ///< stored integer = value x step
    uint32_t uncompressedBytes = 0;  ///< what the payload unpacks to

    /// width x height.
    uint64_t ElementCount() const { return static_cast<uint64_t>(width) * height; }
    /// Bytes per element; 0 when the three sizes do not fit each other (no elements, or `decodedBytes` is
    /// no multiple of their count): such a chunk cannot be decoded.
    uint64_t ElementBytes() const {
        const uint64_t count = ElementCount();
        return count == 0 || decodedBytes % count != 0 ? 0 : decodedBytes / count;
    }

    bool operator==(const ChunkHeaderInfo&) const = default;
};

/// Reads the header at the start of `chunk`: its shape only, no field is judged.
/// \throws kxbase::ByteRangeException  fewer than 28 bytes
/// \param sink    told each field when it is not null; borrowed
/// \param offset  of the chunk in the file, for the sink
KXCODECS_EXPORT ChunkHeaderInfo DecodeChunkHeader(std::span<const unsigned char> chunk,
                                                  kxbase::FieldSink* sink = nullptr, uint64_t offset = 0);

/// Writes the header into the first 28 bytes of `chunk`.
/// \throws kxbase::KXWrongDataSizeofException  fewer than 28 bytes
KXCODECS_EXPORT void EncodeChunkHeader(const ChunkHeaderInfo& header, std::span<unsigned char> chunk);

}  // namespace kxcodecs
