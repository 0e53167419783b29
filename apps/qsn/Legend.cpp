// SPDX-License-Identifier: MIT
#include "Legend.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "BitmapFont.h"
#include "ColorMap.h"

namespace qsn {

namespace {

constexpr Pixel kPaper{250, 250, 250, 255};
constexpr Pixel kInk{30, 30, 30, 255};

/// All measures in pixels of the font at its scale.
struct Measures {
    uint32_t scale;   ///< pixels per font pixel
    uint32_t margin;  ///< around everything
    uint32_t barHeight;
    uint32_t tickLength;
};

Measures MeasuresFor(uint32_t pictureWidth) {
    const uint32_t scale = std::clamp(pictureWidth / 450, 1U, 8U);
    return {scale, 5 * scale, 8 * scale, 2 * scale};
}

/// One of 1, 2, 5 times a power of ten, at least `wanted`.
double RoundStep(double wanted) {
    const double power = std::pow(10, std::floor(std::log10(wanted)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        // A little slack: 0.30000000000000004 is 0.3.
        if (factor * power >= wanted * (1 - 1e-9)) return factor * power;
    }
    return 10 * power;
}

void Fill(Picture& picture, uint32_t x0, uint32_t y0, uint32_t x1, uint32_t y1, Pixel color) {
    for (uint32_t y = y0; y < std::min(y1, picture.Height()); ++y) {
        for (uint32_t x = x0; x < std::min(x1, picture.Width()); ++x)
            picture.At(x, y) = color;
    }
}

}  // namespace

std::vector<double> RoundTicks(double low, double high, unsigned maximum) {
    std::vector<double> ticks;
    if (!(high > low) || maximum < 2 || !std::isfinite(high - low)) return ticks;
    const double step = RoundStep((high - low) / (maximum - 1));
    if (!(step > 0) || !std::isfinite(step)) return ticks;
    // Counted, not added up: 0.1 + 0.1 + ... drifts.
    const double first = std::ceil(low / step - 1e-9);
    for (unsigned i = 0; i < maximum && (first + i) * step <= high + step * 1e-9; ++i)
        ticks.push_back((first + i) * step);
    return ticks;
}

std::string TickText(double value, double step) {
    const double decimals = step > 0 ? std::clamp(-std::floor(std::log10(step) + 1e-9), 0.0, 9.0) : 0.0;
    std::string text = fmt::format("{:.{}f}", value, static_cast<int>(decimals));
    // Rounding may leave a zero with a sign.
    if (text.find_first_not_of("-0.") == std::string::npos && text[0] == '-') text.erase(0, 1);
    return text;
}

uint32_t LegendHeight(uint32_t pictureWidth) {
    const Measures m = MeasuresFor(pictureWidth);
    return m.margin + m.barHeight + m.tickLength + (font::kGlyphHeight + 1) * m.scale + m.margin / 2;
}

void DrawLegend(Picture& picture, const Scale& scale) {
    const Measures m = MeasuresFor(picture.Width());
    const uint32_t strip = std::min(LegendHeight(picture.Width()), picture.Height());
    const uint32_t top = picture.Height() - strip;
    Fill(picture, 0, top, picture.Width(), picture.Height(), kPaper);

    // Title at the left, the bar over the rest.
    const uint32_t titleWidth = font::TextWidth(scale.title, m.scale);
    const uint32_t barLeft = m.margin + titleWidth + 3 * m.margin;
    const uint32_t barTop = top + m.margin;
    font::Draw(picture, m.margin, barTop, scale.title, m.scale, kInk);
    if (barLeft + 4 * m.margin >= picture.Width()) return;  // no room for a bar
    const uint32_t barRight = picture.Width() - 3 * m.margin;
    const uint32_t barWidth = barRight - barLeft;
    for (uint32_t x = barLeft; x < barRight; ++x) {
        const Pixel color = ScaleColor((x - barLeft + 0.5) / barWidth);
        Fill(picture, x, barTop, x + 1, barTop + m.barHeight, color);
    }

    const uint32_t signY = barTop + m.barHeight / 2 - 3 * m.scale;  // half of the glyph above its base line
    if (scale.goesBelow)
        font::Draw(picture, int64_t{barLeft} - font::kAdvance * m.scale, signY, "<", m.scale, kInk);
    if (scale.goesAbove) font::Draw(picture, barRight + m.scale, signY, ">", m.scale, kInk);

    const auto widestTick =
        static_cast<uint32_t>(std::max(TickText(scale.low, (scale.high - scale.low) / 10).size(),
                                       TickText(scale.high, (scale.high - scale.low) / 10).size()));
    const uint32_t tickRoom = (widestTick + 2) * font::kAdvance * m.scale;
    const unsigned maximum = std::clamp(barWidth / tickRoom, 2U, 12U);
    const std::vector<double> ticks = RoundTicks(scale.low, scale.high, maximum);
    const double step = ticks.size() > 1 ? ticks[1] - ticks[0] : scale.high - scale.low;
    for (const double tick : ticks) {
        const double share = (tick - scale.low) / (scale.high - scale.low);
        const auto x = static_cast<uint32_t>(std::lround(barLeft + share * (barWidth - 1)));
        Fill(picture, x, barTop + m.barHeight, x + m.scale, barTop + m.barHeight + m.tickLength, kInk);
        const std::string text = TickText(tick, step);
        const int64_t textX = int64_t{x} - font::TextWidth(text, m.scale) / 2;
        font::Draw(picture, textX, barTop + m.barHeight + m.tickLength + m.scale, text, m.scale, kInk);
    }
}

}  // namespace qsn
