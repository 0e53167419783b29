// SPDX-License-Identifier: MIT
#include "PanoramaSize.h"

#include <algorithm>
#include <cmath>

namespace qsn {

namespace {

// A grid of few cells is enlarged until its longer side has this many pixels.
constexpr double kComfortablePixels = 640;

bool IsStep(float step) {
    return std::isfinite(step) && step != 0;
}

uint32_t Side(double pixels, uint32_t limit) {
    return static_cast<uint32_t>(
        std::clamp(std::round(pixels), 1.0, static_cast<double>(std::max(limit, 1U))));
}

}  // namespace

PictureSize FitPanorama(const kxbase::GridTopology& grid, PictureSize box) {
    const bool angular = IsStep(grid.columnAngularStep) && IsStep(grid.rowAngularStep);
    const double columnStep = angular ? std::abs(static_cast<double>(grid.columnAngularStep)) : 1;
    const double rowStep = angular ? std::abs(static_cast<double>(grid.rowAngularStep)) : 1;
    const double wide = std::max(1U, grid.columns) * columnStep;
    const double high = std::max(1U, grid.rows) * rowStep;

    // All scales are pixels per unit of angle.
    const double boxScale = std::min(box.width / wide, box.height / high);
    const double cellScale = std::max(1 / columnStep, 1 / rowStep);
    const double comfortableScale = kComfortablePixels / std::max(wide, high);
    const double scale = std::min(boxScale, std::max(cellScale, comfortableScale));
    return {Side(wide * scale, box.width), Side(high * scale, box.height)};
}

uint32_t CellOfPixel(uint32_t pixel, uint32_t pixels, uint32_t cells) {
    // floor((pixel + 1/2) * cells / pixels), without rounding
    return static_cast<uint32_t>((2 * uint64_t{pixel} + 1) * cells / (2 * uint64_t{pixels}));
}

uint32_t FirstPixelOfCell(uint32_t cell, uint32_t pixels, uint32_t cells) {
    uint32_t low = 0;
    uint32_t high = pixels;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (CellOfPixel(middle, pixels, cells) < cell) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

uint32_t EndPixel(uint32_t patch, uint32_t patchCells, uint32_t pixels, uint32_t cells) {
    const uint64_t endCell = (uint64_t{patch} + 1) * patchCells;
    return endCell >= cells ? pixels : FirstPixelOfCell(static_cast<uint32_t>(endCell), pixels, cells);
}

}  // namespace qsn
