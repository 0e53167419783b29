// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "kxbase/RegistrationInformation.h"

namespace kxexchange {

/// Rotations as quaternions w x y z.
using Quaternion = std::array<double, 4>;

/// True when the length tells a rotation: anywhere near 1.
inline bool IsRotation(const Quaternion& q) {
    const double square = q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3];
    return square > 0.5 && square < 2;
}

/// The pose that turns by a quaternion, brought to length 1, and then moves.
inline kxbase::RegistrationInformation PoseOf(const std::array<double, 3>& translation, Quaternion q) {
    const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    for (double& value : q)
        value /= length;
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    // Row i: where the i-th axis of the instrument goes.
    const double values[12] = {1 - 2 * (y * y + z * z), 2 * (x * y + w * z),     2 * (x * z - w * y),
                               2 * (x * y - w * z),     1 - 2 * (x * x + z * z), 2 * (y * z + w * x),
                               2 * (x * z + w * y),     2 * (y * z - w * x),     1 - 2 * (x * x + y * y),
                               translation[0],          translation[1],          translation[2]};
    return kxbase::RegistrationInformation::FromValues(values);
}

/// The quaternion of a pose's rotation, w not negative (Shepperd's choice of the greatest component).
inline Quaternion QuaternionOf(const kxbase::RegistrationInformation& pose) {
    const double* m = pose.Values();  // rows: images of the axes
    const double trace = m[0] + m[4] + m[8];
    Quaternion q{};
    if (trace >= m[0] && trace >= m[4] && trace >= m[8]) {
        q = {1 + trace, m[5] - m[7], m[6] - m[2], m[1] - m[3]};
    } else if (m[0] >= m[4] && m[0] >= m[8]) {
        q = {m[5] - m[7], 1 + m[0] - m[4] - m[8], m[1] + m[3], m[2] + m[6]};
    } else if (m[4] >= m[8]) {
        q = {m[6] - m[2], m[1] + m[3], 1 + m[4] - m[0] - m[8], m[5] + m[7]};
    } else {
        q = {m[1] - m[3], m[2] + m[6], m[5] + m[7], 1 + m[8] - m[0] - m[4]};
    }
    double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (!(length > 0)) return {1, 0, 0, 0};
    if (q[0] < 0) length = -length;
    for (double& value : q)
        value = value / length + 0.0;
    return q;
}

/// How far a pose's rotation part is from the one of its quaternion: greatest difference of a value.
inline double RotationError(const kxbase::RegistrationInformation& pose) {
    const kxbase::RegistrationInformation again = PoseOf({0, 0, 0}, QuaternionOf(pose));
    double error = 0;
    for (size_t i = 0; i < 9; ++i)
        error = std::max(error, std::abs(pose.Values()[i] - again.Values()[i]));
    return error;
}

}  // namespace kxexchange
