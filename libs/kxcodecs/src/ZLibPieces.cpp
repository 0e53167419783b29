// SPDX-License-Identifier: MIT
#include "kxcodecs/ZLibPieces.h"

#include <libdeflate.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

#include "DeflatePairs.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Sizes.h"

namespace kxcodecs {
namespace {

// Deflate, window of 32 KiB, compressed quickly; divisible by 31.
constexpr std::array<unsigned char, 2> kHead = {0x78, 0x01};
// Ends every piece: no bytes, stored.
constexpr std::array<unsigned char, 4> kPieceEnd = {0x00, 0x00, 0xff, 0xff};
// A last block without a byte, in the fixed code.
constexpr std::array<unsigned char, 2> kLastBlock = {0x03, 0x00};
constexpr std::size_t kAdlerBytes = 4;
constexpr uint32_t kAdlerModulus = 65521;

constexpr std::size_t kReadBytes = std::size_t{1} << 16;
// Pieces are a patch's; a stream without an end of one for so long is not made of them.
constexpr std::size_t kMostPieceBytes = std::size_t{1} << 23;
constexpr std::size_t kFirstRoom = std::size_t{1} << 18;

struct FreeDecompressor {
    void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};
using Decompressor = std::unique_ptr<libdeflate_decompressor, FreeDecompressor>;

Decompressor MakeDecompressor() {
    Decompressor made(libdeflate_alloc_decompressor());
    if (!made) throw std::bad_alloc();
    return made;
}

// Of two texts, one behind the other, from their checksums and the length of the second.
uint32_t JoinedAdler(uint32_t first, uint32_t second, uint64_t secondBytes) {
    const uint64_t length = secondBytes % kAdlerModulus;
    const uint64_t a = first & 0xffff;
    const uint64_t b = first >> 16;
    // Each byte's sum begins at 1; the second's begins where the first's ended.
    const uint64_t sum = (a + (second & 0xffff) + kAdlerModulus - 1) % kAdlerModulus;
    const uint64_t sums = (b + (second >> 16) + length * (a + kAdlerModulus - 1)) % kAdlerModulus;
    return static_cast<uint32_t>(sums << 16 | sum);
}

std::array<unsigned char, kAdlerBytes> AdlerBytes(uint32_t adler) {
    std::array<unsigned char, kAdlerBytes> bytes{};
    for (std::size_t i = kAdlerBytes; i-- > 0; adler >>= 8)
        bytes[i] = static_cast<unsigned char>(adler);
    return bytes;
}

class PieceReader {
public:
    PieceReader(uint64_t packedBytes, uint64_t bytes, const ZLibSource& source, const ZLibTaker& take)
        : m_packedLeft(packedBytes),
          m_bytesLeft(bytes),
          m_source(source),
          m_take(take),
          m_decompressor(MakeDecompressor()),
          m_room(static_cast<std::size_t>(std::min<uint64_t>(kFirstRoom, bytes))) {}

    bool Run() {
        if (!Starts()) return false;
        std::size_t searched = 0;  // no end of a piece in front of it
        for (;;) {
            const auto held = Held();
            const auto from = held.begin() + static_cast<std::ptrdiff_t>(searched);
            const auto end = std::search(from, held.end(), kPieceEnd.begin(), kPieceEnd.end());
            if (end != held.end()) {
                const std::size_t size = static_cast<std::size_t>(end - held.begin()) + kPieceEnd.size();
                if (!Piece(held.first(size))) return false;
                m_begin += size;
                searched = 0;
                continue;
            }
            searched = held.size() - std::min(held.size(), kPieceEnd.size() - 1);
            if (m_packedLeft == 0) return Ends();
            if (held.size() > kMostPieceBytes || !Fetch()) return false;
        }
    }

private:
    std::span<const unsigned char> Held() const { return std::span(m_held).subspan(m_begin); }

    // More bytes behind those that are held.
    bool Fetch() {
        m_held.erase(m_held.begin(), m_held.begin() + static_cast<std::ptrdiff_t>(m_begin));
        m_begin = 0;
        const std::size_t before = m_held.size();
        const auto count = static_cast<std::size_t>(std::min<uint64_t>(kReadBytes, m_packedLeft));
        m_held.resize(before + count);
        m_packedLeft -= count;
        return m_source(std::span(m_held).subspan(before)) == count;
    }

    bool Starts() {
        if (m_packedLeft < kHead.size() || !Fetch() || m_held.size() < kHead.size()) return false;
        constexpr unsigned kDeflate = 8, kLargestWindow = 7, kDictionary = 0x20;
        const unsigned method = m_held[0], flags = m_held[1];
        m_begin = kHead.size();
        return (method & 15) == kDeflate && method >> 4 <= kLargestWindow && (flags & kDictionary) == 0 &&
               (method * 256 + flags) % 31 == 0;
    }

    bool Piece(std::span<const unsigned char> packed) {
        m_piece.assign(packed.begin(), packed.end());
        m_piece.insert(m_piece.end(), kLastBlock.begin(), kLastBlock.end());
        return Blocks(m_piece, m_piece.size());
    }

    // Blocks up to a last one, which take exactly `size` bytes.
    bool Blocks(std::span<const unsigned char> packed, std::size_t size) {
        for (;;) {
            std::size_t used = 0;
            std::size_t filled = 0;
            const libdeflate_result result =
                libdeflate_deflate_decompress_ex(m_decompressor.get(), packed.data(), packed.size(),
                                                 m_room.data(), m_room.size(), &used, &filled);
            if (result == LIBDEFLATE_SUCCESS) {
                if (used != size || filled > m_bytesLeft) return false;
                m_bytesLeft -= filled;
                m_adler = libdeflate_adler32(m_adler, m_room.data(), filled);
                return m_take(std::span<const unsigned char>(m_room).first(filled));
            }
            if (result != LIBDEFLATE_INSUFFICIENT_SPACE || m_room.size() >= m_bytesLeft) return false;
            const uint64_t room = kxbase::SizeProduct(m_room.size(), 2);
            m_room.resize(static_cast<std::size_t>(std::min(room, m_bytesLeft)));
        }
    }

    // What is behind the last piece: more blocks, of which one is the last, and the checksum.
    bool Ends() {
        const auto rest = Held();
        if (rest.size() < kAdlerBytes) return false;
        const auto blocks = rest.first(rest.size() - kAdlerBytes);
        return Blocks(blocks, blocks.size()) && m_bytesLeft == 0 &&
               std::ranges::equal(rest.last(kAdlerBytes), AdlerBytes(m_adler));
    }

    uint64_t m_packedLeft;
    uint64_t m_bytesLeft;
    const ZLibSource& m_source;
    const ZLibTaker& m_take;
    Decompressor m_decompressor;
    std::vector<unsigned char> m_held;  // packed bytes that were read
    std::size_t m_begin = 0;            // of the piece at hand
    std::vector<unsigned char> m_piece;
    std::vector<unsigned char> m_room;
    uint32_t m_adler = 1;
};

}  // namespace

ZLibPiece PackPairs(std::span<const unsigned char> bytes) {
    ZLibPiece piece;
    AppendDeflatedPairs(bytes, piece.packed);
    piece.packed.shrink_to_fit();
    piece.bytes = bytes.size();
    piece.adler = libdeflate_adler32(1, bytes.data(), bytes.size());
    return piece;
}

std::vector<unsigned char> Unpacked(const ZLibPiece& piece) {
    std::vector<unsigned char> packed = piece.packed;
    packed.insert(packed.end(), kLastBlock.begin(), kLastBlock.end());
    std::vector<unsigned char> bytes(static_cast<std::size_t>(piece.bytes));
    std::size_t filled = 0;
    const libdeflate_result result = libdeflate_deflate_decompress(
        MakeDecompressor().get(), packed.data(), packed.size(), bytes.data(), bytes.size(), &filled);
    if (result != LIBDEFLATE_SUCCESS || filled != bytes.size())
        throw kxbase::KXException("Chunk cannot be decoded");
    return bytes;
}

void ZLibPieceSum::Add(const ZLibPiece& piece) {
    m_adler = JoinedAdler(m_adler, piece.adler, piece.bytes);
    m_bytes += piece.bytes;
    m_packedBytes += piece.packed.size();
}

std::array<unsigned char, 2> ZLibPieceSum::Head() {
    return kHead;
}

std::array<unsigned char, 6> ZLibPieceSum::Tail() const {
    std::array<unsigned char, 6> tail{};
    const auto adler = AdlerBytes(m_adler);
    std::copy(adler.begin(), adler.end(), std::copy(kLastBlock.begin(), kLastBlock.end(), tail.begin()));
    return tail;
}

bool ReadZLibPieces(uint64_t packedBytes, uint64_t bytes, const ZLibSource& source, const ZLibTaker& take) {
    return PieceReader(packedBytes, bytes, source, take).Run();
}

}  // namespace kxcodecs
