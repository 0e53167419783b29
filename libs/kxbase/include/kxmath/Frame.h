// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include "kxbase/Export.h"
#include "kxmath/Vector3.h"

namespace kxmath {

/// A frame of reference: three axes and an origin, seen from the frame around it. As a map it takes
/// local coordinates to outer ones: p = origin + x X + y Y + z Z. A value type.
class KXBASE_EXPORT Frame {
public:
    /// The identity.
    Frame();
    /// From its axes and origin, taken as they are.
    Frame(const Vector3& xAxis, const Vector3& yAxis, const Vector3& zAxis, const Vector3& origin);

    /// Turns axes and origin, right-handed, by `angle` radians about the line through `origin` along
    /// `axis` (any length but zero; a zero axis leaves the frame as it is). Rodrigues' formula.
    void Rotate(const Vector3& origin, const Vector3& axis, double angle);

    const Vector3& GetXAxis() const { return m_x; }        ///< first axis, in outer coordinates
    const Vector3& GetYAxis() const { return m_y; }        ///< second axis
    const Vector3& GetZAxis() const { return m_z; }        ///< third axis
    const Vector3& GetOrigin() const { return m_origin; }  ///< origin, in outer coordinates
    /// 4 x 4, row by row: the axes stand in the columns, the origin in the last column.
    std::array<std::array<double, 4>, 4> GetMatrix() const;
    /// This frame after `inner`: the frame that maps `inner`'s local coordinates through both.
    Frame PropagateFrame(const Frame& inner) const;
    /// Outer coordinates of a local point.
    Vector3 Transform(const Vector3& local) const;
    /// Local coordinates of an outer point; the axes must be of length 1 and at right angles.
    Vector3 InverseTransform(const Vector3& outer) const;

private:
    Vector3 m_x;
    Vector3 m_y;
    Vector3 m_z;
    Vector3 m_origin;
};

}  // namespace kxmath
