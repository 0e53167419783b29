// SPDX-License-Identifier: MIT
#pragma once

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <string>

namespace qsn {

/// A registration that turns about z and y and moves far away, with all the digits that doubles have:
/// X axis, Y axis, Z axis, translation.
inline std::array<double, 12> TurnedAndMoved() {
    const double ca = std::cos(0.7), sa = std::sin(0.7);
    const double cb = std::cos(-0.3), sb = std::sin(-0.3);
    return {ca * cb,           sa * cb,           -sb, -sa, ca, 0, ca * sb, sa * sb, cb,
            691234.5678901234, 5334321.098765432, -0.1};
}

/// What --registration takes.
inline std::string RegistrationOption(const std::array<double, 12>& values) {
    std::string text;
    for (const double value : values)
        text += fmt::format("{}{}", text.empty() ? "" : ",", value);
    return text;
}

}  // namespace qsn
