// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "kxcodecs/Export.h"

namespace kxcodecs {

/// Plain JPEG images, for thumbnails. Stateless; safe from any number of threads. Nothing throws, except
/// for want of memory for `out`.
class KXCODECS_EXPORT JPEG {
public:
    /// Images of more pixels are refused: 2^28.
    static constexpr uint64_t kMaxPixels = uint64_t{1} << 28;

    /// Encodes `width` x `height` pixels of red, green, blue, row by row, without gaps.
    /// False, with `out` empty, when a side is 0 or above 65500, or there are more than `kMaxPixels`.
    /// \param rgb      3 x width x height bytes
    /// \param quality  1 to 100; values outside are clamped
    static bool Encode(const unsigned char* rgb, unsigned width, unsigned height, int quality,
                       std::vector<unsigned char>& out);

    /// Decodes to red, green, blue (grey images too), row by row, without gaps. Bytes behind the image are
    /// ignored. False, with a null buffer and zero sizes, for anything that is not a whole undamaged image
    /// of at most `kMaxPixels`.
    /// \param pixels  the caller's to give back with `Free`
    /// \param bytes   3 x width x height
    static bool Decode(const unsigned char* data, uint64_t size, unsigned char*& pixels, uint64_t& bytes,
                       unsigned& width, unsigned& height);

    /// Gives back a buffer of `Decode`; accepts null.
    static void Free(unsigned char* pixels);

    /// The sides of an image from its headers alone, without decoding. False when there are none, with both
    /// sides 0.
    static bool ReadSize(const unsigned char* data, uint64_t size, unsigned& width, unsigned& height);
};

}  // namespace kxcodecs
