// SPDX-License-Identifier: MIT
#include "ColorMap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace qsn {

namespace {

struct LinearRgb {
    double red, green, blue;
};

/// Oklab's published matrices (B. Ottosson, 2020), polar form: lightness, chroma, hue [rad].
LinearRgb FromOklab(double lightness, double chroma, double hue) {
    const double a = chroma * std::cos(hue);
    const double b = chroma * std::sin(hue);
    const double l = std::pow(lightness + 0.3963377774 * a + 0.2158037573 * b, 3);
    const double m = std::pow(lightness - 0.1055613458 * a - 0.0638541728 * b, 3);
    const double s = std::pow(lightness - 0.0894841775 * a - 1.2914855480 * b, 3);
    return {4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s,
            -1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s,
            -0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s};
}

/// The transfer function of sRGB (IEC 61966-2-1).
uint8_t ToByte(double linear) {
    const double encoded = linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
    return static_cast<uint8_t>(std::lround(255 * std::clamp(encoded, 0.0, 1.0)));
}

constexpr size_t kEntries = 256;

std::array<Pixel, kEntries> MakeTable() {
    constexpr double kDarkest = 0.28, kLightest = 0.93;
    constexpr double kFirstHue = 308, kLastHue = 105;  // degrees: violet, back over blue and green, yellow
    // A screen shows least colour in the middle, where blue turns green: the curve stays just below that
    // limit all the way, without a kink that would be seen as an edge.
    constexpr double kLeastChroma = 0.100, kLeastAt = 0.45, kChromaBend = 0.20;
    std::array<Pixel, kEntries> table;
    for (size_t i = 0; i < kEntries; ++i) {
        const double t = static_cast<double>(i) / (kEntries - 1);
        const double lightness = kDarkest + (kLightest - kDarkest) * t;
        const double hue = (kFirstHue + (kLastHue - kFirstHue) * t) * std::numbers::pi / 180;
        const double chroma = kLeastChroma + kChromaBend * (t - kLeastAt) * (t - kLeastAt);
        const LinearRgb rgb = FromOklab(lightness, chroma, hue);
        table[i] = {ToByte(rgb.red), ToByte(rgb.green), ToByte(rgb.blue), 255};
    }
    return table;
}

}  // namespace

Pixel ScaleColor(double share) {
    static const std::array<Pixel, kEntries> table = MakeTable();
    if (!(share > 0)) return table.front();
    return table[static_cast<size_t>(std::lround(std::min(share, 1.0) * (kEntries - 1)))];
}

}  // namespace qsn
