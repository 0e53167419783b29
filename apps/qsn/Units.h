// SPDX-License-Identifier: MIT
#pragma once

#include <numbers>

namespace qsn {

/// The program speaks metres; files hold millimetres.
constexpr double kMetresPerUnit = 1e-3;
constexpr double kDegreesPerRadian = 180 / std::numbers::pi;

inline double Metres(float fileUnits) {
    return kMetresPerUnit * static_cast<double>(fileUnits);
}
inline double Degrees(float radians) {
    return kDegreesPerRadian * static_cast<double>(radians);
}

}  // namespace qsn
