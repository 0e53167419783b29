// SPDX-License-Identifier: MIT
// Reduced detail: one patch-sized image of a block of patches, every 2^level-th value of each.
#include <algorithm>
#include <cstring>
#include <exception>

#include "kxbase/Sizes.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/MultiLevelPatch.h"
#include "kxio/QSNScanReader.h"
#include "reader/PatchDecoder.h"

namespace kxio {

namespace {

constexpr unsigned kMaxLevel = 31;

// The highest level, not above `level`, whose factor 2^level does not exceed both counts of patches.
unsigned ClampLevel(unsigned level, const kxbase::GridTopology& grid) {
    level = std::min(level, kMaxLevel);
    const uint64_t most = std::max(grid.PatchesPerRow(), grid.PatchesPerColumn());
    while (level != 0 && (uint64_t{1} << level) > most)
        --level;
    return level;
}

// Every 2^level-th value of both directions, point by point in parallel.
void CopyEveryNth(const unsigned char* source, unsigned char* destination, uint32_t side, unsigned level,
                  uint64_t x, uint64_t y) {
    const auto kept = static_cast<int64_t>(side >> level);
    const uint64_t firstColumn = (side * x) >> level;
    const uint64_t firstRow = (side * y) >> level;
#pragma omp parallel for schedule(static)
    for (int64_t j = 0; j < kept; ++j) {
        for (int64_t i = 0; i < kept; ++i) {
            const uint64_t from =
                (static_cast<uint64_t>(j) << level) * side + (static_cast<uint64_t>(i) << level);
            const uint64_t to =
                (firstRow + static_cast<uint64_t>(j)) * side + firstColumn + static_cast<uint64_t>(i);
            destination[to] = source[from];
        }
    }
}

// The first exception of a parallel region; the others are dropped.
class FirstException {
public:
    void Keep() {
#pragma omp critical(kxio_reduced_detail_exception)
        if (!m_exception) m_exception = std::current_exception();
    }
    void Rethrow() const {
        if (m_exception) std::rethrow_exception(m_exception);
    }

private:
    std::exception_ptr m_exception;
};

}  // namespace

void QSNScanReader::RequireSamplable(uint64_t index, kxbase::ComponentType component,
                                     uint64_t elementBytes) const {
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    if (grid.patchWidth != grid.patchHeight) {
        kxbase::ErrorContext context = FileContext();
        context.detail = "patches of this scan are " + std::to_string(grid.patchWidth) + " x " +
                         std::to_string(grid.patchHeight) + " cells";
        throw kxbase::KXWrongDataSizeofException("Cannot sample on non square patch", context);
    }
    RequirePatchSize(index, component, elementBytes);
}

// Before memory is taken for a whole patch.
void QSNScanReader::RequirePatchSize(uint64_t index, kxbase::ComponentType component,
                                     uint64_t elementBytes) const {
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    const uint64_t cells = kxbase::SizeProduct(grid.patchWidth, grid.patchHeight);
    const uint64_t bytes = kxbase::SizeProduct(cells, elementBytes);
    if (cells <= m_limits.cells && bytes <= m_limits.decodedBytes) return;
    kxbase::ErrorContext context = PatchContext(index, component);
    context.detail = cells > m_limits.cells ? kxbase::OverLimit("cells", cells, m_limits.cells)
                                            : kxbase::OverLimit("decodedBytes", bytes, m_limits.decodedBytes);
    throw kxbase::KXUnreadablePatchException("Patch cannot be decoded", context);
}

void QSNScanReader::GetPatch(unsigned row, unsigned column, void* out, uint64_t elementBytes,
                             kxbase::ComponentType component, unsigned& level, bool flag) const {
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    RequireSamplable(LinearIndex(row, column), component, elementBytes);
    const uint64_t tableSize = RequireComponent(component).size();
    const uint32_t side = grid.patchWidth;
    const uint64_t patchBytes = kxbase::SizeProduct(side, side, elementBytes);
    level = ClampLevel(level, grid);
    auto* destination = static_cast<unsigned char*>(out);
    if (patchBytes != 0) std::memset(destination, 0, patchBytes);
    if (side == 0 || elementBytes == 0 || (side >> level) == 0) return;

    MultiLevelPatch sampler(static_cast<int>(elementBytes), static_cast<int>(level), static_cast<int>(side));
    const uint64_t factor = uint64_t{1} << level;
    const uint64_t perRow = grid.PatchesPerRow();
    const uint64_t firstRow = row * factor;
    const uint64_t firstColumn = column * factor;
    // Only source patches that the component's table lists are looked for: its length is backed by the file.
    const uint64_t listedRows = perRow == 0 ? 0 : (tableSize + perRow - 1) / perRow;
    const uint64_t lastRow = std::min({firstRow + factor, uint64_t{grid.PatchesPerColumn()}, listedRows});
    const uint64_t lastColumn = std::min({firstColumn + factor, perRow, tableSize});
    if (firstRow >= lastRow || firstColumn >= lastColumn) return;

    const auto reduceOne = [&](uint64_t sourceRow, uint64_t sourceColumn) {
        try {
            PatchBuffers buffers;
            const DecodedPatch source = DecodePatch(LinearIndex(sourceRow, sourceColumn), component, buffers);
            if (source.elementBytes != elementBytes || source.bytes.size() < patchBytes) return;
            const uint64_t x = sourceColumn - firstColumn;
            const uint64_t y = sourceRow - firstRow;
            if (component == kxbase::Luminance8 && flag) {
                CopyEveryNth(source.bytes.data(), destination, side, level, x, y);
            } else {
                sampler.DownSampling(source.bytes.data(), static_cast<int>(x), static_cast<int>(y),
                                     destination);
            }
        } catch (const kxbase::KXUnreadablePatchException&) {
            // Its block stays zero, like that of a patch where nothing was measured.
        }
    };
    FirstException failure;
    const auto rows = static_cast<int64_t>(lastRow - firstRow);
    const auto columns = static_cast<int64_t>(lastColumn - firstColumn);
#pragma omp parallel for schedule(static)
    for (int64_t y = 0; y < rows; ++y) {
#pragma omp parallel for schedule(static)
        for (int64_t x = 0; x < columns; ++x) {
            try {
                reduceOne(firstRow + static_cast<uint64_t>(y), firstColumn + static_cast<uint64_t>(x));
            } catch (...) {
                failure.Keep();
            }
        }
    }
    failure.Rethrow();
}

void QSNScanReader::GetPatchCompressed(unsigned row, unsigned column, std::vector<unsigned char>& out,
                                       kxbase::ComponentType component, unsigned& level, bool flag) const {
    if (level == 0) {
        GetPatchCompressed(row, column, out, component);
        return;
    }
    out.clear();
    const std::vector<LookupEntry>& entries = RequireComponent(component);
    if (component < kxbase::Range || component > kxbase::Segment) {
        throw kxbase::KXUnkownComponentException(
            "Component not supported for LoD: " + std::to_string(static_cast<uint32_t>(component)),
            FileContext());
    }
    const kxbase::GridTopology& grid = m_scanProperties.grid;
    uint64_t elementBytes = kxbase::ComponentElementBytes(component);
    if (elementBytes == 0) elementBytes = FirstReadableElementBytes(entries.size(), component);
    RequireSamplable(LinearIndex(row, column), component, elementBytes);
    const uint64_t patchBytes = kxbase::SizeProduct(grid.patchWidth, grid.patchHeight, elementBytes);
    std::vector<unsigned char> reduced(patchBytes);
    GetPatch(row, column, reduced.data(), elementBytes, component, level, flag);
    if (component == kxbase::Color) {
        kxcodecs::JPEGChunkCodec codec;
        codec.SetCompressionLevel(1);
        codec.Encode(reduced.data(), grid.patchWidth, grid.patchHeight, patchBytes, 1.0f, out);
    } else {
        kxcodecs::ZLibChunkCodec().Encode(reduced.data(), grid.patchWidth, grid.patchHeight, patchBytes, 1.0f,
                                          out);
    }
}

void QSNScanReader::GetPatchCompressed(unsigned index, std::vector<unsigned char>& out,
                                       kxbase::ComponentType component, unsigned& level, bool flag) const {
    const uint32_t perRow = std::max(1U, m_scanProperties.grid.PatchesPerRow());
    GetPatchCompressed(index / perRow, index % perRow, out, component, level, flag);
}

uint64_t QSNScanReader::FirstReadableElementBytes(uint64_t tableSize, kxbase::ComponentType component) const {
    PatchBuffers buffers;
    for (uint64_t index = 0; index < tableSize; ++index) {
        try {
            return DecodePatch(index, component, buffers).elementBytes;
        } catch (const kxbase::KXUnreadablePatchException&) {
            continue;  // the next one may tell
        }
    }
    return 1;
}

}  // namespace kxio
