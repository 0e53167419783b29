// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/Points.h"

namespace kxbase {

/// An axis-aligned box.
template <class T>
struct tBoundingBox {
    tBaseXYZPoint<T> min;  ///< smallest x, y and z
    tBaseXYZPoint<T> max;  ///< largest x, y and z
};

}  // namespace kxbase
