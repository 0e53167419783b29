// SPDX-License-Identifier: MIT
#include "kxexchange/PositionBound.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace kxexchange {

namespace {

constexpr double kMillimetresPerMetre = 1000.0;
// Unit roundoff of single precision, 2^-24, and of double precision.
constexpr double kSingle = 0.5 * static_cast<double>(std::numeric_limits<float>::epsilon());
constexpr double kDouble = 0.5 * std::numeric_limits<double>::epsilon();

// One value w through the file, at scale s:
//   single-precision input                f = w (1 + e1)
//   whole number                          n = f q + e, |e| <= 1/2, q = 1/s as a single-precision number
//   read back as single precision         n (1 + e2) x (1/q)(1 + e3) x (1 + e4)
// with |ei| <= 2^-24. The scale that counts is 1/q, which differs from s by at most one rounding. So the
// value moves by at most half a step plus four roundings of w; the factor (1 + 2^-20) covers the products
// of the small terms.
double ValueBound(double magnitude, double scale) {
    return (0.5 * scale + 4 * kSingle * magnitude) * (1 + 0x1p-20);
}

}  // namespace

// Let the stored polar position differ from the true one by dr, dv, dh. Moving along the radius, along the
// meridian and along the circle of latitude are at right angles to each other, and an arc is longer than
// its chord; so the distance is at most |dr| + (r + |dr|) sqrt(dv^2 + (sin v dh)^2), and |sin v| <= 1.
double PositionBound(double rangeMetres, const StoragePrecision& precision, int decimals) {
    const double rangeMillimetres = rangeMetres * kMillimetresPerMetre;
    double radial = ValueBound(rangeMillimetres, precision.rangeScale);
    if (rangeMillimetres < 0.5 * precision.rangeScale) radial = std::max(radial, precision.rangeScale);
    radial /= kMillimetresPerMetre;
    const double vertical = ValueBound(std::numbers::pi, precision.verticalScale);
    const double horizontal = ValueBound(precision.greatestHorizontal, precision.horizontalScale);
    double bound = radial + (rangeMetres + radial) * std::hypot(vertical, horizontal);
    // Coordinates to polar values and back in double precision: a handful of roundings each way.
    bound += 32 * kDouble * rangeMetres;
    if (decimals >= 0) bound += std::sqrt(3.0) * 0.5 * std::pow(10.0, -decimals) + 2 * kDouble * rangeMetres;
    return bound;
}

}  // namespace kxexchange
