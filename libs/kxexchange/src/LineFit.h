// SPDX-License-Identifier: MIT
#pragma once

#include <span>

namespace kxexchange {

/// A weighted value at a place of a sequence; weight 0 where nothing is known.
struct Sample {
    double position = 0;
    double value = 0;
    double weight = 0;
};

/// value = intercept + slope x position.
struct Line {
    double intercept = 0;
    double slope = 0;
    bool determined = false;  ///< two places at least have weight
    double At(double position) const { return intercept + slope * position; }
};

/// Weighted least squares; samples far off the line lose weight over a few rounds.
Line FitLine(std::span<const Sample> samples);

/// Root of the weighted mean square distance from the line.
double LineResidual(std::span<const Sample> samples, const Line& line);

/// Adds multiples of a turn so that angles of neighbouring samples lie as close as the typical step
/// between neighbours says. O(samples) memory.
void UnwrapAngles(std::span<Sample> samples);

/// An angle brought into [-pi, pi].
double WrapAngle(double angle);

}  // namespace kxexchange
