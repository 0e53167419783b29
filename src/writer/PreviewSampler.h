// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

namespace kxio {

/// What patch-to-preview sampling needs to know. Sizes in values, or in patches for row and column.
struct PreviewSampling {
    uint64_t pixelLength = 0;  ///< bytes per value
    uint32_t previewWidth = 0;
    uint32_t previewHeight = 0;
    uint32_t patchWidth = 0;
    uint32_t patchHeight = 0;
    uint32_t gridWidth = 0;
    uint32_t gridHeight = 0;
    uint32_t patchRow = 0;
    uint32_t patchColumn = 0;
    /// The patch's values lie column after column. The preview then does too: it is previewHeight values
    /// wide. Only the extents and the patch's origin change places; the ratios between grid and preview
    /// stay with their axes, so square patches and equal ratios are wanted, or the preview keeps gaps.
    bool transposed = false;
};

/// Point sampling of one patch into the preview of the whole grid: each preview pixel takes the grid value
/// nearest the centre of its cell, and a patch writes only those pixels whose centre lies inside it.
///
/// For upright patches the patches of a grid write every pixel exactly once, so different patches may be
/// sampled at the same time. All arithmetic is in single precision. Nothing happens when a size is 0.
///
/// \param preview  at least previewWidth x previewHeight x pixelLength bytes, else nothing happens
/// \param patch    values of the patch; may be fewer than patchWidth x patchHeight
void SamplePatchIntoPreview(const PreviewSampling& sampling, std::span<unsigned char> preview,
                            std::span<const unsigned char> patch);

}  // namespace kxio
