// SPDX-License-Identifier: MIT
#include "E57Pose.h"

#include <algorithm>
#include <cmath>

namespace kxexchange {

std::optional<kxbase::RegistrationInformation> RegistrationOf(const E57Quaternion& rotation,
                                                              const std::array<double, 3>& translation) {
    auto [w, x, y, z] = rotation;
    const double square = w * w + x * x + y * y + z * z;
    if (!(square > 1e-12 && square < 1e12)) return std::nullopt;
    // Lengths of 1 but for rounding are left alone, so that simple quaternions give simple axes.
    constexpr double kRounding = 1e-14;
    if (std::abs(square - 1) > kRounding) {
        const double length = std::sqrt(square);
        w /= length;
        x /= length;
        y /= length;
        z /= length;
    }
    const std::array<double, 12> values{
        1 - 2 * (y * y + z * z), 2 * (x * y + w * z), 2 * (x * z - w * y), 2 * (x * y - w * z),
        1 - 2 * (x * x + z * z), 2 * (y * z + w * x), 2 * (x * z + w * y), 2 * (y * z - w * x),
        1 - 2 * (x * x + y * y), translation[0],      translation[1],      translation[2]};
    return kxbase::RegistrationInformation::FromValues(values.data());
}

E57Quaternion QuaternionOf(const kxbase::RegistrationInformation& registration) {
    // Shepperd's method: the greatest of the four is taken from the diagonal, the others from it.
    const double* const m = registration.Values();  // m[3 * axis + coordinate]
    const auto at = [m](int row, int column) { return m[3 * column + row]; };
    const double trace = at(0, 0) + at(1, 1) + at(2, 2);
    E57Quaternion q{};
    const std::array<double, 4> candidates{trace, at(0, 0), at(1, 1), at(2, 2)};
    const auto greatest = std::max_element(candidates.begin(), candidates.end()) - candidates.begin();
    if (greatest == 0) {
        q = {1 + trace, at(2, 1) - at(1, 2), at(0, 2) - at(2, 0), at(1, 0) - at(0, 1)};
    } else {
        const int i = static_cast<int>(greatest) - 1, j = (i + 1) % 3, k = (i + 2) % 3;
        q[0] = at(k, j) - at(j, k);
        q[static_cast<size_t>(i) + 1] = 1 + at(i, i) - at(j, j) - at(k, k);
        q[static_cast<size_t>(j) + 1] = at(j, i) + at(i, j);
        q[static_cast<size_t>(k) + 1] = at(k, i) + at(i, k);
    }
    const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (!(length > 0 && std::isfinite(length))) return {1, 0, 0, 0};
    const double divisor = q[0] < 0 ? -length : length;
    for (double& value : q)
        value /= divisor;
    return q;
}

double RotationError(const kxbase::RegistrationInformation& a, const kxbase::RegistrationInformation& b) {
    double greatest = 0;
    for (int i = 0; i < 9; ++i)
        greatest = std::max(greatest, std::abs(a.Values()[i] - b.Values()[i]));
    return greatest;
}

}  // namespace kxexchange
