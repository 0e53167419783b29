// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace kxbase {

/// The polar components of a patch, one value per point of the patch in each.
template <class T>
struct tPolarVector {
    std::vector<T> range;       ///< component 1
    std::vector<T> horizontal;  ///< component 3 [rad]
    std::vector<T> vertical;    ///< component 2 [rad]
};

}  // namespace kxbase
