// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>

namespace kxio {

/// Copies one value; `bytes` matters for lengths above 8 only.
using ValueCopier = void (*)(unsigned char* to, const unsigned char* from, uint64_t bytes);

namespace detail {
template <unsigned N>
void CopyFixed(unsigned char* to, const unsigned char* from, uint64_t) {
    std::memcpy(to, from, N);
}

// Whole four-byte words only: what is left over of a length such as 10 stays untouched.
inline void CopyWords(unsigned char* to, const unsigned char* from, uint64_t bytes) {
    for (uint64_t word = 0; word < bytes / 4; ++word)
        std::memcpy(to + 4 * word, from + 4 * word, 4);
}
}  // namespace detail

/// The copy routine for values of `bytes` bytes; null for 0.
inline ValueCopier CopierFor(uint64_t bytes) {
    static constexpr ValueCopier kFixed[] = {nullptr,
                                             detail::CopyFixed<1>,
                                             detail::CopyFixed<2>,
                                             detail::CopyFixed<3>,
                                             detail::CopyFixed<4>,
                                             detail::CopyFixed<5>,
                                             detail::CopyFixed<6>,
                                             detail::CopyFixed<7>,
                                             detail::CopyFixed<8>};
    return bytes <= 8 ? kFixed[bytes] : detail::CopyWords;
}

}  // namespace kxio
