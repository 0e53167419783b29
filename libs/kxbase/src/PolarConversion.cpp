// SPDX-License-Identifier: MIT
// Sine and cosine of many angles at once. This file is compiled once for every kind of vector unit. No target
// may contract a multiplication and an addition: all of them then give the same bits.
#include "kxbase/PolarConversion.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "VectorTargets.h"
#include "kxbase/Exceptions.h"
#include "kxbase/Points.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "PolarConversion.cpp"
#include <hwy/foreach_target.h>
// After foreach_target.h.
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kxbase {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// Angles beyond it are left to the standard library: reduced as below they would lose digits.
constexpr double kLargestAngle = 1000;

// Taylor's series on -pi/4 to pi/4, cut where the next term is below 7e-12 (sine) and 4e-13 (cosine).
constexpr double kSine[] = {-1.0 / 6, 1.0 / 120, -1.0 / 5040, 1.0 / 362880, -1.0 / 39916800};
constexpr double kCosine[] = {-1.0 / 2, 1.0 / 24, -1.0 / 720, 1.0 / 40320, -1.0 / 3628800, 1.0 / 479001600};

// c[0] + x (c[1] + x (c[2] + ...)).
template <class D, size_t N>
HWY_INLINE hn::VFromD<D> Polynomial(D d, hn::VFromD<D> x, const double (&c)[N]) {
    auto sum = hn::Set(d, c[N - 1]);
    for (size_t i = N - 1; i-- > 0;)
        sum = hn::Add(hn::Mul(sum, x), hn::Set(d, c[i]));
    return sum;
}

template <class D>
HWY_INLINE void SineCosine(D d, hn::VFromD<D> angle, hn::VFromD<D>& sine, hn::VFromD<D>& cosine) {
    const hn::RebindToUnsigned<D> du;
    // Adding 1.5 x 2^52 rounds to a whole number of quarter turns and leaves its two low bits at the end.
    const auto whole = hn::Set(d, 6755399441055744.0);
    const auto shifted = hn::Add(hn::Mul(angle, hn::Set(d, 0.63661977236758134308)), whole);
    const auto turns = hn::Sub(shifted, whole);
    // pi/2 in two parts; the first has 33 bits, so that its product with the small number `turns` is exact.
    const auto rest = hn::Sub(hn::Sub(angle, hn::Mul(turns, hn::Set(d, 1.57079632673412561417))),
                              hn::Mul(turns, hn::Set(d, 6.07710050650619224932e-11)));
    const auto square = hn::Mul(rest, rest);
    const auto s = hn::Add(rest, hn::Mul(rest, hn::Mul(square, Polynomial(d, square, kSine))));
    const auto c = hn::Add(hn::Set(d, 1.0), hn::Mul(square, Polynomial(d, square, kCosine)));
    const auto quadrant = hn::BitCast(du, shifted);
    const auto one = hn::Set(du, uint64_t{1});
    const auto two = hn::Set(du, uint64_t{2});
    const auto odd = hn::RebindMask(d, hn::TestBit(quadrant, one));
    const auto sineSign = hn::ShiftLeft<62>(hn::And(quadrant, two));
    const auto cosineSign = hn::ShiftLeft<62>(hn::And(hn::Add(quadrant, one), two));
    sine = hn::Xor(hn::IfThenElse(odd, c, s), hn::BitCast(d, sineSign));
    cosine = hn::Xor(hn::IfThenElse(odd, s, c), hn::BitCast(d, cosineSign));
}

template <class DF, class D>
HWY_INLINE void StorePoints(DF df, D, hn::VFromD<D> x, hn::VFromD<D> y, hn::VFromD<D> z, float* out) {
    hn::StoreInterleaved3(hn::DemoteTo(df, x), hn::DemoteTo(df, y), hn::DemoteTo(df, z), df, out);
}
template <class DF, class D>
HWY_INLINE void StorePoints(DF, D d, hn::VFromD<D> x, hn::VFromD<D> y, hn::VFromD<D> z, double* out) {
    hn::StoreInterleaved3(x, y, z, d, out);
}

// One vector of points.
template <class D, class T>
HWY_INLINE void ConvertVector(D d, const float* range, const float* horizontal, const float* vertical,
                              T* xyz) {
    const hn::Rebind<float, D> df;
    const auto r = hn::PromoteTo(d, hn::LoadU(df, range));
    const auto h = hn::PromoteTo(d, hn::LoadU(df, horizontal));
    const auto v = hn::PromoteTo(d, hn::LoadU(df, vertical));
    auto sineH = hn::Zero(d), cosineH = sineH, sineV = sineH, cosineV = sineH;
    SineCosine(d, h, sineH, cosineH);
    SineCosine(d, v, sineV, cosineV);
    const auto flat = hn::Mul(r, sineV);
    StorePoints(df, d, hn::Mul(flat, cosineH), hn::Mul(flat, sineH), hn::Mul(r, cosineV), xyz);
    const auto limit = hn::Set(d, kLargestAngle);
    const auto usual = hn::And(hn::Le(hn::Abs(h), limit), hn::Le(hn::Abs(v), limit));
    if (hn::AllTrue(d, usual)) return;
    const auto beyond = [](float angle) { return !(std::abs(static_cast<double>(angle)) <= kLargestAngle); };
    for (size_t i = 0; i < hn::Lanes(d); ++i) {
        if (!beyond(horizontal[i]) && !beyond(vertical[i])) continue;
        const tBaseXYZPoint<double> point{tBasePolarPoint<double>(range[i], horizontal[i], vertical[i])};
        xyz[3 * i] = static_cast<T>(point.x);
        xyz[3 * i + 1] = static_cast<T>(point.y);
        xyz[3 * i + 2] = static_cast<T>(point.z);
    }
}

template <class T>
HWY_INLINE void Convert(const float* range, const float* horizontal, const float* vertical, size_t count,
                        T* xyz) {
    const hn::ScalableTag<double> d;
    const size_t lanes = hn::Lanes(d);
    size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        ConvertVector(d, range + i, horizontal + i, vertical + i, xyz + 3 * i);
    if (i == count) return;
    // The last few in a vector of their own.
    constexpr size_t kMostLanes = hn::MaxLanes(d);
    std::array<float, kMostLanes> r{}, h{}, v{};
    std::array<T, 3 * kMostLanes> points{};
    const size_t left = count - i;
    for (size_t k = 0; k < left; ++k) {
        r[k] = range[i + k];
        h[k] = horizontal[i + k];
        v[k] = vertical[i + k];
    }
    ConvertVector(d, r.data(), h.data(), v.data(), points.data());
    for (size_t k = 0; k < 3 * left; ++k)
        xyz[3 * i + k] = points[k];
}

void ConvertToFloats(const float* range, const float* horizontal, const float* vertical, size_t count,
                     float* xyz) {
    Convert(range, horizontal, vertical, count, xyz);
}
void ConvertToDoubles(const float* range, const float* horizontal, const float* vertical, size_t count,
                      double* xyz) {
    Convert(range, horizontal, vertical, count, xyz);
}

}  // namespace HWY_NAMESPACE
}  // namespace kxbase
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxbase {

HWY_EXPORT(ConvertToFloats);
HWY_EXPORT(ConvertToDoubles);

namespace {

void RequireSizes(size_t range, size_t horizontal, size_t vertical, size_t xyz) {
    if (horizontal == range && vertical == range && xyz / 3 == range && xyz % 3 == 0) return;
    ErrorContext context;
    context.detail = std::to_string(range) + " ranges, " + std::to_string(horizontal) + " and " +
                     std::to_string(vertical) + " angles, room for " + std::to_string(xyz) + " coordinates";
    throw KXBadInputException("Points cannot be converted", context);
}

}  // namespace

void PolarToCartesian(std::span<const float> range, std::span<const float> horizontal,
                      std::span<const float> vertical, std::span<float> xyz) {
    RequireSizes(range.size(), horizontal.size(), vertical.size(), xyz.size());
    HWY_DYNAMIC_DISPATCH(ConvertToFloats)
    (range.data(), horizontal.data(), vertical.data(), range.size(), xyz.data());
}

void PolarToCartesian(std::span<const float> range, std::span<const float> horizontal,
                      std::span<const float> vertical, std::span<double> xyz) {
    RequireSizes(range.size(), horizontal.size(), vertical.size(), xyz.size());
    HWY_DYNAMIC_DISPATCH(ConvertToDoubles)
    (range.data(), horizontal.data(), vertical.data(), range.size(), xyz.data());
}

std::vector<std::string> VectorTargets() {
    std::vector<std::string> names;
    for (const auto target : hwy::SupportedAndGeneratedTargets())
        names.emplace_back(hwy::TargetName(target));
    return names;
}

void UseVectorTarget(const std::string& name) {
    hwy::SetSupportedTargetsForTest(0);
    for (const auto target : hwy::SupportedAndGeneratedTargets()) {
        if (name == hwy::TargetName(target)) hwy::SetSupportedTargetsForTest(target);
    }
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

}  // namespace kxbase
#endif  // HWY_ONCE
