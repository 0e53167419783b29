// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "kxcodecs/Export.h"

namespace kxcodecs {

/// A part of a zlib stream (RFC 1950) that was packed by itself: it looks back to nothing in front of it,
/// does not end the stream, and begins and ends with a byte. Such pieces may be packed in any order and by
/// any thread; put one after another between `ZLibPieceSum::Head` and `ZLibPieceSum::Tail` they are one
/// stream for every reader.
struct ZLibPiece {
    std::vector<unsigned char> packed;  ///< deflate blocks (RFC 1951), behind them an empty stored one
    uint64_t bytes = 0;                 ///< unpacked
    uint32_t adler = 1;                 ///< Adler-32 of the unpacked bytes
};

/// Packs a table of 64-bit numbers in pairs, most bytes of which are those of the pair before; other bytes
/// are packed right, but badly. The same bytes for the same input, always. Throws `std::bad_alloc` alone.
KXCODECS_EXPORT ZLibPiece PackPairs(std::span<const unsigned char> bytes);

/// What was packed. \throws kxbase::KXException when the piece is none of `PackPairs`
KXCODECS_EXPORT std::vector<unsigned char> Unpacked(const ZLibPiece& piece);

/// Sizes and checksum of a stream while its pieces are listed in their order.
class KXCODECS_EXPORT ZLibPieceSum {
public:
    /// Adds the next piece.
    void Add(const ZLibPiece& piece);

    /// Unpacked bytes of all pieces.
    uint64_t Bytes() const { return m_bytes; }
    /// Bytes of the whole stream, head and tail included.
    uint64_t PackedBytes() const { return m_packedBytes; }
    /// What comes before the first piece.
    static std::array<unsigned char, 2> Head();
    /// What comes behind the last: an empty last block and the checksum.
    std::array<unsigned char, 6> Tail() const;

private:
    uint64_t m_bytes = 0;
    uint64_t m_packedBytes = 2 + 6;
    uint32_t m_adler = 1;
};

/// Gives the next bytes of a packed stream: fills the span, or as much of it as there is.
using ZLibSource = std::function<uint64_t(std::span<unsigned char>)>;
/// Takes the next unpacked bytes; false ends the reading.
using ZLibTaker = std::function<bool(std::span<const unsigned char>)>;

/// Unpacks a zlib stream piece by piece, with memory for a piece alone.
///
/// True when the stream is made of pieces, all were taken, they are `bytes` long together, their checksum is
/// right and the stream ends with its `packedBytes`. False otherwise: then what was taken means nothing, and
/// whether the stream is damaged or only made in another way is for a whole decoding to say.
/// \param bytes  what the stream claims to unpack to, which the caller found acceptable
/// \throws std::bad_alloc, what `source` and `take` throw
KXCODECS_EXPORT bool ReadZLibPieces(uint64_t packedBytes, uint64_t bytes, const ZLibSource& source,
                                    const ZLibTaker& take);

}  // namespace kxcodecs
