// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstdint>

namespace kxexchange {

/// Little-endian values behind each other. \return behind the value
template <class Bits>
unsigned char* PutBits(unsigned char* out, Bits bits) {
    for (size_t i = 0; i < sizeof bits; ++i)
        *out++ = static_cast<unsigned char>(bits >> (8 * i) & 0xff);
    return out;
}
inline unsigned char* PutFloat(unsigned char* out, double value) {
    return PutBits(out, std::bit_cast<uint32_t>(static_cast<float>(value)));
}
inline unsigned char* PutDouble(unsigned char* out, double value) {
    return PutBits(out, std::bit_cast<uint64_t>(value));
}

}  // namespace kxexchange
