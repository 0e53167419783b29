// SPDX-License-Identifier: MIT
#pragma once

#include "kxexchange/Export.h"

namespace kxexchange {

/// The scales at which a scan's range and angles are stored.
struct StoragePrecision {
    double rangeScale = 0.1;          ///< millimetres
    double verticalScale = 1e-6;      ///< radians
    double horizontalScale = 1e-6;    ///< radians
    double greatestHorizontal = 3.2;  ///< radians: no stored horizontal angle has a greater magnitude
};

/// How far, in metres, storing a point at `rangeMetres` from the instrument may move it.
///
/// The distance between the point and what is read back, from all causes: half a step of the range, half
/// steps of both angles times the range, and the rounding of single-precision numbers on the way.
/// A range above 0 but below half a step is stored as one step, so that the cell stays a return: the bound
/// is one whole step there.
///
/// \param decimals  when >= 0: also the rounding of the coordinates to so many decimals in a text.
KXEXCHANGE_EXPORT double PositionBound(double rangeMetres, const StoragePrecision& precision,
                                       int decimals = -1);

}  // namespace kxexchange
