// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <concepts>
#include <cstdint>

namespace kxbase {

template <class T>
struct tBaseXYZPoint;

/// A point by range, horizontal angle and vertical angle from the zenith (radians).
///
/// x = r sin v cos h, y = r sin v sin h, z = r cos v; computed in double precision, narrowed at the end.
/// The invalid point is (-1, -1, -1).
template <class T>
struct tBasePolarPoint {
    T range = 0;
    T horizontal = 0;
    T vertical = 0;

    tBasePolarPoint() = default;
    tBasePolarPoint(T rangeIn, T horizontalIn, T verticalIn)
        : range(rangeIn), horizontal(horizontalIn), vertical(verticalIn) {}
    explicit tBasePolarPoint(const tBaseXYZPoint<T>& p) { *this = p; }
    /// A template only so that `point = {a, b, c}` means a point of the same kind.
    template <std::same_as<tBaseXYZPoint<T>> P>
    tBasePolarPoint& operator=(const P& p);

    static tBasePolarPoint Invalid() { return {T(-1), T(-1), T(-1)}; }
    bool operator==(const tBasePolarPoint&) const = default;
};

/// A Cartesian point in the scanner's frame, in the unit of the range it came from.
template <class T>
struct tBaseXYZPoint {
    T x = 0;
    T y = 0;
    T z = 0;

    tBaseXYZPoint() = default;
    tBaseXYZPoint(T xIn, T yIn, T zIn) : x(xIn), y(yIn), z(zIn) {}
    explicit tBaseXYZPoint(const tBasePolarPoint<T>& p) { *this = p; }
    /// A template only so that `point = {a, b, c}` means a point of the same kind.
    template <std::same_as<tBasePolarPoint<T>> P>
    tBaseXYZPoint& operator=(const P& p) {
        const double r = static_cast<double>(p.range);
        const double h = static_cast<double>(p.horizontal);
        const double v = static_cast<double>(p.vertical);
        const double s = std::sin(v);
        x = static_cast<T>(r * s * std::cos(h));
        y = static_cast<T>(r * s * std::sin(h));
        z = static_cast<T>(r * std::cos(v));
        return *this;
    }

    bool operator==(const tBaseXYZPoint&) const = default;
};

template <class T>
template <std::same_as<tBaseXYZPoint<T>> P>
tBasePolarPoint<T>& tBasePolarPoint<T>::operator=(const P& p) {
    const double x = static_cast<double>(p.x);
    const double y = static_cast<double>(p.y);
    const double z = static_cast<double>(p.z);
    range = static_cast<T>(std::sqrt(x * x + y * y + z * z));
    horizontal = static_cast<T>(std::atan2(y, x));
    vertical = static_cast<T>(std::atan2(std::sqrt(x * x + y * y), z));
    return *this;
}

/// A direction, in radians.
struct Angles {
    float horizontal = 0;
    float vertical = 0;
};

/// A Cartesian point with an 8-bit intensity.
struct tXYZLuminance8Point {
    float x = 0;
    float y = 0;
    float z = 0;
    uint8_t luminance = 0;
    bool operator==(const tXYZLuminance8Point&) const = default;
};

}  // namespace kxbase
