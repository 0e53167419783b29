// SPDX-License-Identifier: MIT
#pragma once

namespace kxmath {

/// A vector of three doubles.
struct Vector3 {
    double x = 0;  ///< along the first axis
    double y = 0;  ///< along the second axis
    double z = 0;  ///< along the third axis
    bool operator==(const Vector3&) const = default;
};

/// Sum.
inline Vector3 operator+(const Vector3& a, const Vector3& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
/// Difference.
inline Vector3 operator-(const Vector3& a, const Vector3& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
/// `a`, `s` times as long.
inline Vector3 operator*(double s, const Vector3& a) {
    return {s * a.x, s * a.y, s * a.z};
}
/// Scalar product.
inline double Dot(const Vector3& a, const Vector3& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
/// Vector product, right-handed.
inline Vector3 Cross(const Vector3& a, const Vector3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

}  // namespace kxmath
