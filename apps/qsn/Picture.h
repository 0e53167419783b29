// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qsn {

/// One pixel, not premultiplied.
struct Pixel {
    uint8_t red = 0;
    uint8_t green = 0;
    uint8_t blue = 0;
    uint8_t alpha = 0;
    bool operator==(const Pixel&) const = default;
};
static_assert(sizeof(Pixel) == 4);

/// A picture in memory, row by row from the top; starts transparent.
class Picture {
public:
    Picture(uint32_t width, uint32_t height)
        : m_width(width), m_height(height), m_pixels(std::size_t{width} * height) {}

    uint32_t Width() const { return m_width; }
    uint32_t Height() const { return m_height; }
    Pixel& At(uint32_t x, uint32_t y) { return m_pixels[std::size_t{y} * m_width + x]; }
    const Pixel& At(uint32_t x, uint32_t y) const { return m_pixels[std::size_t{y} * m_width + x]; }
    const Pixel* Row(uint32_t y) const { return m_pixels.data() + std::size_t{y} * m_width; }

private:
    uint32_t m_width;
    uint32_t m_height;
    std::vector<Pixel> m_pixels;
};

}  // namespace qsn
