// SPDX-License-Identifier: MIT
#include "GridCells.h"

#include <omp.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "kxbase/PolarConversion.h"

namespace kxexchange {

namespace {

constexpr double kMetresPerMillimetre = 1e-3;
// Of a cell without a return: one metre in a direction.
constexpr float kDirectionLength = 1000;
// Cells whose coordinates are computed at a time.
constexpr size_t kBatchCells = 256;
// Fewer cells are done before other threads have woken up.
constexpr size_t kWorthThreads = 4096;
// Cells in memory at a time, but for a single longer column.
constexpr uint64_t kMostBlockCells = uint64_t{1} << 23;
// Bytes that one stored byte of any codec can stand for.
constexpr uint64_t kMostExpansion = 32768;

// A message without an intensity mapping over a file that has intensities: they are a share of the whole.
constexpr IntensityMapping kUnit{IntensityMapping::Kind::Unit, 0, 1.0 / 65535};

}  // namespace

bool GridCells::Fits(const GridLayout& layout, const kxbase::GridTopology& grid) {
    return layout.IsConsistent() && layout.GridColumns() == grid.columns && layout.gridRows == grid.rows;
}

LayoutMessage GridCells::PlainLayout(const kxbase::GridTopology& grid) {
    LayoutMessage message;
    message.layout.columns = grid.columns;
    message.layout.rows = message.layout.gridRows = grid.rows;
    if (grid.rows != 0) message.layout.segments.push_back({0, grid.rows, false, grid.rows - 1, true});
    message.intensity = kUnit;
    return message;
}

GridCells::GridCells(const kxio::QSNScanReader& reader, LayoutMessage message, unsigned threads,
                     CoordinateKind kind)
    : m_access(reader),
      m_grid(m_access.Grid()),
      m_message(std::move(message)),
      m_intensity16(m_access.Has(kxbase::Luminance16)),
      m_intensity8(!m_intensity16 && m_access.Has(kxbase::Luminance8)),
      m_color(m_access.Has(kxbase::Color)),
      m_classes(m_access.Has(kxbase::Class)),
      m_directions(m_message.directions),
      m_kind(kind),
      m_emptyIntensity(m_message.emptyIntensity.value_or(0)) {
    m_options.threads = threads;
    if (m_message.intensity.kind == IntensityMapping::Kind::None) m_message.intensity = kUnit;
}

// The grid's size is a claim of the header. Before memory follows it, the chunks of these columns must say
// the same, and be long enough that they can hold so much.
void GridCells::CheckClaims(uint64_t first, uint64_t columns) const {
    const auto entries = m_access.PatchEntries(kxbase::Range);
    const uint64_t perRow = m_grid.PatchesPerRow();
    for (uint64_t column = first / m_grid.patchWidth; column * m_grid.patchWidth < first + columns;
         ++column) {
        for (uint32_t row = 0; row < m_grid.PatchesPerColumn(); ++row) {
            const uint64_t index = perRow * row + column;
            const auto header = m_access.ReadChunkHeader(kxbase::Range, row, static_cast<uint32_t>(column));
            const uint64_t cells = uint64_t{header.width} * header.height;
            const uint64_t needed =
                uint64_t{m_grid.ColumnsInPatch(static_cast<uint32_t>(column))} * m_grid.RowsInPatch(row);
            if (index < entries.size() && cells >= needed &&
                header.decodedBytes / kMostExpansion <= entries[static_cast<size_t>(index)].byteCount) {
                continue;
            }
            kxbase::ErrorContext context;
            context.record = "patch " + std::to_string(index);
            context.detail =
                "found a chunk of " + std::to_string(cells) + " values, expected " + std::to_string(needed);
            throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
        }
    }
}

void GridCells::ReadBlock(uint64_t first, uint64_t columns, Block& block) const {
    CheckClaims(first, columns);
    const auto count = static_cast<size_t>(columns * m_grid.rows);
    const auto read = [&](kxbase::ComponentType component, auto& values) {
        using Value = typename std::remove_reference_t<decltype(values)>::value_type;
        values.resize(count);
        m_access.ReadColumns<Value>(component, static_cast<uint32_t>(first), static_cast<uint32_t>(columns),
                                    values, m_options);
    };
    read(kxbase::Range, block.range);
    read(kxbase::VerticalAngle, block.vertical);
    read(kxbase::HorizontalAngle, block.horizontal);
    if (m_intensity16) read(kxbase::Luminance16, block.luminance16);
    if (m_intensity8) read(kxbase::Luminance8, block.luminance8);
    if (m_color) read(kxbase::Color, block.color);
    if (m_classes) read(kxbase::Class, block.classes);
}

// Cartesian coordinates of `count` cells from `at` on, `step` apart: in millimetres, or a direction of length
// 1000.
void GridCells::Convert(const Block& block, size_t at, size_t step, size_t count, double* xyz) const {
    std::array<float, kBatchCells> range, vertical, horizontal;
    for (size_t i = 0; i < count; ++i, at += step) {
        range[i] = block.range[at] > 0 ? block.range[at] : kDirectionLength;
        vertical[i] = block.vertical[at];
        horizontal[i] = block.horizontal[at];
    }
    kxbase::PolarToCartesian(std::span(range).first(count), std::span(horizontal).first(count),
                             std::span(vertical).first(count), std::span(xyz, 3 * count));
}

// A cell's coordinates; false when the stored values are no numbers. `xyz` is what Convert made of it.
bool GridCells::Place(const Block& block, size_t at, const double* xyz, Cell& cell) const {
    const double range = static_cast<double>(block.range[at]) * kMetresPerMillimetre;
    cell.valid = range > 0;
    cell.direction = !cell.valid && m_directions;
    if (!cell.valid && !cell.direction) return true;
    if (m_kind == CoordinateKind::Spherical) {
        cell.SetSpherical(cell.valid ? range : 0.0, static_cast<double>(block.horizontal[at]),
                          std::numbers::pi / 2 - static_cast<double>(block.vertical[at]));
    } else {
        cell.x = xyz[0] * kMetresPerMillimetre;
        cell.y = xyz[1] * kMetresPerMillimetre;
        cell.z = xyz[2] * kMetresPerMillimetre;
    }
    return std::isfinite(cell.x) && std::isfinite(cell.y) && std::isfinite(cell.z);
}

// The other values of a cell with a return; true when its class is too large.
bool GridCells::Describe(const Block& block, size_t at, Cell& cell) const {
    if (m_intensity16) {
        cell.intensity = m_message.intensity.Restore(block.luminance16[at]);
    } else if (m_intensity8) {
        cell.intensity = m_message.intensity.Restore(static_cast<uint16_t>(block.luminance8[at] * 257));
    }
    if (m_color) {
        const kxio::Rgb8 color = block.color[at];
        cell.red = color.red;
        cell.green = color.green;
        cell.blue = color.blue;
    }
    if (!m_classes) return false;
    constexpr uint32_t kMostClass = 255;
    cell.classification = static_cast<uint8_t>(std::min(block.classes[at], kMostClass));
    return block.classes[at] > kMostClass;
}

// The cells of one source column that lie in a block, from its column `inBlock` of `columns`.
GridCells::Oddities GridCells::ToCells(const Block& block, bool far, size_t inBlock, size_t columns,
                                       Cell* cells) const {
    Oddities odd;
    std::array<double, 3 * kBatchCells> xyz;
    for (const RowSegment& segment : m_message.layout.segments) {
        if (segment.far != far) continue;
        Cell* cell = cells + segment.firstRow;
        size_t at = static_cast<size_t>(segment.gridRow) * columns + inBlock;
        const size_t step = segment.descending ? ~columns + 1 : columns;
        for (uint64_t i = 0; i < segment.count; ++i, ++cell, at += step) {
            const auto inBatch = static_cast<size_t>(i % kBatchCells);
            if (inBatch == 0 && m_kind == CoordinateKind::Cartesian) {
                const auto count = static_cast<size_t>(std::min<uint64_t>(kBatchCells, segment.count - i));
                Convert(block, at, step, count, xyz.data());
            }
            *cell = {};
            if (!Place(block, at, xyz.data() + 3 * inBatch, *cell)) {
                odd.unusable += cell->valid ? 1 : 0;
                *cell = {};
            }
            if (!cell->valid) {
                cell->intensity = m_emptyIntensity;
                continue;
            }
            odd.largeClasses += Describe(block, at, *cell) ? 1 : 0;
        }
    }
    return odd;
}

uint64_t GridCells::Read(std::vector<Cell>& cells) {
    const GridLayout& layout = m_message.layout;
    if (m_nextColumn >= layout.columns) {
        cells.clear();
        return 0;
    }
    // Up to the end of the column of patches that the next source column lies in.
    const uint64_t nearColumn = layout.NearColumn(m_nextColumn);
    const uint64_t patchFirst = nearColumn / m_grid.patchWidth * m_grid.patchWidth;
    const uint64_t patchEnd = std::min<uint64_t>(patchFirst + m_grid.patchWidth, layout.columns);
    const uint64_t columns =
        std::min(layout.columnsReversed ? nearColumn + 1 - patchFirst : patchEnd - nearColumn,
                 std::max<uint64_t>(1, kMostBlockCells / m_grid.rows));
    const uint64_t first = layout.columnsReversed ? nearColumn + 1 - columns : nearColumn;
    ReadBlock(first, columns, m_near);
    if (layout.Folded()) ReadBlock(layout.farColumn + first, columns, m_far);
    cells.resize(static_cast<size_t>(columns * layout.rows));
    const auto count = static_cast<int64_t>(columns);
    const int threads = m_options.threads == 0 ? omp_get_max_threads() : static_cast<int>(m_options.threads);
    uint64_t unusable = 0, largeClasses = 0;
#pragma omp parallel for schedule(static) num_threads(threads) reduction(+ : unusable, largeClasses) if (cells.size() >= kWorthThreads)
    for (int64_t i = 0; i < count; ++i) {
        const auto inBlock = static_cast<size_t>(layout.columnsReversed ? count - 1 - i : i);
        Cell* const column = cells.data() + static_cast<size_t>(i) * static_cast<size_t>(layout.rows);
        const Oddities near = ToCells(m_near, false, inBlock, static_cast<size_t>(columns), column);
        unusable += near.unusable;
        largeClasses += near.largeClasses;
        if (!layout.Folded()) continue;
        const Oddities far = ToCells(m_far, true, inBlock, static_cast<size_t>(columns), column);
        unusable += far.unusable;
        largeClasses += far.largeClasses;
    }
    m_unusable += unusable;
    m_largeClasses += largeClasses;
    m_nextColumn += columns;
    return columns;
}

}  // namespace kxexchange
