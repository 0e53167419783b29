// SPDX-License-Identifier: MIT
#include "E57Bits.h"

namespace kxexchange {

namespace {

// Written out with shifts: compilers make one load of it.
uint64_t Load(const unsigned char* p) {
    uint64_t value = 0;
    for (unsigned i = 0; i < 8; ++i)
        value |= static_cast<uint64_t>(p[i]) << (8 * i);
    return value;
}

}  // namespace

void UnpackBits(const unsigned char* bytes, uint64_t firstBit, unsigned width, std::span<uint64_t> out) {
    // Numbers of so many bits lie inside eight bytes wherever they begin.
    constexpr unsigned kOneLoad = 57;
    const uint64_t mask = ~uint64_t{0} >> (64 - width);
    uint64_t bit = firstBit;
    if (width <= kOneLoad) {
        for (uint64_t& value : out) {
            value = (Load(bytes + bit / 8) >> (bit % 8)) & mask;
            bit += width;
        }
        return;
    }
    for (uint64_t& value : out) {
        const unsigned char* const at = bytes + bit / 8;
        const auto shift = static_cast<unsigned>(bit % 8);
        uint64_t number = Load(at) >> shift;
        if (shift != 0) number |= static_cast<uint64_t>(at[8]) << (64 - shift);
        value = number & mask;
        bit += width;
    }
}

void BitPacker::Store() {
    const size_t at = m_bytes.size();
    m_bytes.resize(at + 8);
    for (unsigned i = 0; i < 8; ++i)
        m_bytes[at + i] = static_cast<unsigned char>(m_pending >> (8 * i));
}

std::span<const unsigned char> BitPacker::Bytes() {
    for (unsigned bit = 0; bit < m_used; bit += 8)
        m_bytes.push_back(static_cast<unsigned char>(m_pending >> bit));
    m_pending = 0;
    m_used = 0;
    return m_bytes;
}

void BitPacker::Clear() {
    m_bytes.clear();
    m_pending = 0;
    m_used = 0;
}

}  // namespace kxexchange
