// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

#include "Picture.h"

namespace qsn {

/// A small fixed-width font for legends: digits, lower-case letters, a few signs. Other characters are
/// drawn as a box, so that they are missed.
namespace font {

constexpr uint32_t kGlyphWidth = 5;
constexpr uint32_t kGlyphHeight = 9;  ///< seven rows above the base line, two below
constexpr uint32_t kAdvance = 6;

/// Width in pixels of `text` when each pixel of the font is `scale` pixels wide.
uint32_t TextWidth(std::string_view text, uint32_t scale);

/// True for pixels of the glyph of `character` that are set. x < kGlyphWidth, y < kGlyphHeight.
bool GlyphPixel(char character, uint32_t x, uint32_t y);

/// Draws `text` with its upper left corner at (x, y); what lies outside the picture is cut off.
void Draw(Picture& picture, int64_t x, int64_t y, std::string_view text, uint32_t scale, Pixel color);

}  // namespace font

}  // namespace qsn
