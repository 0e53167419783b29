// SPDX-License-Identifier: MIT
#include "services/PatchCells.h"

#include <algorithm>
#include <cstring>

#include "kxbase/Exceptions.h"
#include "kxbase/Sizes.h"
#include "kxcodecs/QKXChunkCodec.h"

namespace kxio {

bool PatchCells::WithoutGrid() const {
    const kxbase::GridTopology& grid = m_access.Grid();
    return grid.patchWidth == 1 && grid.patchHeight == 1 && grid.rows <= 1;
}

PatchRect PatchCells::RectOf(uint64_t patch) const {
    const uint32_t perRow = m_access.Grid().PatchesPerRow();
    return m_access.GetPatchRect(static_cast<uint32_t>(patch / perRow),
                                 static_cast<uint32_t>(patch % perRow));
}

bool PatchCells::IsStored(kxbase::ComponentType component, uint64_t patch) const {
    const auto entries = m_access.PatchEntries(component);
    return patch < entries.size() && entries[patch].position != 0 && entries[patch].byteCount != 0;
}

uint64_t PatchCells::StoredBytes(kxbase::ComponentType component, const PatchRect& rect) const {
    const auto entries = m_access.PatchEntries(component);
    const kxbase::GridTopology& grid = m_access.Grid();
    if (rect.rows == 0 || rect.columns == 0 || grid.patchWidth == 0 || grid.patchHeight == 0) return 0;
    uint64_t bytes = 0;
    const uint64_t lastRow = (uint64_t{rect.firstRow} + rect.rows - 1) / grid.patchHeight;
    const uint64_t lastColumn = (uint64_t{rect.firstColumn} + rect.columns - 1) / grid.patchWidth;
    for (uint64_t row = rect.firstRow / grid.patchHeight; row <= lastRow; ++row) {
        for (uint64_t column = rect.firstColumn / grid.patchWidth; column <= lastColumn; ++column) {
            const uint64_t index = row * grid.PatchesPerRow() + column;
            if (index >= entries.size()) return bytes;
            if (entries[index].position != 0) bytes += entries[index].byteCount;
        }
    }
    return bytes;
}

void PatchCells::RequireBacked(const PatchRect& rect, uint32_t elementBytes, uint64_t storedBytes) const {
    if (WithoutGrid()) return;  // such a patch has as many values as its chunk
    const uint64_t bytes = kxbase::SizeProduct(rect.CellCount(), elementBytes);
    if (bytes <= kxbase::SizeProduct(storedBytes, m_expansionRatio)) return;
    throw kxbase::KXUnreadablePatchException(
        "Patch cannot be decoded",
        {{},
         {},
         {},
         {},
         kxbase::OverLimit("expansionRatio", bytes / std::max<uint64_t>(1, storedBytes), m_expansionRatio)});
}

void PatchCells::Read(kxbase::ComponentType component, const PatchRect& rect, uint32_t elementBytes,
                      std::vector<unsigned char>& out) const {
    if (WithoutGrid()) {
        out.clear();
        if (IsStored(component, rect.firstColumn))
            out = m_access.ReadStoredPatchBytes(component, 0, rect.firstColumn, elementBytes).values;
        return;
    }
    const uint64_t most = kxcodecs::QKXChunkCodec::kDefaultMaxDecodedBytes;
    if (rect.CellCount() > most / elementBytes) {
        throw kxbase::KXWrongDataSizeofException(
            "Patch too large", {{}, {}, {}, {}, std::to_string(rect.CellCount()) + " cells in one patch"});
    }
    out.resize(kxbase::SizeProduct(rect.CellCount(), elementBytes));
    m_access.ReadRectBytes(component, rect, elementBytes, out, {MissingPatches::ZeroAbsent, 1});
}

namespace {

template <class T>
T As(const unsigned char* value) {
    T number{};
    std::memcpy(&number, value, sizeof(T));
    return number;
}

}  // namespace

double CellNumber(kxbase::ComponentType component, const unsigned char* value) {
    switch (component) {
        case kxbase::Range:
        case kxbase::VerticalAngle:
        case kxbase::HorizontalAngle:
            return static_cast<double>(As<float>(value));
        case kxbase::Luminance16:
            return As<uint16_t>(value);
        case kxbase::Class:
            return As<uint32_t>(value);
        case kxbase::Segment:
            return static_cast<double>(As<uint64_t>(value));
        default:
            return *value;
    }
}

bool IsMeasure(kxbase::ComponentType component) {
    return component >= kxbase::Range && component <= kxbase::Color;
}

}  // namespace kxio
