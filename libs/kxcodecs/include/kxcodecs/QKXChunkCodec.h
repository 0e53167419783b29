// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kxcodecs/ChunkHeader.h"
#include "kxcodecs/Export.h"

namespace kxcodecs {

/// How the decoding of a whole chunk ended.
enum class DecodeStatus {
    Decoded,         ///< the output holds the values
    NoHeader,        ///< fewer than 28 bytes
    BadLayout,       ///< width, height and byte sizes of the header do not fit each other
    UnknownCodec,    ///< no codec of that identifier
    TooLarge,        ///< the header claims more bytes than the caller allows
    DamagedPayload,  ///< the payload does not unpack to exactly what the header claims
    OutOfMemory,     ///< the output could not be allocated
};

/// One line for people, e.g. for `ErrorContext::detail`.
KXCODECS_EXPORT std::string ToText(DecodeStatus status);

/// A way to pack the values of one patch, preview or table into a chunk, and back.
///
/// A chunk is a header of 28 bytes (`ChunkHeaderInfo`) and a payload that only its codec understands.
/// This class owns all that is common: header, quantisation, byte order, checks and limits; a codec supplies
/// three hooks between bytes and payload.
///
/// Callers give and get elements in the byte order of their processor; the bytes of the hooks are elements in
/// the order of chunks, little-endian (`TurnElements`).
///
/// Decoding is total: whatever the bytes are, it yields exactly the size that the header claims, or fails,
/// in bounded time and memory; nothing is allocated before the claim was held against the payload and the
/// limit.
///
/// Threads: `Encode`, `CanDecode` and `DecodeInto` are const and keep no state, so one object serves any
/// number of threads. Setters and `Decode` must not overlap other calls on the same object.
///
///     ZLibChunkCodec codec;
///     std::vector<unsigned char> chunk;
///     codec.Encode(ranges.data(), 64, 64, 64 * 64 * sizeof(float), 1000.0F, chunk);
///     ChunkHeaderInfo header;
///     std::vector<unsigned char> values;
///     if (QKXChunkCodec::DecodeChunk(chunk, header, values) != DecodeStatus::Decoded) { ... }
///     Dequantise(values, header.ElementBytes(), header.step);
class KXCODECS_EXPORT QKXChunkCodec {
public:
    /// Bytes of the header of a chunk.
    static const uint32_t HeaderSize = ChunkHeaderInfo::kByteSize;
    /// Limit of the decoded size unless the caller states another: 1 GiB.
    static constexpr uint64_t kDefaultMaxDecodedBytes = uint64_t{1} << 30;

    QKXChunkCodec() = default;
    QKXChunkCodec(const QKXChunkCodec&) = default;
    QKXChunkCodec& operator=(const QKXChunkCodec&) = default;
    virtual ~QKXChunkCodec();

    // What a chunk says about itself. All four accept any bytes, also none.

    /// Reads the header; false, and `out` untouched, when there are fewer than 28 bytes.
    static bool ReadHeader(const unsigned char* chunk, uint64_t size, ChunkHeaderInfo& out);
    /// The same of a whole chunk.
    static bool ReadHeader(const std::vector<unsigned char>& chunk, ChunkHeaderInfo& out);
    /// Name of the chunk's codec ("Snappy", "ZLib", "JPEG"); of an unknown one "0x" and 16 hexadecimal
    /// digits of the identifier; empty when there is no header.
    static std::string GetName(const unsigned char* chunk, uint64_t size);
    /// The same of a whole chunk.
    static std::string GetName(const std::vector<unsigned char>& chunk);
    /// Whether this library can decode the chunk's codec; false when there is no header.
    static bool IsCodecAvailable(const unsigned char* chunk, uint64_t size);
    /// The same of a whole chunk.
    static bool IsCodecAvailable(const std::vector<unsigned char>& chunk);
    /// Bytes that the payload claims to unpack to; 0 when there is no header. A claim: check it before
    /// allocating, or let `DecodeChunk` do so.
    static uint64_t GetUncompressedSize(const unsigned char* chunk, uint64_t size);
    /// The same of a whole chunk.
    static uint64_t GetUncompressedSize(const std::vector<unsigned char>& chunk);

    // Encoding.

    /// Packs `byteCount` bytes, `width` x `height` elements row by row, into `out`: header and payload.
    ///
    /// With a quality other than 1.0, elements of 4 (8) bytes are taken as floats (doubles) and stored as
    /// the integers nearest to value x quality (`Quantise`), and the header's step is the quality. Elements
    /// of other sizes, and all elements of a codec that does not quantise, are stored as they are, with
    /// step 1.0. No elements (`byteCount` 0) is allowed where the codec can express it; such a chunk has a
    /// header but no layout that `DecodeChunk` accepts.
    ///
    /// `out` is replaced, its capacity reused; after an exception it is empty.
    ///
    /// \param data     native byte order, at least `byteCount` bytes, no alignment needed
    /// \param quality  finite and above 0: the reciprocal of the resolution wanted
    /// \throws kxbase::KXBadInputException         quality, a null pointer, sizes that do not fit each other,
    ///                                             or an element size the codec does not know
    /// \throws kxbase::KXWrongDataSizeofException  data or chunk of 4 GiB and more
    /// \throws kxbase::KXException                 the compressor gave up
    virtual void Encode(const void* data, uint32_t width, uint32_t height, uint64_t byteCount, float quality,
                        std::vector<unsigned char>& out) const;

    /// Trades speed or fidelity for size; the meaning and range are the codec's, values outside are clamped.
    /// The base ignores it.
    virtual void SetCompressionLevel(int level);

    // Decoding a payload: the chunk without its 28 bytes of header.

    /// States what the next payloads unpack to, as the chunk's header has it.
    void SetLayout(uint32_t width, uint32_t height, uint32_t decodedBytes, float step);
    /// The same from a whole header; `uncompressedBytes` is what a payload must unpack to.
    void SetLayout(const ChunkHeaderInfo& header);
    /// The layout; the identifier in it is this codec's.
    const ChunkHeaderInfo& GetLayout() const { return m_layout; }

    /// Limit that `Decode` and `CanDecode` hold the layout against.
    void SetMaxDecodedBytes(uint64_t bytes) { m_maxDecodedBytes = bytes; }
    /// That limit; 1 GiB unless it was set.
    uint64_t GetMaxDecodedBytes() const { return m_maxDecodedBytes; }

    /// Whether the payload can hold what the layout claims, and the limit allows it. Cheap, allocates
    /// nothing of the claimed size; true is no promise that the payload is undamaged.
    bool CanDecode(const unsigned char* payload, uint64_t size) const;

    /// Unpacks a payload into a buffer of the codec's, to be given back with `Free`; null on any failure, also
    /// where memory is refused.
    /// Values that were quantised come back as integers (`Dequantise`).
    /// \param decodedBytes  bytes in the buffer: the layout's uncompressed size; 0 on failure
    virtual unsigned char* Decode(const unsigned char* payload, uint64_t size, uint64_t& decodedBytes);
    /// Gives back a buffer of `Decode`; accepts null.
    virtual void Free(unsigned char* decoded);

    /// Unpacks a payload straight into the caller's memory. False when the payload does not unpack to
    /// exactly `out.size()` bytes or the layout claims another size; the contents of `out` are then
    /// undefined. Allocate after `CanDecode`, and only what the layout says.
    /// \throws std::bad_alloc  memory for the work was refused; the payload may well be sound
    bool DecodeInto(const unsigned char* payload, uint64_t size, std::span<unsigned char> out) const;

    /// Decodes a whole chunk with a codec of its own: header, limits, payload, in one call.
    ///
    /// `out` holds the values after `Decoded`: `decodedBytes` bytes, or, for a foreign chunk whose payload
    /// unpacks to another size than that, the whole elements of the smaller of both. It is empty after any
    /// other status. Integers of quantised values are left as they are (`Dequantise`).
    /// Throws nothing and may be called from any number of threads.
    static DecodeStatus DecodeChunk(std::span<const unsigned char> chunk, ChunkHeaderInfo& header,
                                    std::vector<unsigned char>& out,
                                    uint64_t maxDecodedBytes = kDefaultMaxDecodedBytes) noexcept;

    /// The number that stands in the header of this codec's chunks.
    virtual uint64_t GetIdentifier() const = 0;

protected:
    /// Whether the codec takes elements of any kind, floats as quantised integers. JPEG takes bytes of
    /// colours alone.
    virtual bool Quantises() const;
    /// Hook: appends the payload of `bytes`, laid out as `layout` says, to `out`. Throws `KXException` when
    /// it cannot. The base refuses.
    virtual void EncodePayload(std::span<const unsigned char> bytes, const ChunkHeaderInfo& layout,
                               std::vector<unsigned char>& out) const;
    /// Hook: whether `payload` can unpack to what `layout` claims, judged from its size or first bytes,
    /// without allocating. The base refuses.
    virtual bool CanHold(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout) const;
    /// Hook: unpacks `payload`, for which `CanHold` was true, into exactly `out`; false when it is damaged.
    /// Throws `std::bad_alloc` alone, when memory is refused. The base refuses.
    virtual bool DecodePayload(std::span<const unsigned char> payload, const ChunkHeaderInfo& layout,
                               std::span<unsigned char> out) const;

private:
    bool DecodeElements(std::span<const unsigned char> payload, std::span<unsigned char> out) const;

    ChunkHeaderInfo m_layout;
    uint64_t m_maxDecodedBytes = kDefaultMaxDecodedBytes;
};

}  // namespace kxcodecs
