// SPDX-License-Identifier: MIT
#include "TextStyle.h"

namespace kxexchange {

namespace {

constexpr int kLeastDecimals = 6;
constexpr int kMostDecimals = 12;
constexpr int kUnitIntensityDecimals = 9;

int DecimalsOf(double step) {
    const int digits = static_cast<int>(std::ceil(-std::log10(step) - 1e-9)) + 2;
    return std::clamp(digits, kLeastDecimals, kMostDecimals);
}

}  // namespace

TextStyle TextStyleFor(const ScanDescription& description, const SinkOptions& options) {
    TextStyle style;
    const FieldDescription& coordinates = description.coordinates;
    if (options.decimals > 0) {
        style.coordinateDecimals = options.decimals;
    } else if (coordinates.precision && *coordinates.precision > 0) {
        style.coordinateDecimals = DecimalsOf(*coordinates.precision);
    } else {
        style.coordinateDecimals = -1;
    }
    if (description.intensity.precision == 1.0 / 65535) style.intensityDecimals = kUnitIntensityDecimals;
    return style;
}

}  // namespace kxexchange
