// SPDX-License-Identifier: MIT
#include "kxbase/Sizes.h"

namespace kxbase {

std::string OverLimit(const char* limit, uint64_t found, uint64_t most) {
    return std::string("limit ") + limit + ": " + std::to_string(found) + " found, at most " +
           std::to_string(most) + " allowed";
}

}  // namespace kxbase
