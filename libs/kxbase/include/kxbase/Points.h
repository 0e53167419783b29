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
    T range = 0;       ///< distance from the scanner, in the file's length unit
    T horizontal = 0;  ///< angle in the horizontal plane from the x axis towards the y axis [rad]
    T vertical = 0;    ///< angle from the zenith [rad]

    /// The scanner's origin.
    tBasePolarPoint() = default;
    /// From its three parts.
    tBasePolarPoint(T rangeIn, T horizontalIn, T verticalIn)
        : range(rangeIn), horizontal(horizontalIn), vertical(verticalIn) {}
    /// The same point by range and angles.
    explicit tBasePolarPoint(const tBaseXYZPoint<T>& p) { *this = p; }
    /// Becomes the same point by range and angles. A template only so that `point = {a, b, c}` means a point
    /// of the same kind.
    template <std::same_as<tBaseXYZPoint<T>> P>
    tBasePolarPoint& operator=(const P& p);

    /// The invalid point.
    static tBasePolarPoint Invalid() { return {T(-1), T(-1), T(-1)}; }
    bool operator==(const tBasePolarPoint&) const = default;
};

/// A Cartesian point in the scanner's frame, in the unit of the range it came from.
template <class T>
struct tBaseXYZPoint {
    T x = 0;  ///< horizontal, at horizontal angle 0
    T y = 0;  ///< horizontal, at horizontal angle pi / 2
    T z = 0;  ///< up

    /// The scanner's origin.
    tBaseXYZPoint() = default;
    /// From its three parts.
    tBaseXYZPoint(T xIn, T yIn, T zIn) : x(xIn), y(yIn), z(zIn) {}
    /// The same point in Cartesian coordinates.
    explicit tBaseXYZPoint(const tBasePolarPoint<T>& p) { *this = p; }
    /// Becomes the same point in Cartesian coordinates. A template only so that `point = {a, b, c}` means a
    /// point of the same kind.
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

// Here because it needs the other kind of point to be complete.
/// \cond
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
/// \endcond

/// A direction, in radians.
struct Angles {
    float horizontal = 0;  ///< from the x axis towards the y axis
    float vertical = 0;    ///< from the zenith
};

/// A Cartesian point with an 8-bit intensity.
struct tXYZLuminance8Point {
    float x = 0;            ///< as in `tBaseXYZPoint`
    float y = 0;            ///< as in `tBaseXYZPoint`
    float z = 0;            ///< as in `tBaseXYZPoint`
    uint8_t luminance = 0;  ///< intensity; 0 where the scan has none
    bool operator==(const tXYZLuminance8Point&) const = default;
};

}  // namespace kxbase
