// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "kxexchange/Export.h"

namespace kxexchange {

/// What the three coordinates of a scan's cells are. One kind for a whole scan.
enum class CoordinateKind : uint8_t {
    Cartesian,  ///< x, y, z in metres
    Spherical,  ///< range in metres, azimuth, elevation in radians
};

/// One cell of a scan's grid, or one point of a scan without a grid, in the instrument's frame.
///
/// 40 bytes, since blocks of millions of them are in memory. What a file may say about a point beyond this
/// (time stamps, return numbers, normals) is not carried; readers name it in ScanDescription::unheld.
struct Cell {
    /// Cartesian: x. Spherical: range, metres. See Coordinate accessors below.
    double x = 0;
    double y = 0;          ///< Cartesian: y. Spherical: azimuth, radians, from +x towards +y
    double z = 0;          ///< Cartesian: z. Spherical: elevation, radians, -pi/2 to pi/2 from the xy plane
    double intensity = 0;  ///< as the file says it, raw; see ScanDescription::intensity
    uint16_t red = 0;      ///< 0 to 255, or to 65535 when ScanDescription::colorBits is 16
    uint16_t green = 0;
    uint16_t blue = 0;
    uint8_t classification = 0;  ///< class number, where ScanDescription::classification is present
    bool valid : 1 = false;      ///< something came back
    /// Without a return: the coordinates are a direction all the same (Cartesian: of any length above 0;
    /// Spherical: range 0 and two angles). Otherwise the coordinates of such a cell are 0.
    bool direction : 1 = false;
    bool intensityInvalid : 1 = false;  ///< the file says that this return's intensity means nothing
    bool colorInvalid : 1 = false;      ///< the same of its colour

    /// The same three numbers under the names that a spherical scan has for them.
    double Range() const { return x; }
    double Azimuth() const { return y; }
    double Elevation() const { return z; }
    void SetSpherical(double range, double azimuth, double elevation) {
        x = range;
        y = azimuth;
        z = elevation;
    }
};
static_assert(sizeof(Cell) == 40);

/// Turns spherical cells into Cartesian ones, in place; directions of cells without a return get length 1.
KXEXCHANGE_EXPORT void ToCartesian(std::span<Cell> cells);
/// Turns Cartesian cells into spherical ones, in place. The origin becomes range 0 and angles 0; azimuths
/// lie in -pi to pi.
KXEXCHANGE_EXPORT void ToSpherical(std::span<Cell> cells);

}  // namespace kxexchange
