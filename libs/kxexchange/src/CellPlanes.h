// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kxexchange/ScanDescription.h"

namespace kxexchange {

/// One number per cell of a grid.
enum class PlaneKind : uint8_t {
    Range,      ///< metres; NaN without a return
    Azimuth,    ///< radians, from +x towards +y; NaN where no direction is known
    Elevation,  ///< radians above the xy plane; likewise
    X,          ///< metres; NaN without a return
    Y,
    Z,
    Intensity,  ///< as the source says it; NaN without a return or where invalid
    Red,        ///< 0 to 255, or to 65535
    Green,
    Blue,
    Classification,
    Valid,  ///< 1 where something came back
};

std::string_view NameOf(PlaneKind plane);

/// The planes that a scan has beyond x, y and z, which range and angles say.
std::vector<PlaneKind> PlanesOf(const ScanDescription& description);

/// The plane of a name. \throws kxbase::KXBadInputException  there is no such plane, or the scan has no
/// values for it
PlaneKind FindPlane(std::string_view name, const ScanDescription& description);

/// \throws kxbase::KXBadInputException  the scan has no grid, so that it has no planes
void RequireGrid(const ScanDescription& description, const char* format);

/// The value of a Cartesian cell in a plane.
double PlaneValue(const Cell& cell, PlaneKind plane);

}  // namespace kxexchange
