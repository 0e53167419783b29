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

}  // namespace kxbase
