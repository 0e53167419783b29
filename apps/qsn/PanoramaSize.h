// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/GridTopology.h"

namespace qsn {

struct PictureSize {
    uint32_t width = 0;
    uint32_t height = 0;
    bool operator==(const PictureSize&) const = default;
};

/// The largest picture of the whole grid that fits into `box` and is as wide to high as the angles it
/// covers (as the cell counts when the steps are unknown). It stays as small as the finer of the grid's
/// two directions needs, unless that would be tiny. At least 1 x 1.
PictureSize FitPanorama(const kxbase::GridTopology& grid, PictureSize box);

/// The grid's cell shown by pixel `pixel` of `pixels`, where `cells` cells lie along: the one under the
/// pixel's centre.
uint32_t CellOfPixel(uint32_t pixel, uint32_t pixels, uint32_t cells);

/// One behind the last pixel of `pixels` whose cell lies in patch `patch` of `patchCells` cells, or before.
uint32_t EndPixel(uint32_t patch, uint32_t patchCells, uint32_t pixels, uint32_t cells);

/// The first pixel of `pixels` that shows cell `cell` or a later one; `pixels` when none does.
uint32_t FirstPixelOfCell(uint32_t cell, uint32_t pixels, uint32_t cells);

}  // namespace qsn
