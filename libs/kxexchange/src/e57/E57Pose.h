// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <optional>

#include "kxbase/RegistrationInformation.h"

namespace kxexchange {

/// A rotation as E57 writes it: w, x, y, z with w the real part.
using E57Quaternion = std::array<double, 4>;

/// The registration of a pose. A quaternion of another length than 1 is brought to it first; nothing when
/// it has no usable length.
std::optional<kxbase::RegistrationInformation> RegistrationOf(const E57Quaternion& rotation,
                                                              const std::array<double, 3>& translation);

/// The quaternion of the rotation nearest to a registration's axes, w not below 0. Its registration may
/// differ in the last bits, or more where the axes are no rotation (RotationError).
E57Quaternion QuaternionOf(const kxbase::RegistrationInformation& registration);

/// Greatest difference between two registrations' axes.
double RotationError(const kxbase::RegistrationInformation& a, const kxbase::RegistrationInformation& b);

}  // namespace kxexchange
