// SPDX-License-Identifier: MIT
#include "kxexchange/Cell.h"

#include <cmath>

namespace kxexchange {

void ToCartesian(std::span<Cell> cells) {
    for (Cell& cell : cells) {
        if (!cell.valid && !cell.direction) continue;
        const double range = cell.valid ? cell.Range() : 1.0;
        const double azimuth = cell.Azimuth(), elevation = cell.Elevation();
        const double flat = range * std::cos(elevation);
        cell.x = flat * std::cos(azimuth);
        cell.y = flat * std::sin(azimuth);
        cell.z = range * std::sin(elevation);
    }
}

void ToSpherical(std::span<Cell> cells) {
    for (Cell& cell : cells) {
        if (!cell.valid && !cell.direction) continue;
        const double flat = std::hypot(cell.x, cell.y);
        const double range = cell.valid ? std::hypot(flat, cell.z) : 0.0;
        const double azimuth = flat > 0 ? std::atan2(cell.y, cell.x) : 0.0;
        const double elevation = flat > 0 || cell.z != 0 ? std::atan2(cell.z, flat) : 0.0;
        cell.SetSpherical(range, azimuth, elevation);
    }
}

}  // namespace kxexchange
