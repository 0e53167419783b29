// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "kxio/ScanAccess.h"

namespace kxio {

/// The cells of one patch of a scan, with or without a grid, patch by patch.
class PatchCells {
public:
    /// \param reader  borrowed, open
    explicit PatchCells(const QSNScanReader& reader)
        : m_access(reader), m_expansionRatio(reader.GetLimits().expansionRatio) {}

    const ScanAccess& Access() const { return m_access; }
    /// Patches are one cell each, and store any number of values.
    bool WithoutGrid() const;
    /// Patches that the component's table lists: never more than the file can back.
    uint64_t PatchCount(kxbase::ComponentType component) const {
        return m_access.PatchEntries(component).size();
    }
    /// The cells of a patch; of a scan without a grid one row of one cell at the patch's column.
    PatchRect RectOf(uint64_t patch) const;
    /// Whether the file holds the patch.
    bool IsStored(kxbase::ComponentType component, uint64_t patch) const;
    /// Bytes of the chunks of all patches that the rectangle touches.
    uint64_t StoredBytes(kxbase::ComponentType component, const PatchRect& rect) const;
    /// Refuses a rectangle that is larger than the stored bytes can stand for: a header can claim any size.
    /// \throws kxbase::KXUnreadablePatchException "Patch cannot be decoded"
    void RequireBacked(const PatchRect& rect, uint32_t elementBytes, uint64_t storedBytes) const;
    /// The values of a rectangle of cells, `elementBytes` each, into `out`; patches that are not stored give
    /// zeros. Without a grid all values of the patch, however many.
    /// \throws kxbase::KXException
    void Read(kxbase::ComponentType component, const PatchRect& rect, uint32_t elementBytes,
              std::vector<unsigned char>& out) const;

private:
    ScanAccess m_access;
    uint64_t m_expansionRatio;
};

/// A value as a number: f32 of the components 1 to 3, integers of 4, 5, 18, 19, one channel of 6.
/// \param value  `elementBytes` bytes
double CellNumber(kxbase::ComponentType component, const unsigned char* value);

/// Whether differences and means of the component's values mean something.
bool IsMeasure(kxbase::ComponentType component);

}  // namespace kxio
