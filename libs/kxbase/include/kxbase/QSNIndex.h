// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>

#include "kxbase/Export.h"

namespace kxbase {

/// A linear patch index and a position inside the patch; the key of histograms.
/// Stored as one 64-bit number: low half the patch index, high half the position.
struct KXBASE_EXPORT QSNIndex {
    uint32_t patchIndex = 0;  ///< patches per row x patch row + patch column
    uint32_t position = 0;    ///< patchWidth x row + column inside the patch

    /// From its two parts.
    QSNIndex(uint32_t patchIndexIn = 0, uint32_t positionIn = 0)
        : patchIndex(patchIndexIn), position(positionIn) {}

    /// The one number that a file stores.
    uint64_t Pack() const { return uint64_t{patchIndex} | (uint64_t{position} << 32); }
    /// From that number.
    static QSNIndex Unpack(uint64_t packed) {
        return {static_cast<uint32_t>(packed), static_cast<uint32_t>(packed >> 32)};
    }
    auto operator<=>(const QSNIndex&) const = default;
};

/// A grid position as patch and place inside the patch.
struct QSNCoordinates {
    int32_t patchRow = 0;     ///< counts patches downwards
    int32_t patchColumn = 0;  ///< counts patches along the sweep
    int32_t row = 0;          ///< inside the patch
    int32_t column = 0;       ///< inside the patch
    bool operator==(const QSNCoordinates&) const = default;
};

/// The compact form: linear patch index, and patchWidth x row + column inside the patch.
struct QSNIndexCoordinates {
    uint32_t patchIndex = 0;  ///< patches per row x patch row + patch column
    uint32_t index = 0;       ///< patchWidth x row + column inside the patch
    bool operator==(const QSNIndexCoordinates&) const = default;
};

/// A (row, column) pair of grid or patch positions; may be negative while searching.
struct ImageCoordinates {
    int32_t row = 0;     ///< downwards, from the zenith
    int32_t column = 0;  ///< along the sweep
    bool operator==(const ImageCoordinates&) const = default;
};

}  // namespace kxbase
