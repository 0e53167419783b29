// SPDX-License-Identifier: MIT
#include "kxcodecs/JPEG.h"

#include <algorithm>
#include <new>

#include "JPEGImage.h"

namespace kxcodecs {

bool JPEG::Encode(const unsigned char* rgb, unsigned width, unsigned height, int quality,
                  std::vector<unsigned char>& out) {
    out.clear();
    const JPEGSize size{width, height, 3};
    return size.PixelCount() <= kMaxPixels &&
           EncodeJPEG(rgb, size, std::clamp(quality, 1, 100), ChromaSampling::Halved, out);
}

bool JPEG::Decode(const unsigned char* data, uint64_t size, unsigned char*& pixels, uint64_t& bytes,
                  unsigned& width, unsigned& height) {
    pixels = nullptr;
    bytes = 0;
    unsigned ownWidth = 0;
    unsigned ownHeight = 0;
    width = height = 0;
    if (!ReadSize(data, size, ownWidth, ownHeight)) return false;
    const JPEGSize wanted{ownWidth, ownHeight, 3};
    if (wanted.PixelCount() > kMaxPixels) return false;
    const uint64_t wantedBytes = 3 * wanted.PixelCount();
    auto* buffer = new (std::nothrow) unsigned char[wantedBytes];
    if (buffer == nullptr) return false;
    uint64_t usedBytes = 0;
    if (!DecodeJPEG({data, size}, wanted, {buffer, wantedBytes}, usedBytes)) {
        delete[] buffer;
        return false;
    }
    pixels = buffer;
    bytes = wantedBytes;
    width = ownWidth;
    height = ownHeight;
    return true;
}

void JPEG::Free(unsigned char* pixels) {
    delete[] pixels;
}

bool JPEG::ReadSize(const unsigned char* data, uint64_t size, unsigned& width, unsigned& height) {
    width = height = 0;
    JPEGSize own;
    if (data == nullptr || !ReadJPEGSize({data, size}, own)) return false;
    width = own.width;
    height = own.height;
    return true;
}

}  // namespace kxcodecs
