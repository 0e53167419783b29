// SPDX-License-Identifier: MIT
#pragma once

#include "kxmath/Vector3.h"

namespace kxbase {

/// A rotation as three axes. A value type.
struct Frame3D {
    kxmath::Vector3 xAxis{1, 0, 0};  ///< first axis, seen from the frame around it
    kxmath::Vector3 yAxis{0, 1, 0};  ///< second axis
    kxmath::Vector3 zAxis{0, 0, 1};  ///< third axis

    /// The identity.
    Frame3D() = default;
    /// From its axes, taken as they are.
    Frame3D(const kxmath::Vector3& x, const kxmath::Vector3& y, const kxmath::Vector3& z)
        : xAxis(x), yAxis(y), zAxis(z) {}
    bool operator==(const Frame3D&) const = default;
};

}  // namespace kxbase
