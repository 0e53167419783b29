// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>
#include <span>

#include "kxbase/ComponentType.h"
#include "kxio/HistogramHeader.h"
#include "writer/PatchPlace.h"

namespace kxio {

/// Counts per patch how often each value of the components 4, 5, 18 and 19 occurs.
/// `Count` may be called from several threads; the getters must not overlap it.
class PatchHistograms {
public:
    /// Counts the values of a patch that lie inside the grid. Values are taken row by row, whatever the
    /// patch's orientation says. A patch whose values all lie outside still gets its (empty) entry.
    /// Nothing happens for other components, or when `pixelLength` is not the component's value size.
    void Count(kxbase::ComponentType component, uint64_t pixelLength, std::span<const unsigned char> values,
               const PatchPlace& place);

    const HistogramCounts<kxbase::ClassId>& Classes() const { return m_classes.counts; }
    const HistogramCounts<kxbase::SegmentId>& Segments() const { return m_segments.counts; }
    const HistogramCounts<uint8_t>& Luminance8() const { return m_luminance8.counts; }
    const HistogramCounts<uint16_t>& Luminance16() const { return m_luminance16.counts; }

private:
    template <class Key>
    struct Container {
        std::mutex mutex;
        HistogramCounts<Key> counts;

        void Count(std::span<const unsigned char> values, const PatchPlace& place);
    };

    Container<kxbase::ClassId> m_classes;
    Container<kxbase::SegmentId> m_segments;
    Container<uint8_t> m_luminance8;
    Container<uint16_t> m_luminance16;
};

}  // namespace kxio
