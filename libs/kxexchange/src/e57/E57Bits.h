// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kxexchange {

/// Bytes behind the packed values that UnpackBits may look at.
constexpr size_t kUnpackMargin = 16;

/// Takes `out.size()` numbers of `width` bits (1 to 64) out of a row of bits, least significant bit first.
///
/// \param bytes     holds all the bits; kUnpackMargin more bytes must be readable behind them
/// \param firstBit  in bytes[0] and on
void UnpackBits(const unsigned char* bytes, uint64_t firstBit, unsigned width, std::span<uint64_t> out);

/// Puts numbers into a row of bits, least significant bit first.
class BitPacker {
public:
    /// The lowest `width` bits (0 to 64) of `value`; the others must be 0.
    void Put(uint64_t value, unsigned width) {
        if (width == 0) return;
        m_pending |= value << m_used;
        if (m_used + width < 64) {
            m_used += width;
            return;
        }
        Store();
        const unsigned taken = 64 - m_used;
        m_pending = taken == 64 ? 0 : value >> taken;
        m_used = width - taken;
    }
    /// The bytes so far, the last one filled with zeros; later numbers begin with a new byte.
    std::span<const unsigned char> Bytes();
    void Clear();

private:
    void Store();

    std::vector<unsigned char> m_bytes;
    uint64_t m_pending = 0;
    unsigned m_used = 0;  // bits of m_pending, below 64
};

}  // namespace kxexchange
