// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

// One JPEG image in memory: what the chunk codec and the plain JPEG class share.

namespace kxcodecs {

struct JPEGSize {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 0;  // 1 grey, 3 colour

    uint64_t PixelCount() const { return static_cast<uint64_t>(width) * height; }
    bool operator==(const JPEGSize&) const = default;
};

// Largest side that the JPEG library takes.
constexpr uint32_t kMaxJPEGSide = 65500;
// A Huffman code is one bit at least and yields 64 samples at most: no image has more pixels per byte.
constexpr uint64_t kMaxJPEGPixelsPerByte = 512;
// Each scan of a progressive image costs a pass over all its blocks. Encoders make about ten.
constexpr int kMaxJPEGScans = 32;

enum class ChromaSampling { Full, Halved };

// The size an image's own header states; false when there is none, when the image is of a kind that is not
// decoded here (CMYK, arithmetic coding), or claims more pixels than its bytes can hold.
bool ReadJPEGSize(std::span<const unsigned char> image, JPEGSize& size);

// Appends the image to `out`; false when a side is 0 or above kMaxJPEGSide or the library gives up.
// `pixels` holds width x height x channels bytes.
bool EncodeJPEG(const unsigned char* pixels, const JPEGSize& size, int quality, ChromaSampling chroma,
                std::vector<unsigned char>& out);

// Decodes a whole, undamaged image of width x height pixels into `out`, which has width x height x channels
// bytes: channels 3 gives colour from any image, 1 its brightness. `usedBytes` is the image's length.
bool DecodeJPEG(std::span<const unsigned char> image, const JPEGSize& wanted, std::span<unsigned char> out,
                uint64_t& usedBytes);

}  // namespace kxcodecs
