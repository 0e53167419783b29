// SPDX-License-Identifier: MIT
// Whole layers: assembling one from patches, and the order in which patches lie in the file.
#include <algorithm>
#include <cstring>
#include <exception>
#include <tuple>

#include "kxcodecs/QKXChunkCodec.h"
#include "kxio/QSNScanReader.h"

#include "kxbase/Sizes.h"
namespace kxio {

void QSNScanReader::GetFullLayer(void* out, uint64_t elementBytes, kxbase::ComponentType component,
                                 std::function<void(kxbase::QSNIndex, void*)> fill) const {
    if (!fill) throw std::bad_function_call();
    const kxbase::GridTopology grid = m_scanProperties.grid;
    const uint64_t perRow = grid.PatchesPerRow();
    const auto patchCount = static_cast<int64_t>(grid.PatchCount());
    if (patchCount == 0 || elementBytes == 0) return;

    const uint64_t patchCells = kxbase::SizeProduct(grid.patchWidth, grid.patchHeight);
    RequirePatchSize(0, component, elementBytes);
    const uint64_t sourceStride = grid.patchWidth * elementBytes;
    const uint64_t layerStride = grid.columns * elementBytes;
    auto* layer = static_cast<unsigned char*>(out);

    // An exception must not leave a parallel region: the first one is carried out by hand.
    std::exception_ptr failure;
#pragma omp parallel for schedule(static)
    for (int64_t index = 0; index < patchCount; ++index) {
        try {
            std::vector<unsigned char> patch(kxbase::SizeProduct(patchCells, elementBytes));
            fill(kxbase::QSNIndex(static_cast<uint32_t>(index), 0), patch.data());
            const auto patchRow = static_cast<uint32_t>(static_cast<uint64_t>(index) / perRow);
            const auto patchColumn = static_cast<uint32_t>(static_cast<uint64_t>(index) % perRow);
            const uint64_t rowBytes = grid.ColumnsInPatch(patchColumn) * elementBytes;
            const uint32_t rows = grid.RowsInPatch(patchRow);
            unsigned char* target = layer + kxbase::SizeProduct(grid.patchHeight, patchRow, layerStride) +
                                    kxbase::SizeProduct(grid.patchWidth, patchColumn, elementBytes);
            for (uint32_t row = 0; row < rows; ++row) {
                std::memcpy(target + row * layerStride, patch.data() + row * sourceStride, rowBytes);
            }
        } catch (...) {
#pragma omp critical(kxioLayerFailure)
            if (!failure) failure = std::current_exception();
        }
    }
    if (failure) std::rethrow_exception(failure);
}

void QSNScanReader::GetOrderedPatchList(std::vector<kxbase::ImageCoordinates>& patches,
                                        kxbase::ComponentType component) const {
    const auto table = m_patchTable.find(component);
    if (table == m_patchTable.end()) {
        kxbase::ErrorContext context = FileContext();
        context.detail = "the file has no component " + kxbase::ComponentToString(component);
        throw kxbase::KXComponentNotInFileException("Cannot use this component", context);
    }
    const std::vector<LookupEntry>& entries = table->second;
    const int64_t patchCount = m_scanProperties.grid.PatchCount();
    const int64_t perRow = m_scanProperties.grid.PatchesPerRow();

    std::vector<LookupEntry> order;
    if (patches.empty()) {
        // The table, not the grid, says how many: its entries are known to be in the file.
        order.assign(entries.begin(),
                     entries.begin() + std::min(static_cast<int64_t>(entries.size()), patchCount));
    } else {
        order.reserve(patches.size());
        for (const kxbase::ImageCoordinates& patch : patches) {
            const int64_t index = perRow * patch.row + patch.column;
            if (patch.row < 0 || patch.column < 0 || index >= patchCount) {
                kxbase::ErrorContext context = FileContext();
                context.detail = "row " + std::to_string(patch.row) + ", column " +
                                 std::to_string(patch.column) + "; the grid has " +
                                 std::to_string(patchCount) + " patches";
                throw kxbase::KXUnreadablePatchException(
                    "Index " + std::to_string(index) + " is outside bounds", context);
            }
            const auto place = static_cast<uint64_t>(index);
            order.push_back(place < entries.size() ? entries[place]
                                                   : LookupEntry{0, 0, static_cast<uint32_t>(place)});
        }
    }
    // Empty patches share one chunk; the index makes their order definite.
    std::sort(order.begin(), order.end(), [](const LookupEntry& a, const LookupEntry& b) {
        return std::tie(a.position, a.byteCount, a.index) < std::tie(b.position, b.byteCount, b.index);
    });
    patches.clear();
    patches.reserve(order.size());
    for (const LookupEntry& entry : order) {
        patches.push_back(
            {static_cast<int32_t>(entry.index / perRow), static_cast<int32_t>(entry.index % perRow)});
    }
}

}  // namespace kxio
