// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/QSNIndex.h"
#include "writer/PatchPlace.h"

namespace kxio {

/// How often each value of a patch occurs, by ascending value.
using ValueCounts = std::vector<std::pair<uint64_t, uint64_t>>;

/// Counts per patch how often each value of the components 4, 5, 18 and 19 occurs.
///
/// A large scan with 16-bit intensities has tens of thousands of values in each of its hundreds of patches:
/// the counts are kept packed, 2 to 3 bytes a value.
/// `Count` may be called from several threads; the other members must not overlap it.
class PatchHistograms {
public:
    /// Counts the values of a patch that lie inside the grid. Values are taken row by row, whatever the
    /// patch's orientation says. A patch whose values all lie outside still gets its (empty) entry.
    /// Nothing happens for other components, or when `pixelLength` is not the component's value size.
    void Count(kxbase::ComponentType component, uint64_t pixelLength, std::span<const unsigned char> values,
               const PatchPlace& place);

    /// The counts of every patch counted so far.
    std::map<kxbase::QSNIndex, ValueCounts> All(kxbase::ComponentType component) const;

    /// Bytes of the numbers of a component's record: their count, then per patch its index, the number of its
    /// values, and each value with its count, eight bytes each. 0 when no patch was counted.
    uint64_t NumberBytes(kxbase::ComponentType component) const;
    /// These numbers, little-endian; the counts are gone.
    std::vector<unsigned char> TakeNumbers(kxbase::ComponentType component);

private:
    struct Packed {
        uint64_t values = 0;
        std::vector<unsigned char> bytes;
    };
    struct Container {
        mutable std::mutex mutex;
        std::map<kxbase::QSNIndex, Packed> patches;
    };

    const Container* Find(kxbase::ComponentType component) const;
    Container* Find(kxbase::ComponentType component);

    Container m_classes;
    Container m_segments;
    Container m_luminance8;
    Container m_luminance16;
};

}  // namespace kxio
