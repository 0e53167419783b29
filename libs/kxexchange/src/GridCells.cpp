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
// Cells that are turned from rows to columns at a time. In a block the cells of a column lie far apart, so
// what is fetched for one serves its neighbours, too.
constexpr size_t kTileColumns = 16;
constexpr size_t kTileRows = 64;
constexpr size_t kTileCells = kTileColumns * kTileRows;
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

/// Values of some cells, column by column, kTileRows apart.
struct GridCells::Tile {
    std::array<float, kTileCells> range, vertical, horizontal;
    std::array<uint16_t, kTileCells> luminance16;
    std::array<uint8_t, kTileCells> luminance8;
    std::array<kxio::Rgb8, kTileCells> color;
    std::array<uint32_t, kTileCells> classes;

    /// Takes `columns` neighbours from each of `rows` rows of the block, which are `step` apart.
    void Turn(const Block& block, size_t at, size_t step, size_t rows, size_t columns) {
        const auto turn = [&](const auto& from, auto& to) {
            if (from.empty()) return;
            for (size_t row = 0; row < rows; ++row) {
                const auto* const values = from.data() + (at + row * step);
                for (size_t column = 0; column < columns; ++column)
                    to[column * kTileRows + row] = values[column];
            }
        };
        turn(block.range, range);
        turn(block.vertical, vertical);
        turn(block.horizontal, horizontal);
        turn(block.luminance16, luminance16);
        turn(block.luminance8, luminance8);
        turn(block.color, color);
        turn(block.classes, classes);
    }
};

// A cell's coordinates; false when the stored values are no numbers. `xyz`: its cartesian
// coordinates, in millimetres, or a direction of length 1000.
bool GridCells::Place(const Tile& tile, size_t at, const double* xyz, Cell& cell) const {
    const double range = static_cast<double>(tile.range[at]) * kMetresPerMillimetre;
    cell.valid = range > 0;
    cell.direction = !cell.valid && m_directions;
    if (!cell.valid && !cell.direction) return true;
    if (m_kind == CoordinateKind::Spherical) {
        cell.SetSpherical(cell.valid ? range : 0.0, static_cast<double>(tile.horizontal[at]),
                          std::numbers::pi / 2 - static_cast<double>(tile.vertical[at]));
    } else {
        cell.x = xyz[0] * kMetresPerMillimetre;
        cell.y = xyz[1] * kMetresPerMillimetre;
        cell.z = xyz[2] * kMetresPerMillimetre;
    }
    return std::isfinite(cell.x) && std::isfinite(cell.y) && std::isfinite(cell.z);
}

// The other values of a cell with a return; true when its class is too large.
bool GridCells::Describe(const Tile& tile, size_t at, Cell& cell) const {
    if (m_intensity16) {
        cell.intensity = m_message.intensity.Restore(tile.luminance16[at]);
    } else if (m_intensity8) {
        cell.intensity = m_message.intensity.Restore(static_cast<uint16_t>(tile.luminance8[at] * 257));
    }
    if (m_color) {
        const kxio::Rgb8 color = tile.color[at];
        cell.red = color.red;
        cell.green = color.green;
        cell.blue = color.blue;
    }
    if (!m_classes) return false;
    constexpr uint32_t kMostClass = 255;
    cell.classification = static_cast<uint8_t>(std::min(tile.classes[at], kMostClass));
    return tile.classes[at] > kMostClass;
}

// The cells from `first` on of one column of a tile.
GridCells::Oddities GridCells::ToCells(const Tile& tile, size_t first, size_t count, Cell* cells) const {
    std::array<float, kTileRows> range;
    std::array<double, 3 * kTileRows> xyz;
    if (m_kind == CoordinateKind::Cartesian) {
        for (size_t i = 0; i < count; ++i)
            range[i] = tile.range[first + i] > 0 ? tile.range[first + i] : kDirectionLength;
        kxbase::PolarToCartesian(
            std::span(range).first(count), std::span(tile.horizontal).subspan(first, count),
            std::span(tile.vertical).subspan(first, count), std::span(xyz).first(3 * count));
    }
    Oddities odd;
    for (size_t i = 0; i < count; ++i) {
        Cell cell;
        if (!Place(tile, first + i, xyz.data() + 3 * i, cell)) {
            odd.unusable += cell.valid ? 1 : 0;
            cell = {};
        }
        if (cell.valid) {
            odd.largeClasses += Describe(tile, first + i, cell) ? 1 : 0;
        } else {
            cell.intensity = m_emptyIntensity;
        }
        cells[i] = cell;
    }
    return odd;
}

// The cells of `count` source columns that lie in the blocks, from `source` on.
GridCells::Oddities GridCells::ToCells(uint64_t source, uint64_t count, Cell* cells) const {
    const GridLayout& layout = m_message.layout;
    const auto width = static_cast<size_t>(m_blockColumns);
    const uint64_t inBlock = source - m_blockFirst;
    const uint64_t firstColumn = layout.columnsReversed ? m_blockColumns - inBlock - count : inBlock;
    Oddities odd;
    Tile tile;
    for (const RowSegment& segment : layout.segments) {
        const Block& block = segment.far ? m_far : m_near;
        const size_t step = segment.descending ? ~width + 1 : width;
        size_t at = static_cast<size_t>(segment.gridRow) * width + static_cast<size_t>(firstColumn);
        for (uint64_t row = 0; row < segment.count; row += kTileRows) {
            const auto rows = static_cast<size_t>(std::min<uint64_t>(kTileRows, segment.count - row));
            tile.Turn(block, at, step, rows, static_cast<size_t>(count));
            at += rows * step;
            for (uint64_t i = 0; i < count; ++i) {
                const uint64_t column = layout.columnsReversed ? count - 1 - i : i;
                const Oddities more = ToCells(tile, static_cast<size_t>(i) * kTileRows, rows,
                                              cells + column * layout.rows + segment.firstRow + row);
                odd.unusable += more.unusable;
                odd.largeClasses += more.largeClasses;
            }
        }
    }
    return odd;
}

// Up to the end of the column of patches that the next source column lies in.
void GridCells::ReadNextBlocks() {
    const GridLayout& layout = m_message.layout;
    const uint64_t nearColumn = layout.NearColumn(m_nextColumn);
    const uint64_t patchFirst = nearColumn / m_grid.patchWidth * m_grid.patchWidth;
    const uint64_t patchEnd = std::min<uint64_t>(patchFirst + m_grid.patchWidth, layout.columns);
    const uint64_t columns =
        std::min(layout.columnsReversed ? nearColumn + 1 - patchFirst : patchEnd - nearColumn,
                 std::max<uint64_t>(1, kMostBlockCells / m_grid.rows));
    const uint64_t first = layout.columnsReversed ? nearColumn + 1 - columns : nearColumn;
    ReadBlock(first, columns, m_near);
    if (layout.Folded()) ReadBlock(layout.farColumn + first, columns, m_far);
    m_blockFirst = m_nextColumn;
    m_blockColumns = columns;
}

uint64_t GridCells::Read(uint64_t maxColumns, std::vector<Cell>& cells) {
    const GridLayout& layout = m_message.layout;
    if (m_nextColumn == m_blockFirst + m_blockColumns && m_nextColumn < layout.columns) ReadNextBlocks();
    const uint64_t columns = std::min(maxColumns, m_blockFirst + m_blockColumns - m_nextColumn);
    cells.resize(static_cast<size_t>(columns * layout.rows));
    const auto tiles = static_cast<int64_t>((columns + kTileColumns - 1) / kTileColumns);
    const int threads = m_options.threads == 0 ? omp_get_max_threads() : static_cast<int>(m_options.threads);
    uint64_t unusable = 0, largeClasses = 0;
#pragma omp parallel for schedule(static) num_threads(threads) reduction(+ : unusable, largeClasses) if (cells.size() >= kWorthThreads)
    for (int64_t i = 0; i < tiles; ++i) {
        const uint64_t first = static_cast<uint64_t>(i) * kTileColumns;
        const uint64_t count = std::min<uint64_t>(kTileColumns, columns - first);
        const Oddities odd = ToCells(m_nextColumn + first, count, cells.data() + first * layout.rows);
        unusable += odd.unusable;
        largeClasses += odd.largeClasses;
    }
    m_unusable += unusable;
    m_largeClasses += largeClasses;
    m_nextColumn += columns;
    return columns;
}

}  // namespace kxexchange
