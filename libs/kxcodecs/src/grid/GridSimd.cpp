// SPDX-License-Identifier: MIT
#include "grid/GridSimd.h"

#include <hwy/highway.h>

namespace kxcodecs::grid {

std::vector<std::string> VectorTargets() {
    std::vector<std::string> names;
    for (const auto target : hwy::SupportedAndGeneratedTargets())
        names.emplace_back(hwy::TargetName(target));
    return names;
}

void UseVectorTarget(const std::string& name) {
    hwy::SetSupportedTargetsForTest(0);
    for (const auto target : hwy::SupportedAndGeneratedTargets()) {
        if (name == hwy::TargetName(target)) hwy::SetSupportedTargetsForTest(target);
    }
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

}  // namespace kxcodecs::grid
