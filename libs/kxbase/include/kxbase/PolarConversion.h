// SPDX-License-Identifier: MIT
#pragma once

#include <span>

#include "kxbase/Export.h"

namespace kxbase {

/// Turns polar points into Cartesian ones, many at a time: point i is x, y, z at `xyz[3 * i]` on, in the unit
/// of its range, by the formula of `tBasePolarPoint`.
///
/// Computed in double precision in vectors as wide as the machine has. Before it is narrowed, each coordinate
/// is nearer than 1e-11 x range to the exact value for the given single-precision numbers (1 nm at 100 m), so
/// that single-precision results are the nearest number to the exact value or, once in about ten thousand,
/// its neighbour: the error is below 0.501 units in the last place of the range. The results are the same
/// bits on every kind of processor and for any number of points, wherever they are in the spans; only angles
/// beyond 1000 rad and those that are no number are left to the standard library.
///
/// \param range, horizontal, vertical  equally many; angles in radians
/// \param xyz  three times as many
/// \throws KXBadInputException "Points cannot be converted": the sizes do not agree; nothing is written
KXBASE_EXPORT void PolarToCartesian(std::span<const float> range, std::span<const float> horizontal,
                                    std::span<const float> vertical, std::span<float> xyz);
/// The same without narrowing.
KXBASE_EXPORT void PolarToCartesian(std::span<const float> range, std::span<const float> horizontal,
                                    std::span<const float> vertical, std::span<double> xyz);

/// The way back, many points at a time: range, vertical angle (from +z, 0 to pi) and horizontal angle (from
/// +x towards +y, -pi to pi) of Cartesian points, the range in the unit of the coordinates.
///
/// Ranges are those that sqrt(x x + y y + z z) gives, rounded after every step; angles are nearer than 1e-15
/// x (1 + angle) to what std::atan2 gives, signs of zeros included. A point on the z axis has the horizontal
/// angle that std::atan2 gives it, the origin the vertical angle 0. The results are the same bits on every
/// kind of processor and wherever the points are in the spans; only points with a coordinate above 1e150, or
/// nearer to the axis than 1e-150 and not on it, and those that are no number, are left to the standard
/// library.
///
/// \param x, y, z, range, vertical, horizontal  equally many
/// \throws KXBadInputException "Points cannot be converted": the sizes do not agree; nothing is written
KXBASE_EXPORT void CartesianToPolar(std::span<const double> x, std::span<const double> y,
                                    std::span<const double> z, std::span<double> range,
                                    std::span<double> vertical, std::span<double> horizontal);

}  // namespace kxbase
