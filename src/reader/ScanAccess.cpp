// SPDX-License-Identifier: MIT
#include "kxio/ScanAccess.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include "kxbase/Sizes.h"

#include "kxcodecs/QKXChunkCodec.h"
#include "reader/PatchDecoder.h"
#include "reader/PatchTasks.h"

namespace kxio {

namespace {

using kxbase::ComponentType;
using kxbase::ErrorContext;

std::string Sides(uint64_t width, uint64_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

[[noreturn]] void Undecodable(const std::string& detail) {
    ErrorContext context;
    context.detail = detail;
    throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
}

// Checks decoded values against what the caller is going to copy. Returns false when they are all zeros in
// elements of another size: the writer's empty chunk may be so, and zeros are zeros.
bool RequireElements(const DecodedPatch& patch, uint64_t count, uint64_t elementBytes) {
    if (patch.header.ElementCount() != count) {
        Undecodable("the chunk has " + Sides(patch.header.width, patch.header.height) + " elements, " +
                    std::to_string(count) + " are needed");
    }
    if (patch.elementBytes != elementBytes) {
        if (std::all_of(patch.bytes.begin(), patch.bytes.end(), [](unsigned char b) { return b == 0; })) {
            return false;
        }
        Undecodable("the chunk has elements of " + std::to_string(patch.elementBytes) + " bytes, " +
                    std::to_string(elementBytes) + " are needed");
    }
    const uint64_t bytes = kxbase::SizeProduct(count, elementBytes);
    if (patch.bytes.size() != bytes) {
        Undecodable("the chunk unpacks to " + std::to_string(patch.bytes.size()) + " bytes, " +
                    std::to_string(bytes) + " are needed");
    }
    return true;
}

PreviewImage<unsigned char> WholeImage(const DecodedPatch& values, uint64_t elementBytes) {
    const uint64_t count = values.header.ElementCount();
    PreviewImage<unsigned char> image{values.header.width, values.header.height, {}};
    if (RequireElements(values, count, elementBytes)) {
        image.values.assign(values.bytes.begin(), values.bytes.end());
    } else {
        image.values.resize(kxbase::SizeProduct(count, elementBytes));
    }
    return image;
}

PatchRect Intersect(const PatchRect& a, const PatchRect& b) {
    const auto span = [](uint32_t firstA, uint32_t countA, uint32_t firstB, uint32_t countB) {
        const uint64_t first = std::max(firstA, firstB);
        const uint64_t end = std::min(uint64_t{firstA} + countA, uint64_t{firstB} + countB);
        return std::pair(static_cast<uint32_t>(first), static_cast<uint32_t>(end > first ? end - first : 0));
    };
    const auto [firstRow, rows] = span(a.firstRow, a.rows, b.firstRow, b.rows);
    const auto [firstColumn, columns] = span(a.firstColumn, a.columns, b.firstColumn, b.columns);
    return {firstRow, firstColumn, rows, columns};
}

bool IsStored(const std::vector<LookupEntry>& entries, uint64_t index) {
    return index < entries.size() && entries[index].position != 0 && entries[index].byteCount != 0;
}

}  // namespace

ScanAccess::ScanAccess(const QSNScanReader& reader) : m_reader(&reader) {}

uint32_t ScanAccess::ElementBytes(ComponentType component) const {
    if (const uint32_t fixed = kxbase::ComponentElementBytes(component); fixed != 0) return fixed;
    const auto found = m_reader->m_firstChunkElementBytes.find(component);
    return found == m_reader->m_firstChunkElementBytes.end() ? 0 : static_cast<uint32_t>(found->second);
}

PatchRect ScanAccess::GetPatchRect(uint32_t patchRow, uint32_t patchColumn) const {
    const kxbase::GridTopology& grid = Grid();
    if (patchRow >= grid.PatchesPerColumn() || patchColumn >= grid.PatchesPerRow()) {
        ErrorContext context = m_reader->FileContext();
        context.detail = "patch row " + std::to_string(patchRow) + ", column " + std::to_string(patchColumn) +
                         "; the grid has " + Sides(grid.PatchesPerColumn(), grid.PatchesPerRow()) +
                         " patches";
        throw kxbase::KXIndexOutOfBoundsException("Patch out of range", context);
    }
    return {patchRow * grid.patchHeight, patchColumn * grid.patchWidth, grid.RowsInPatch(patchRow),
            grid.ColumnsInPatch(patchColumn)};
}

PatchRect ScanAccess::GetGridRect() const {
    return {0, 0, Grid().rows, Grid().columns};
}

void ScanAccess::RequireComponent(ComponentType component) const {
    if (Has(component)) return;
    ErrorContext context = m_reader->FileContext();
    context.detail = "the file has no component " + kxbase::ComponentToString(component);
    throw kxbase::KXComponentNotInFileException("Cannot use this component", context);
}

void ScanAccess::RequireElementBytes(ComponentType component, uint32_t elementBytes) const {
    const uint32_t stored = ElementBytes(component);
    if (elementBytes != 0 && (stored == 0 || stored == elementBytes)) return;
    ErrorContext context = m_reader->FileContext();
    context.detail = "component " + kxbase::ComponentToString(component) + " has elements of " +
                     std::to_string(stored) + " bytes, " + std::to_string(elementBytes) + " were asked for";
    throw kxbase::KXBadInputException("Wrong element size", context);
}

// Checks that the cells lie in the grid, that the output has room for exactly them, and that there are
// patches.
void ScanAccess::RequireCells(const PatchRect& rect, uint32_t elementBytes, uint64_t outBytes) const {
    const kxbase::GridTopology& grid = Grid();
    if (uint64_t{rect.firstRow} + rect.rows > grid.rows ||
        uint64_t{rect.firstColumn} + rect.columns > grid.columns) {
        ErrorContext context = m_reader->FileContext();
        context.detail = "rows from " + std::to_string(rect.firstRow) + ", columns from " +
                         std::to_string(rect.firstColumn) + ", " + Sides(rect.rows, rect.columns) +
                         " cells; the grid has " + Sides(grid.rows, grid.columns);
        throw kxbase::KXIndexOutOfBoundsException("Cells out of range", context);
    }
    if (outBytes % elementBytes != 0 || outBytes / elementBytes != rect.CellCount()) {
        ErrorContext context = m_reader->FileContext();
        context.detail = std::to_string(outBytes) + " bytes given for " + Sides(rect.rows, rect.columns) +
                         " elements of " + std::to_string(elementBytes) + " bytes";
        throw kxbase::KXBadInputException("Wrong output size", context);
    }
    if (rect.CellCount() != 0 && grid.PatchCount64() == 0) {
        ErrorContext context = m_reader->FileContext();
        context.detail = "the grid has cells but no patches";
        throw kxbase::KXUnreadablePatchException("Index 0 is outside bounds", context);
    }
}

ReadReport ScanAccess::ReadRectBytes(ComponentType component, const PatchRect& rect, uint32_t elementBytes,
                                     std::span<unsigned char> out, const ReadOptions& options) const {
    RequireComponent(component);
    RequireElementBytes(component, elementBytes);
    RequireCells(rect, elementBytes, out.size());
    if (rect.CellCount() == 0) return {};
    const kxbase::GridTopology& grid = Grid();

    const uint32_t firstPatchRow = rect.firstRow / grid.patchHeight;
    const uint32_t firstPatchColumn = rect.firstColumn / grid.patchWidth;
    const uint64_t patchRows = (rect.firstRow + (rect.rows - 1)) / grid.patchHeight - firstPatchRow + 1;
    const uint64_t patchColumns =
        (rect.firstColumn + (rect.columns - 1)) / grid.patchWidth - firstPatchColumn + 1;
    const uint64_t patchCells = kxbase::SizeProduct(grid.patchWidth, grid.patchHeight);
    const std::vector<LookupEntry>& entries = m_reader->RequireComponent(component);
    const uint64_t outStride = uint64_t{rect.columns} * elementBytes;
    std::atomic<uint64_t> decoded{0};
    std::atomic<uint64_t> absent{0};
    std::atomic<uint64_t> damaged{0};

    RunPatchTasks(patchRows * patchColumns, options.threads, [&](uint64_t task, PatchBuffers& buffers) {
        const auto patchRow = static_cast<uint32_t>(firstPatchRow + task / patchColumns);
        const auto patchColumn = static_cast<uint32_t>(firstPatchColumn + task % patchColumns);
        const uint64_t index = m_reader->LinearIndex(patchRow, patchColumn);
        const PatchRect patch = GetPatchRect(patchRow, patchColumn);
        const PatchRect cells = Intersect(patch, rect);
        const uint64_t rowBytes = uint64_t{cells.columns} * elementBytes;
        unsigned char* target = out.data() + (cells.firstRow - rect.firstRow) * outStride +
                                uint64_t{cells.firstColumn - rect.firstColumn} * elementBytes;
        const auto fillZeros = [&] {
            for (uint32_t row = 0; row < cells.rows; ++row)
                std::memset(target + row * outStride, 0, rowBytes);
        };
        if (options.missing != MissingPatches::Throw && !IsStored(entries, index)) {
            fillZeros();
            ++absent;
            return;
        }
        const bool contiguous = cells.CellCount() == patchCells && rowBytes == outStride;
        buffers.direct =
            contiguous ? std::span(target, patchCells * elementBytes) : std::span<unsigned char>();
        try {
            const DecodedPatch values = m_reader->DecodePatch(index, component, buffers);
            if (!RequireElements(values, patchCells, elementBytes)) {
                fillZeros();
            } else if (values.bytes.data() != target) {
                const uint64_t patchStride = uint64_t{grid.patchWidth} * elementBytes;
                const unsigned char* source = values.bytes.data() +
                                              (cells.firstRow - patch.firstRow) * patchStride +
                                              uint64_t{cells.firstColumn - patch.firstColumn} * elementBytes;
                for (uint32_t row = 0; row < cells.rows; ++row)
                    std::memcpy(target + row * outStride, source + row * patchStride, rowBytes);
            }
            ++decoded;
        } catch (kxbase::KXUnreadablePatchException& e) {
            e.AddContext(m_reader->PatchContext(index, component));
            if (options.missing != MissingPatches::ZeroUnreadable) throw;
            fillZeros();
            ++damaged;
        }
    });
    return {decoded, absent, damaged};
}

std::vector<unsigned char> ScanAccess::ReadPatchBytes(ComponentType component, uint32_t patchRow,
                                                      uint32_t patchColumn, uint32_t elementBytes) const {
    RequireComponent(component);
    RequireElementBytes(component, elementBytes);
    const kxbase::GridTopology& grid = Grid();
    const PatchRect cells = GetPatchRect(patchRow, patchColumn);
    const uint64_t index = m_reader->LinearIndex(patchRow, patchColumn);
    PatchBuffers buffers;
    try {
        const DecodedPatch values = m_reader->DecodePatch(index, component, buffers);
        const bool usable =
            RequireElements(values, kxbase::SizeProduct(grid.patchWidth, grid.patchHeight), elementBytes);
        std::vector<unsigned char> out(kxbase::SizeProduct(cells.CellCount(), elementBytes));
        const uint64_t rowBytes = uint64_t{cells.columns} * elementBytes;
        const uint64_t patchStride = uint64_t{grid.patchWidth} * elementBytes;
        for (uint32_t row = 0; usable && row < cells.rows; ++row)
            std::memcpy(out.data() + row * rowBytes, values.bytes.data() + row * patchStride, rowBytes);
        return out;
    } catch (kxbase::KXException& e) {
        e.AddContext(m_reader->PatchContext(index, component));
        throw;
    }
}

PreviewImage<unsigned char> ScanAccess::ReadStoredPatchBytes(ComponentType component, uint32_t patchRow,
                                                             uint32_t patchColumn,
                                                             uint32_t elementBytes) const {
    RequireComponent(component);
    RequireElementBytes(component, elementBytes);
    GetPatchRect(patchRow, patchColumn);
    const uint64_t index = m_reader->LinearIndex(patchRow, patchColumn);
    PatchBuffers buffers;
    try {
        return WholeImage(m_reader->DecodePatch(index, component, buffers), elementBytes);
    } catch (kxbase::KXException& e) {
        e.AddContext(m_reader->PatchContext(index, component));
        throw;
    }
}

PreviewImage<unsigned char> ScanAccess::ReadReducedPatchBytes(ComponentType component, uint32_t patchRow,
                                                              uint32_t patchColumn, uint32_t elementBytes,
                                                              unsigned& level) const {
    RequireComponent(component);
    RequireElementBytes(component, elementBytes);
    const kxbase::GridTopology& grid = Grid();
    // Before the memory is taken.
    m_reader->RequireSamplable(m_reader->LinearIndex(patchRow, patchColumn), component, elementBytes);
    PreviewImage<unsigned char> image{grid.patchWidth, grid.patchHeight, {}};
    image.values.resize(kxbase::SizeProduct(grid.patchWidth, grid.patchHeight, elementBytes));
    m_reader->GetPatch(patchRow, patchColumn, image.values.data(), elementBytes, component, level, false);
    return image;
}

PreviewImage<unsigned char> ScanAccess::ReadPreviewBytes(ComponentType component,
                                                         uint32_t elementBytes) const {
    RequireElementBytes(component, elementBytes);
    PatchBuffers buffers;
    m_reader->GetCompressedPreview(buffers.chunk, component);
    try {
        const DecodedPatch values = DecodeChunk(buffers, m_reader->GetLimits());
        return WholeImage(values, elementBytes);
    } catch (kxbase::KXException& e) {
        ErrorContext context = m_reader->FileContext();
        context.record = "preview of component " + kxbase::ComponentToString(component);
        if (const auto entry = PreviewEntry(component)) context.offset = entry->position;
        e.AddContext(context);
        throw;
    }
}

}  // namespace kxio
