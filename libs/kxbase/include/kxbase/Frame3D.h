// SPDX-License-Identifier: MIT
#pragma once

#include "kxmath/Vector3.h"

namespace kxbase {

/// A rotation as three axes. A value type.
struct Frame3D {
    kxmath::Vector3 xAxis{1, 0, 0};
    kxmath::Vector3 yAxis{0, 1, 0};
    kxmath::Vector3 zAxis{0, 0, 1};

    Frame3D() = default;
    Frame3D(const kxmath::Vector3& x, const kxmath::Vector3& y, const kxmath::Vector3& z)
        : xAxis(x), yAxis(y), zAxis(z) {}
    bool operator==(const Frame3D&) const = default;
};

}  // namespace kxbase
