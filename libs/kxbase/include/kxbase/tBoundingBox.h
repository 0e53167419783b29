// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/Points.h"

namespace kxbase {

/// An axis-aligned box.
template <class T>
struct tBoundingBox {
    tBaseXYZPoint<T> min;
    tBaseXYZPoint<T> max;
};

}  // namespace kxbase
