// SPDX-License-Identifier: MIT
#include "PatchAssembler.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kxbase/PolarConversion.h"

namespace kxexchange {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;
constexpr double kMillimetresPerMetre = 1000;

uint64_t Overlap(uint64_t firstA, uint64_t endA, uint64_t firstB, uint64_t endB) {
    const uint64_t first = std::max(firstA, firstB), end = std::min(endA, endB);
    return first < end ? end - first : 0;
}

}  // namespace

PatchAssembler::PatchAssembler(const kxbase::GridTopology& topology, const GridLayout& layout,
                               const StorageRules& rules)
    : m_topology(topology), m_layout(layout), m_rules(rules) {
    const size_t area = size_t{topology.patchWidth} * topology.patchHeight;
    m_rowOffsets.resize(topology.rows);
    m_rowAngles.resize(topology.rows);
    for (uint32_t row = 0; row < topology.rows; ++row) {
        m_rowOffsets[row] =
            row / topology.patchHeight * area + size_t{row % topology.patchHeight} * topology.patchWidth;
        m_rowAngles[row] =
            static_cast<double>(topology.rowStartAngle) + row * static_cast<double>(topology.rowAngularStep);
    }
}

double PatchAssembler::HorizontalAt(uint64_t gridColumn) const {
    return static_cast<double>(m_topology.columnStartAngle) -
           static_cast<double>(gridColumn) * static_cast<double>(m_topology.columnAngularStep);
}

// A column of patches begins as one in which nothing came back: range 0 and the grid's own angles.
PatchColumn& PatchAssembler::Open(uint32_t patchColumn) {
    std::unique_ptr<PatchColumn>& place = m_open[patchColumn];
    if (place) return *place;
    {
        const std::lock_guard lock(m_spareMutex);
        if (!m_spare.empty()) {
            place = std::move(m_spare.back());
            m_spare.pop_back();
        }
    }
    if (!place) place = std::make_unique<PatchColumn>();
    PatchColumn& column = *place;
    column.column = patchColumn;
    const uint64_t first = uint64_t{patchColumn} * m_topology.patchWidth;
    const uint64_t end = first + m_topology.patchWidth;
    column.missing = Overlap(first, end, 0, m_layout.columns);
    if (m_layout.Folded()) {
        column.missing += Overlap(first, end, m_layout.farColumn, m_layout.farColumn + m_layout.columns);
    }
    const size_t count =
        size_t{m_topology.PatchesPerColumn()} * m_topology.patchWidth * m_topology.patchHeight;
    column.range.assign(count, 0.0F);
    column.vertical.assign(count, 0.0F);
    column.horizontal.assign(count, 0.0F);
    if (m_rules.intensity.kind != IntensityMapping::Kind::None) {
        column.luminance16.assign(count, 0);
        column.luminance8.assign(count, 0);
    }
    if (m_rules.color) column.color.assign(3 * count, 0);
    if (m_rules.classes) column.classes.assign(count, 0);
    const uint32_t width = m_topology.ColumnsInPatch(patchColumn);
    std::vector<float> horizontal(width);
    for (uint32_t i = 0; i < width; ++i)
        horizontal[i] = static_cast<float>(HorizontalAt(first + i));
    for (uint32_t row = 0; row < m_topology.rows; ++row) {
        // A grid may begin a little in front of the zenith; a vertical angle may not.
        const auto vertical = static_cast<float>(std::clamp(m_rowAngles[row], 0.0, std::numbers::pi));
        const auto at = static_cast<std::ptrdiff_t>(m_rowOffsets[row]);
        std::fill_n(column.vertical.begin() + at, width, vertical);
        std::copy(horizontal.begin(), horizontal.end(), column.horizontal.begin() + at);
    }
    return column;
}

// Ranges, and angles with the horizontal one in the turn of the grid's.
void PatchAssembler::FindPlaces(Batch& batch, double gridHorizontal) const {
    if (m_rules.coordinateKind == CoordinateKind::Spherical) {
        for (size_t i = 0; i < batch.count; ++i) {
            const Cell& cell = *batch.cells[i];
            batch.range[i] = cell.Range();
            batch.vertical[i] = std::clamp(std::numbers::pi / 2 - cell.Elevation(), 0.0, std::numbers::pi);
            batch.horizontal[i] = cell.Azimuth();
        }
    } else {
        for (size_t i = 0; i < batch.count; ++i) {
            batch.x[i] = batch.cells[i]->x;
            batch.y[i] = batch.cells[i]->y;
            batch.z[i] = batch.cells[i]->z;
        }
        const auto all = [&](auto& values) { return std::span(values).first(batch.count); };
        kxbase::CartesianToPolar(all(batch.x), all(batch.y), all(batch.z), all(batch.range),
                                 all(batch.vertical), all(batch.horizontal));
        // On the axis every horizontal angle is as good.
        for (size_t i = 0; i < batch.count; ++i) {
            if (batch.x[i] == 0 && batch.y[i] == 0) batch.horizontal[i] = gridHorizontal;
        }
    }
    for (size_t i = 0; i < batch.count; ++i) {
        batch.range[i] *= kMillimetresPerMetre;
        const double missing = gridHorizontal - batch.horizontal[i];
        if (!(std::abs(missing) < kTurn / 2)) batch.horizontal[i] += kTurn * std::round(missing / kTurn);
    }
}

void PatchAssembler::SetValues(PatchColumn& column, size_t at, const Cell& cell) const {
    if (m_rules.intensity.kind != IntensityMapping::Kind::None && !cell.intensityInvalid) {
        const uint16_t stored = m_rules.intensity.Store(cell.intensity);
        column.luminance16[at] = stored;
        column.luminance8[at] = IntensityMapping::To8Bit(stored);
    }
    if (m_rules.color) {
        const auto channel = [this](uint16_t value) {
            return static_cast<uint8_t>(m_rules.colorBits == 16 ? (value + 128u) / 257u : value);
        };
        column.color[3 * at] = channel(cell.red);
        column.color[3 * at + 1] = channel(cell.green);
        column.color[3 * at + 2] = channel(cell.blue);
    }
    if (m_rules.classes) column.classes[at] = cell.classification;
}

// Stores the cells of a batch, and empties it.
void PatchAssembler::Place(Batch& batch, PatchColumn& column, size_t inPatch, double gridHorizontal) {
    FindPlaces(batch, gridHorizontal);
    const double leastRange = 0.5 * m_rules.rangeScale * (1 + 1e-6);
    for (size_t i = 0; i < batch.count; ++i) {
        const Cell& cell = *batch.cells[i];
        const size_t at = m_rowOffsets[batch.rows[i]] + inPatch;
        const double vertical = batch.vertical[i], horizontal = batch.horizontal[i];
        column.vertical[at] = static_cast<float>(vertical);
        column.horizontal[at] = static_cast<float>(horizontal);
        m_greatestHorizontal = std::max(m_greatestHorizontal, std::abs(horizontal));
        if (!cell.valid) {
            ++m_directions;
            continue;
        }
        if (batch.range[i] < leastRange) {
            column.range[at] = static_cast<float>(m_rules.rangeScale);
            ++m_returnsAtOrigin;
        } else {
            column.range[at] = static_cast<float>(batch.range[i]);
        }
        m_maxVerticalResidual =
            std::max(m_maxVerticalResidual, std::abs(vertical - m_rowAngles[batch.rows[i]]));
        // Along the circle of latitude, which is shorter.
        const double residual = std::abs(horizontal - gridHorizontal);
        if (residual > m_maxHorizontalResidual)
            m_maxHorizontalResidual = std::max(m_maxHorizontalResidual, residual * std::sin(vertical));
        SetValues(column, at, cell);
    }
    batch.count = 0;
}

void PatchAssembler::Fill(std::span<const Cell> cells, uint64_t gridColumn, bool far) {
    const auto patchColumn = static_cast<uint32_t>(gridColumn / m_topology.patchWidth);
    PatchColumn& column = Open(patchColumn);
    const auto inPatch = static_cast<size_t>(gridColumn % m_topology.patchWidth);
    const double gridHorizontal = HorizontalAt(gridColumn);
    Batch batch;
    for (const RowSegment& segment : m_layout.segments) {
        if (segment.far != far) continue;
        auto gridRow = static_cast<size_t>(segment.gridRow);
        const size_t step = segment.descending ? ~size_t{0} : size_t{1};
        const Cell* cell = cells.data() + segment.firstRow;
        for (const Cell* const end = cell + segment.count; cell != end; ++cell, gridRow += step) {
            if (!cell->valid && !(cell->direction && m_rules.directions)) continue;
            batch.cells[batch.count] = cell;
            batch.rows[batch.count] = gridRow;
            if (++batch.count == Batch::kMost) Place(batch, column, inPatch, gridHorizontal);
        }
    }
    Place(batch, column, inPatch, gridHorizontal);
    --column.missing;
}

void PatchAssembler::AddColumn(std::span<const Cell> cells, const Done& done) {
    const uint64_t near = m_layout.NearColumn(m_nextColumn++);
    const auto close = [&](uint64_t gridColumn) {
        const auto found = m_open.find(static_cast<uint32_t>(gridColumn / m_topology.patchWidth));
        if (found == m_open.end() || found->second->missing != 0) return;
        std::unique_ptr<PatchColumn> complete = std::move(found->second);
        m_open.erase(found);
        done(std::move(complete));
    };
    Fill(cells, near, false);
    if (m_layout.Folded()) Fill(cells, m_layout.farColumn + near, true);
    close(near);
    if (m_layout.Folded()) close(m_layout.farColumn + near);
}

void PatchAssembler::Recycle(std::unique_ptr<PatchColumn> column) {
    const std::lock_guard lock(m_spareMutex);
    m_spare.push_back(std::move(column));
}

}  // namespace kxexchange
