// SPDX-License-Identifier: MIT
#include "AngleSettling.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "kxcodecs/Quantise.h"
#include "kxcodecs/SettleValues.h"

namespace kxexchange {

namespace {

constexpr double kMostReach = 1 << 29;

/// Settles one of the angles. \param reach  per cell, radians
uint64_t Settle(std::span<float> angles, uint32_t width, uint32_t height, double scale,
                const std::vector<double>& reach) {
    const auto quality = static_cast<float>(1.0 / scale);
    if (quality == 1.0F) return 0;  // stored as floats
    std::vector<unsigned char> bytes(angles.size_bytes()), stored(angles.size_bytes());
    std::memcpy(bytes.data(), angles.data(), bytes.size());
    kxcodecs::Quantise(bytes, sizeof(float), quality, stored);
    std::vector<int32_t> before(angles.size());
    std::memcpy(before.data(), stored.data(), stored.size());
    std::vector<uint32_t> steps(angles.size());
    for (size_t i = 0; i < steps.size(); ++i)
        steps[i] = static_cast<uint32_t>(std::clamp(reach[i] / scale, 0.0, kMostReach));
    std::vector<int32_t> after = before;
    kxcodecs::SettleValues(after, width, height, steps);
    uint64_t moved = 0;
    for (size_t i = 0; i < angles.size(); ++i) {
        if (after[i] == before[i]) continue;
        const auto angle = static_cast<float>(static_cast<double>(after[i]) / static_cast<double>(quality));
        // Where single precision is too coarse to say which step is meant, the angle stays.
        if (std::round(static_cast<double>(angle) * static_cast<double>(quality)) != after[i]) continue;
        angles[i] = angle;
        ++moved;
    }
    return moved;
}

}  // namespace

uint64_t SettleAngles(std::span<const float> range, std::span<float> vertical, std::span<float> horizontal,
                      uint32_t width, uint32_t height, const StoragePrecision& precision,
                      double millimetres) {
    // The two directions are at right angles, so each has this share.
    const double share = millimetres / std::sqrt(2.0);
    std::vector<double> ofVertical(range.size()), ofHorizontal(range.size());
    for (size_t i = 0; i < range.size(); ++i) {
        const double stored = static_cast<double>(range[i]) + precision.rangeScale;  // after rounding at most
        if (!(range[i] > 0) || !std::isfinite(range[i])) continue;
        ofVertical[i] = share / stored;
        // The circle of latitude is longest where the vertical angle may go to.
        const double sine = std::abs(std::sin(static_cast<double>(vertical[i])));
        ofHorizontal[i] = share / (stored * std::min(1.0, sine + ofVertical[i] + precision.verticalScale));
    }
    return Settle(vertical, width, height, precision.verticalScale, ofVertical) +
           Settle(horizontal, width, height, precision.horizontalScale, ofHorizontal);
}

}  // namespace kxexchange
