// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "kxio/Export.h"

namespace kxio {

/// Point sampling of a square patch: keeps every 2^level-th value in both directions, nothing is averaged.
///
/// One object serves any number of patches of one size; `DownSampling` keeps no state, so several threads
/// may use one object. A value type.
///
///     // The upper right quarter of `reduced` becomes the half-size image of `patch` (64 x 64 floats).
///     kxio::MultiLevelPatch(4, 1, 64).DownSampling(patch, 1, 0, reduced);
class KXIO_EXPORT MultiLevelPatch {
public:
    /// \param pixelLength  bytes per value, at least 1
    /// \param level        0 (a plain copy) to 30
    /// \param patchSize    values along one side, at least 1
    /// \throws KXBadInputException for other values, or when pixelLength x patchSize^2 exceeds 2^31 - 1
    MultiLevelPatch(int pixelLength, int level, int patchSize);
    MultiLevelPatch(const MultiLevelPatch&);
    MultiLevelPatch& operator=(const MultiLevelPatch&);
    virtual ~MultiLevelPatch();

    /// Copies the reduced patch into its block of `destination`.
    ///
    /// With s the patch size, the reduced image has (s >> level)^2 values and begins in the destination at
    /// row (s y) >> level and column (s x) >> level, so 2^level x 2^level neighbouring patches fill one
    /// destination patch. The rest of the destination is left as it is. Values of 1 to 8 bytes are copied
    /// whole; longer ones as pixelLength / 4 words of four bytes, so the last bytes of a length that is no
    /// multiple of four are not copied.
    ///
    /// \param source       patchSize x patchSize values
    /// \param x, y         column and row of the block, 0 to 2^level - 1; outside nothing is copied
    /// \param destination  patchSize x patchSize values, not overlapping the source
    void DownSampling(const unsigned char* source, int x, int y, unsigned char* destination) const;

private:
    int32_t m_rowStride;  // bytes in one row of the source and of the destination
    int32_t m_pixelLength;
    int32_t m_patchSize;
    int32_t m_level;
    std::vector<int32_t> m_columnOffsets;  // bytes from the row's start to each kept column
    std::vector<int32_t> m_rowOffsets;     // bytes from the patch's start to each kept row
};

}  // namespace kxio
