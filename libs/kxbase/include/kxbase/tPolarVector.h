// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace kxbase {

/// The polar components of a patch, one value per point of the patch in each.
template <class T>
struct tPolarVector {
    std::vector<T> range;
    std::vector<T> horizontal;
    std::vector<T> vertical;
};

}  // namespace kxbase
