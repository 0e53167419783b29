// SPDX-License-Identifier: MIT
#include "services/PatchCells.h"

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
