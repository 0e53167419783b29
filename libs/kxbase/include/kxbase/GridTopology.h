// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/Export.h"

namespace kxbase {

/// Result of the preview-sizing rule.
struct PreviewSize {
    uint32_t width = 0;     ///< columns of the preview
    uint32_t height = 0;    ///< rows of the preview
    float columnRatio = 0;  ///< columns of the grid per column of the preview
    float rowRatio = 0;     ///< rows of the grid per row of the preview
};

/// Preview-sizing rule: how large the preview of a grid of `width` x `height` cells is. The budget is
/// min(width x height, 2^20 x factor) pixels; the grid is reduced by one whole step in both directions.
/// All zeros when width x height x factor is not above 0.
KXBASE_EXPORT PreviewSize ComputePreviewSize(uint32_t width, uint32_t height, double factor);

/// ceil(count / size), computed in double precision; 0 when either is 0.
KXBASE_EXPORT uint32_t PatchesAlong(uint32_t count, uint32_t size);

/// The angular grid of a scan and its cut into patches. Angles in radians.
///
/// Column c lies at horizontal angle columnStartAngle - c x columnAngularStep, row r at vertical angle
/// (from the zenith) rowStartAngle + r x rowAngularStep. Patch (R, C) begins at row R x patchHeight and
/// column C x patchWidth; its linear index is PatchesPerRow() x R + C.
struct KXBASE_EXPORT GridTopology {
    float columnStartAngle = 0;   ///< horizontal angle of column 0
    float rowStartAngle = 0;      ///< vertical angle of row 0
    float columnAngularStep = 0;  ///< angle between neighbouring columns, positive
    float rowAngularStep = 0;     ///< angle between neighbouring rows, positive
    uint32_t columns = 0;         ///< cells along the sweep
    uint32_t rows = 0;            ///< cells from top to bottom; 0 when not known yet
    uint32_t patchWidth = 0;      ///< columns per patch
    uint32_t patchHeight = 0;     ///< rows per patch
    uint32_t previewWidth = 0;    ///< columns of a preview
    uint32_t previewHeight = 0;   ///< rows of a preview
    float columnRatio = 0;        ///< columns per preview column
    float rowRatio = 0;           ///< rows per preview row
    float columnHalfStep = 0;     ///< half of the column step: how far the first column's edge lies out
    float rowHalfStep = 0;        ///< half of the row step: how far the first row's edge lies out

    /// Sets the four preview fields by the preview-sizing rule.
    void UpdatePreview(double factor);
    /// Sets both half-steps from the steps.
    void UpdateHalfSteps();

    uint32_t PatchesPerRow() const;     ///< patches side by side
    uint32_t PatchesPerColumn() const;  ///< patches one above the other
    /// Number of patches, truncated to 32 bits; never use it to size memory unchecked.
    uint32_t PatchCount() const;
    /// Number of patches, exact.
    uint64_t PatchCount64() const;
    /// Grid rows in a row of patches: patchHeight, less at the bottom edge; 0 outside.
    uint32_t RowsInPatch(uint32_t patchRow) const;
    /// Grid columns in a column of patches: patchWidth, less at the right edge; 0 outside.
    uint32_t ColumnsInPatch(uint32_t patchColumn) const;

    bool operator==(const GridTopology&) const = default;
};

}  // namespace kxbase
