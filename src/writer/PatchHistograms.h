// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/QSNIndex.h"
#include "kxcodecs/ZLibPieces.h"
#include "writer/PatchPlace.h"

namespace kxio {

/// How often each value of a patch occurs, by ascending value.
using ValueCounts = std::vector<std::pair<uint64_t, uint64_t>>;

/// Counts the values of a patch that lie inside the grid. Values are taken row by row, whatever the patch's
/// orientation says. Nothing for components without a histogram, or when `pixelLength` is not the component's
/// value size.
std::optional<ValueCounts> CountPatchValues(kxbase::ComponentType component, uint64_t pixelLength,
                                            std::span<const unsigned char> values, const PatchPlace& place);

/// The numbers of a histogram record by patch, each patch's packed by themselves: its index, the number of
/// its values, and each value with its count, eight bytes each, little-endian.
using PackedPatches = std::map<kxbase::QSNIndex, kxcodecs::ZLibPiece>;

/// Counts per patch how often each value of the components 4, 5, 18 and 19 occurs.
///
/// A large scan with 16-bit intensities has tens of thousands of values in each of its hundreds of patches:
/// what a record will say of a patch is packed as soon as it was counted, to 2 to 3 bytes a value.
/// `Count` may be called from several threads; the other members must not overlap it.
class PatchHistograms {
public:
    /// Adds what `CountPatchValues` counts. A patch whose values all lie outside still gets its (empty)
    /// entry; nothing happens where nothing is counted.
    void Count(kxbase::ComponentType component, uint64_t pixelLength, std::span<const unsigned char> values,
               const PatchPlace& place);

    /// The counts of every patch counted so far.
    std::map<kxbase::QSNIndex, ValueCounts> All(kxbase::ComponentType component) const;

    /// Bytes of the numbers of a component's record: their count, then per patch its index, the number of its
    /// values, and each value with its count, eight bytes each. 0 when no patch was counted.
    uint64_t NumberBytes(kxbase::ComponentType component) const;
    /// These numbers but the first; the counts are gone.
    PackedPatches Take(kxbase::ComponentType component);

private:
    struct Container {
        mutable std::mutex mutex;
        PackedPatches patches;
    };

    const Container* Find(kxbase::ComponentType component) const;
    Container* Find(kxbase::ComponentType component);

    Container m_classes;
    Container m_segments;
    Container m_luminance8;
    Container m_luminance16;
};

}  // namespace kxio
