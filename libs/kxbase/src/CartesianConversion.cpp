// SPDX-License-Identifier: MIT
// Arc tangents of many quotients at once. This file is compiled once for every kind of vector unit. No target
// may contract a multiplication and an addition: all of them then give the same bits.
#include <array>
#include <cmath>
#include <cstddef>
#include <string>

#include "kxbase/Exceptions.h"
#include "kxbase/PolarConversion.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "CartesianConversion.cpp"
#include <hwy/foreach_target.h>
// After foreach_target.h.
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kxbase {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// Outside of these squares overflow or lose digits.
constexpr double kLargest = 1e150;
constexpr double kLeast = 1e-150;
constexpr double kTangentOfEighth = 0.41421356237309503;  // of pi/8
constexpr double kPi = 3.14159265358979323846;

// atan(t) / t by t squared for t up to tan(pi/8): the polynomial through the Chebyshev nodes of that range,
// computed with 60 digits; it is off by less than 4e-16.
constexpr double kArcTangent[] = {0.999999999999999,   -0.3333333333322143,  0.19999999978392646,
                                  -0.1428571266168377, 0.11111048853718136,  -0.09089529955963203,
                                  0.07673535421854269, -0.06505982928361508, 0.05024761991068078,
                                  -0.02531647782386478};

// std::atan2(y, x), for y and x that are not both 0.
template <class D>
HWY_INLINE hn::VFromD<D> ArcTangent(D d, hn::VFromD<D> y, hn::VFromD<D> x) {
    const auto absY = hn::Abs(y), absX = hn::Abs(x);
    const auto least = hn::Min(absX, absY), most = hn::Max(absX, absY);
    // Above pi/8 what is missing to pi/4: tan(a - pi/4) = (tan a - 1) / (tan a + 1).
    const auto far = hn::Gt(least, hn::Mul(most, hn::Set(d, kTangentOfEighth)));
    const auto t = hn::Div(hn::IfThenElse(far, hn::Sub(least, most), least),
                           hn::IfThenElse(far, hn::Add(least, most), most));
    const auto square = hn::Mul(t, t);
    auto sum = hn::Set(d, kArcTangent[std::size(kArcTangent) - 1]);
    for (size_t i = std::size(kArcTangent) - 1; i-- > 0;)
        sum = hn::Add(hn::Mul(sum, square), hn::Set(d, kArcTangent[i]));
    auto angle = hn::Add(hn::IfThenElseZero(far, hn::Set(d, kPi / 4)), hn::Mul(t, sum));
    angle = hn::IfThenElse(hn::Gt(absY, absX), hn::Sub(hn::Set(d, kPi / 2), angle), angle);
    angle = hn::IfThenElse(hn::Lt(x, hn::Zero(d)), hn::Sub(hn::Set(d, kPi), angle), angle);
    return hn::CopySignToAbs(angle, y);
}

// One vector of points.
HWY_INLINE void ConvertVector(const double* x, const double* y, const double* z, double* range,
                              double* vertical, double* horizontal) {
    const hn::ScalableTag<double> d;
    const auto vx = hn::LoadU(d, x), vy = hn::LoadU(d, y), vz = hn::LoadU(d, z);
    const auto flat2 = hn::Add(hn::Mul(vx, vx), hn::Mul(vy, vy));
    const auto flat = hn::Sqrt(flat2);
    hn::StoreU(hn::Sqrt(hn::Add(flat2, hn::Mul(vz, vz))), d, range);
    hn::StoreU(ArcTangent(d, flat, vz), d, vertical);
    hn::StoreU(ArcTangent(d, vy, vx), d, horizontal);
    const auto largest = hn::Set(d, kLargest);
    const auto bounded = hn::And(hn::Le(flat, largest), hn::Le(hn::Abs(vz), largest));
    const auto usual = hn::And(bounded, hn::Ge(flat, hn::Set(d, kLeast)));
    if (hn::AllTrue(d, usual)) return;
    for (size_t i = 0; i < hn::Lanes(d); ++i) {
        const double rounded = std::sqrt(x[i] * x[i] + y[i] * y[i]);
        if (rounded >= kLeast && rounded <= kLargest && std::abs(z[i]) <= kLargest) continue;
        const double distance = std::hypot(x[i], y[i]);
        range[i] = std::hypot(distance, z[i]);
        vertical[i] = distance == 0 && z[i] == 0 ? 0 : std::atan2(distance, z[i]);
        horizontal[i] = std::atan2(y[i], x[i]);
    }
}

void Convert(const double* x, const double* y, const double* z, size_t count, double* range, double* vertical,
             double* horizontal) {
    const hn::ScalableTag<double> d;
    const size_t lanes = hn::Lanes(d);
    size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        ConvertVector(x + i, y + i, z + i, range + i, vertical + i, horizontal + i);
    if (i == count) return;
    // The last few in a vector of their own, filled up with a point like any other.
    std::array<std::array<double, hn::MaxLanes(d)>, 6> last;
    for (auto& values : last)
        values.fill(1);
    const size_t left = count - i;
    for (size_t k = 0; k < left; ++k) {
        last[0][k] = x[i + k];
        last[1][k] = y[i + k];
        last[2][k] = z[i + k];
    }
    ConvertVector(last[0].data(), last[1].data(), last[2].data(), last[3].data(), last[4].data(),
                  last[5].data());
    for (size_t k = 0; k < left; ++k) {
        range[i + k] = last[3][k];
        vertical[i + k] = last[4][k];
        horizontal[i + k] = last[5][k];
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace kxbase
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxbase {

HWY_EXPORT(Convert);

void CartesianToPolar(std::span<const double> x, std::span<const double> y, std::span<const double> z,
                      std::span<double> range, std::span<double> vertical, std::span<double> horizontal) {
    const size_t count = x.size();
    if (y.size() != count || z.size() != count || range.size() != count || vertical.size() != count ||
        horizontal.size() != count) {
        ErrorContext context;
        context.detail = std::to_string(count) + ", " + std::to_string(y.size()) + " and " +
                         std::to_string(z.size()) + " coordinates, room for " + std::to_string(range.size()) +
                         " ranges, " + std::to_string(vertical.size()) + " and " +
                         std::to_string(horizontal.size()) + " angles";
        throw KXBadInputException("Points cannot be converted", context);
    }
    HWY_DYNAMIC_DISPATCH(Convert)
    (x.data(), y.data(), z.data(), count, range.data(), vertical.data(), horizontal.data());
}

}  // namespace kxbase
#endif  // HWY_ONCE
