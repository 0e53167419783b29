// SPDX-License-Identifier: MIT
// Bounding boxes per patch and of the scan, filled once from the limits record.
#include <algorithm>
#include <cmath>
#include <mutex>

#include "kxbase/Sizes.h"
#include "kxbase/UTF8.h"
#include "kxio/MinMaxHeader.h"
#include "kxio/QSNScanReader.h"
#include "reader/Locks.h"
#include "reader/PositionedInput.h"
#include "reader/RecordAt.h"

namespace kxio {

using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;

namespace {

constexpr float kPi = 3.1415927f;

[[noreturn]] void ThrowNoLimits(kxbase::ErrorContext context) {
    throw kxbase::KXIncompleteFileException("No bounding information found", std::move(context));
}

// Angles of the grid, in double precision on the way.
double ColumnAngle(const kxbase::GridTopology& grid, double column) {
    return static_cast<double>(grid.columnStartAngle) - column * static_cast<double>(grid.columnAngularStep);
}
double RowAngle(const kxbase::GridTopology& grid, double row) {
    return static_cast<double>(grid.rowStartAngle) + row * static_cast<double>(grid.rowAngularStep);
}

// The start corner of a box that begins with this column and row: half a step before both.
PolarPoint StartCorner(const kxbase::GridTopology& grid, float range, double column, double row) {
    return {range, static_cast<float>(ColumnAngle(grid, column - 0.5)),
            std::max(0.0f, static_cast<float>(RowAngle(grid, row - 0.5)))};
}

// The end corner of a box that ends with this column and row: half a step behind both.
PolarPoint EndCorner(const kxbase::GridTopology& grid, float range, double column, double row) {
    return {range, static_cast<float>(ColumnAngle(grid, column + 0.5)),
            std::min(kPi, static_cast<float>(RowAngle(grid, row + 0.5)))};
}

// The maximum range, drawn out so that the flat far face of the box encloses the patch's spherical cap.
float FarRange(const kxbase::GridTopology& grid, uint32_t patchRow, uint32_t patchColumn, float range) {
    const double horizontal = (static_cast<double>(grid.ColumnsInPatch(patchColumn)) + 1) *
                              static_cast<double>(grid.columnAngularStep);
    const double vertical =
        (static_cast<double>(grid.RowsInPatch(patchRow)) + 1) * static_cast<double>(grid.rowAngularStep);
    return static_cast<float>(static_cast<double>(range) / std::cos(std::max(horizontal / 2, vertical / 2)));
}

void AppendCorners(const PolarPoint& min, const PolarPoint& max, float farRange, std::vector<XYZPoint>& out) {
    for (const float range : {farRange, min.range}) {
        for (const float vertical : {max.vertical, min.vertical}) {
            for (const float horizontal : {max.horizontal, min.horizontal}) {
                out.emplace_back(PolarPoint(range, horizontal, vertical));
            }
        }
    }
}

}  // namespace

void QSNScanReader::InitBoundingBoxes() const {
    const std::lock_guard lock(BoundingBoxLock());
    if (m_patchBoxMinima.size() != GetPatchNumber() || m_patchBoxMaxima.size() != m_patchBoxMinima.size()) {
        FillupBoundingBox();
    }
}

void QSNScanReader::FillupBoundingBox() const {
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    std::vector<MinMaxPair> pairs;
    MinMaxHeader limits(&pairs);
    limits.LimitPayload(m_limits.recordBytes, "recordBytes");
    kxbase::ErrorContext context = FileContext();
    context.record = limits.GetRecordName();
    const uint64_t position = m_mainHeader.boundingInformationPosition;
    if (position == 0) {
        context.detail = "the file has no limits record";
        ThrowNoLimits(context);
    }
    if (m_stream == nullptr) ThrowNoLimits(context);
    try {
        RequireIntactRecord(position);
    } catch (const kxbase::KXException& e) {
        ThrowNoLimits(e.Context());
    }
    uint64_t fileSize = 0;
    try {
        InputWindow input = RecordInput(0);
        fileSize = input.GetSize();
        if (!ReadRecordAt(&input, position, limits)) ThrowNoLimits(ProblemOf(limits, position));
    } catch (kxbase::KXException& e) {  // a refused version too
        e.AddContext(FileContext());
        throw;
    }
    // Every patch of a real scan costs more than a byte of its file: a grid that claims more is damaged, and
    // no memory is taken on its word.
    if (grid.PatchCount64() > std::max<uint64_t>(fileSize, pairs.size()) ||
        grid.PatchCount64() > UINT32_MAX) {
        context.detail = "the grid claims " + std::to_string(grid.PatchCount64()) +
                         " patches, the file has " + std::to_string(fileSize) + " bytes";
        ThrowNoLimits(context);
    }
    m_scanBoxMinimum = StartCorner(grid, limits.minimum, 0, 0);
    m_scanBoxMaximum = EndCorner(grid, limits.maximum, static_cast<double>(grid.columns) - 1,
                                 static_cast<double>(grid.rows) - 1);
    const auto count = static_cast<uint32_t>(grid.PatchCount64());
    const uint32_t perRow = grid.PatchesPerRow();
    std::vector<PolarPoint> minima(count);
    std::vector<PolarPoint> maxima(count);
    for (uint32_t i = 0; i < std::min<uint64_t>(count, pairs.size()); ++i) {
        const uint32_t patchRow = i / perRow;
        const uint32_t patchColumn = i % perRow;
        const double firstRow = static_cast<double>(patchRow) * grid.patchHeight;
        const double firstColumn = static_cast<double>(patchColumn) * grid.patchWidth;
        const double lastRow = std::min(grid.rows - 1.0, firstRow + grid.RowsInPatch(patchRow) - 1.0);
        const double lastColumn =
            std::min(grid.columns - 1.0, firstColumn + grid.ColumnsInPatch(patchColumn) - 1.0);
        minima[i] = StartCorner(grid, pairs[i].minimum, firstColumn, firstRow);
        maxima[i] = EndCorner(grid, pairs[i].maximum, lastColumn, lastRow);
    }
    m_patchBoxMinima = std::move(minima);
    m_patchBoxMaxima = std::move(maxima);
}

void QSNScanReader::GetBoundingBox(unsigned patchRow, unsigned patchColumn, PolarPoint& min,
                                   PolarPoint& max) const {
    const uint64_t index = LinearIndex(patchRow, patchColumn);
    // An index above 32 bits must not wrap into the grid.
    GetBoundingBox(kxbase::QSNIndex(index > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(index)), min,
                   max);
}

void QSNScanReader::GetBoundingBox(kxbase::QSNIndex index, PolarPoint& min, PolarPoint& max) const {
    InitBoundingBoxes();
    if (index.patchIndex >= m_patchBoxMinima.size()) {
        kxbase::ErrorContext context = FileContext();
        context.record = "patch " + std::to_string(index.patchIndex);
        context.detail = "the grid has " + std::to_string(m_patchBoxMinima.size()) + " patches";
        throw kxbase::KXIndexOutOfBoundsException("Call to GetBoundingBox with invalid parameters", context);
    }
    min = m_patchBoxMinima[index.patchIndex];
    max = m_patchBoxMaxima[index.patchIndex];
}

void QSNScanReader::GetScanBoundingBox(PolarPoint& min, PolarPoint& max) const {
    InitBoundingBoxes();
    min = m_scanBoxMinimum;
    max = m_scanBoxMaximum;
}

std::vector<XYZPoint> QSNScanReader::GetPatchVertices(kxbase::QSNIndex index) const {
    InitBoundingBoxes();
    if (index.patchIndex >= m_patchBoxMaxima.size()) {
        kxbase::ErrorContext context = FileContext();
        context.record = "patch " + std::to_string(index.patchIndex);
        context.detail = "the grid has " + std::to_string(m_patchBoxMaxima.size()) + " patches";
        throw kxbase::KXIndexOutOfBoundsException("Patch out of range", context);
    }
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    const uint32_t perRow = grid.PatchesPerRow();
    const PolarPoint& min = m_patchBoxMinima[index.patchIndex];
    const PolarPoint& max = m_patchBoxMaxima[index.patchIndex];
    std::vector<XYZPoint> corners;
    corners.reserve(8);
    AppendCorners(min, max, FarRange(grid, index.patchIndex / perRow, index.patchIndex % perRow, max.range),
                  corners);
    return corners;
}

std::vector<XYZPoint> QSNScanReader::GetPatchVertices(unsigned patchRow, unsigned patchColumn) const {
    const uint64_t index = LinearIndex(patchRow, patchColumn);
    return GetPatchVertices(kxbase::QSNIndex(index > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(index)));
}

std::vector<XYZPoint> QSNScanReader::GetPatchVertices() const {
    InitBoundingBoxes();
    std::vector<XYZPoint> corners;
    corners.reserve(kxbase::SizeProduct(8, m_patchBoxMaxima.size()));
    for (uint32_t i = 0; i < m_patchBoxMaxima.size(); ++i) {
        const std::vector<XYZPoint> patch = GetPatchVertices(kxbase::QSNIndex(i));
        corners.insert(corners.end(), patch.begin(), patch.end());
    }
    return corners;
}

kxbase::tBoundingBox<float> QSNScanReader::GetScanEstimatedBoundingBox() const {
    InitBoundingBoxes();
    kxbase::tBoundingBox<float> box;
    if (m_patchBoxMaxima.empty()) return box;
    box.min = XYZPoint(m_patchBoxMaxima.front());
    box.max = box.min;
    for (uint32_t i = 0; i < m_patchBoxMaxima.size(); ++i) {
        if (m_patchBoxMinima[i].range == 0) continue;  // a patch without data
        for (const XYZPoint& corner : GetPatchVertices(kxbase::QSNIndex(i))) {
            box.min = XYZPoint(std::min(box.min.x, corner.x), std::min(box.min.y, corner.y),
                               std::min(box.min.z, corner.z));
            box.max = XYZPoint(std::max(box.max.x, corner.x), std::max(box.max.y, corner.y),
                               std::max(box.max.z, corner.z));
        }
    }
    return box;
}

}  // namespace kxio
