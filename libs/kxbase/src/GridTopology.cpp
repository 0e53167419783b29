// SPDX-License-Identifier: MIT
#include "kxbase/GridTopology.h"

#include <algorithm>
#include <cmath>

namespace kxbase {

PreviewSize ComputePreviewSize(uint32_t width, uint32_t height, double factor) {
    const double w = width;
    const double h = height;
    if (!(w * h * factor > 0)) return {};  // also NaN and negative factors
    constexpr double kPixelBudget = 1 << 20;
    const double budget = std::min(w * h, kPixelBudget * factor);
    double rows = std::floor(std::sqrt(budget / (w / h)));
    if (rows == 0) rows = h;
    double columns = std::floor(budget / rows);
    if (columns == 0) columns = w;
    const double step = std::round(std::max(1.0, w / columns));
    PreviewSize size;
    // A step above the side leaves one pixel; the comparison also keeps the cast in range.
    size.width = step >= w ? 1 : std::max(1u, width / static_cast<uint32_t>(step));
    size.height = step >= h ? 1 : std::max(1u, height / static_cast<uint32_t>(step));
    size.columnRatio = std::max(1.0f, static_cast<float>(w / size.width));
    size.rowRatio = std::max(1.0f, static_cast<float>(h / size.height));
    return size;
}

uint32_t PatchesAlong(uint32_t count, uint32_t size) {
    if (count == 0 || size == 0) return 0;
    return static_cast<uint32_t>(std::ceil(static_cast<double>(count) / static_cast<double>(size)));
}

namespace {

// Cells along one axis in patch `patch`: all of a short grid, a full patch, or what is left at the edge.
uint32_t CellsInPatch(uint32_t patch, uint32_t size, uint32_t total) {
    if (patch >= PatchesAlong(total, size)) return 0;
    if (total <= size) return total;
    return static_cast<uint32_t>(size - (((uint64_t{patch} + 1) * size) % total) % size);
}

}  // namespace

void GridTopology::UpdatePreview(double factor) {
    const PreviewSize size = ComputePreviewSize(columns, rows, factor);
    previewWidth = size.width;
    previewHeight = size.height;
    columnRatio = size.columnRatio;
    rowRatio = size.rowRatio;
}

void GridTopology::UpdateHalfSteps() {
    columnHalfStep = columnAngularStep * 0.5f;
    rowHalfStep = rowAngularStep * 0.5f;
}

uint32_t GridTopology::PatchesPerRow() const {
    return PatchesAlong(columns, patchWidth);
}
uint32_t GridTopology::PatchesPerColumn() const {
    return PatchesAlong(rows, patchHeight);
}
uint32_t GridTopology::PatchCount() const {
    return static_cast<uint32_t>(PatchCount64());
}
uint64_t GridTopology::PatchCount64() const {
    return uint64_t{PatchesPerRow()} * PatchesPerColumn();
}
uint32_t GridTopology::RowsInPatch(uint32_t patchRow) const {
    return CellsInPatch(patchRow, patchHeight, rows);
}
uint32_t GridTopology::ColumnsInPatch(uint32_t patchColumn) const {
    return CellsInPatch(patchColumn, patchWidth, columns);
}

}  // namespace kxbase
