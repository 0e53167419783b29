// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <mutex>
#include <vector>

#include "Panorama.h"
#include "Parallel.h"
#include "kxbase/Exceptions.h"

namespace qsn {

/// One patch and the pixels whose cells lie in it.
struct PatchPixels {
    uint32_t patchRow = 0;
    uint32_t patchColumn = 0;
    uint32_t firstX = 0, endX = 0;
    uint32_t firstY = 0, endY = 0;
};

/// The patches that a picture of this size shows; never more than it has pixels.
std::vector<PatchPixels> PatchesOfPicture(const kxbase::GridTopology& grid, PictureSize size);

/// Takes one cell of `component` per pixel; cells of absent and damaged patches become T().
template <class T>
std::vector<T> SampleLayer(const kxio::ScanAccess& access, kxbase::ComponentType component, PictureSize size,
                           const PanoramaRequest& request, PanoramaGaps& gaps) {
    const kxbase::GridTopology& grid = access.Grid();
    const std::vector<PatchPixels> patches = PatchesOfPicture(grid, size);
    std::vector<T> pixels(size_t{size.width} * size.height);
    std::mutex mutex;
    uint64_t done = 0;

    ForEachParallel(patches.size(), request.threads, [&](uint64_t i) {
        const PatchPixels& patch = patches[i];
        try {
            const kxio::PatchRect rect = access.GetPatchRect(patch.patchRow, patch.patchColumn);
            const std::vector<T> cells = access.ReadPatch<T>(component, patch.patchRow, patch.patchColumn);
            for (uint32_t y = patch.firstY; y < patch.endY; ++y) {
                const uint64_t row = CellOfPixel(y, size.height, grid.rows) - rect.firstRow;
                for (uint32_t x = patch.firstX; x < patch.endX; ++x) {
                    const uint64_t column = CellOfPixel(x, size.width, grid.columns) - rect.firstColumn;
                    pixels[size_t{y} * size.width + x] = cells[row * rect.columns + column];
                }
            }
        } catch (const kxbase::KXUnreadablePatchException& problem) {
            // One bad patch must not hide the others.
            const std::lock_guard lock(mutex);
            if (gaps.damagedPatches++ == 0) gaps.firstProblem = problem.Describe();
        }
        if (!request.onPatch) return;
        const std::lock_guard lock(mutex);
        request.onPatch(++done, patches.size());
    });
    return pixels;
}

}  // namespace qsn
