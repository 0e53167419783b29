// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <string_view>

namespace kxtest {

/// True in the full tier, which takes hours: the environment has KXIO_SOAK=full, as `scripts/soak` sets it.
/// Otherwise tests that scale run a share of their cases, spread over all of them.
inline bool FullTier() {
    const char* tier = std::getenv("KXIO_SOAK");
    return tier != nullptr && std::string_view(tier) == "full";
}

/// A number of trials: `few` in the everyday tier, `all` in the full one.
template <class Number>
Number Trials(Number few, Number all) {
    return FullTier() ? all : few;
}

}  // namespace kxtest
