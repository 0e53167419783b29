// SPDX-License-Identifier: MIT
#include "kxmath/Frame.h"

#include <cmath>

namespace kxmath {

Frame::Frame() : Frame({1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}) {}
Frame::Frame(const Vector3& xAxis, const Vector3& yAxis, const Vector3& zAxis, const Vector3& origin)
    : m_x(xAxis), m_y(yAxis), m_z(zAxis), m_origin(origin) {}

void Frame::Rotate(const Vector3& origin, const Vector3& axis, double angle) {
    const double length = std::hypot(axis.x, axis.y, axis.z);  // no overflow or underflow of squares
    if (length == 0) return;
    const Vector3 k = {axis.x / length, axis.y / length, axis.z / length};
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const auto turned = [&](const Vector3& v) { return c * v + s * Cross(k, v) + ((1 - c) * Dot(k, v)) * k; };
    m_x = turned(m_x);
    m_y = turned(m_y);
    m_z = turned(m_z);
    m_origin = origin + turned(m_origin - origin);
}

std::array<std::array<double, 4>, 4> Frame::GetMatrix() const {
    return {{{m_x.x, m_y.x, m_z.x, m_origin.x},
             {m_x.y, m_y.y, m_z.y, m_origin.y},
             {m_x.z, m_y.z, m_z.z, m_origin.z},
             {0, 0, 0, 1}}};
}

Vector3 Frame::Transform(const Vector3& local) const {
    return m_origin + local.x * m_x + local.y * m_y + local.z * m_z;
}

Vector3 Frame::InverseTransform(const Vector3& outer) const {
    const Vector3 offset = outer - m_origin;
    return {Dot(offset, m_x), Dot(offset, m_y), Dot(offset, m_z)};
}

Frame Frame::PropagateFrame(const Frame& inner) const {
    const auto turned = [this](const Vector3& v) { return v.x * m_x + v.y * m_y + v.z * m_z; };
    return {turned(inner.m_x), turned(inner.m_y), turned(inner.m_z), Transform(inner.m_origin)};
}

}  // namespace kxmath
