// SPDX-License-Identifier: MIT
#include "writer/PatchHistograms.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

namespace kxio {

namespace {

template <class Key>
using Counts = std::vector<std::pair<Key, uint64_t>>;  // ascending keys

// Calls `take(first, length)` for each run of neighbouring values that lie inside the grid.
template <class Take>
void ForEachRunInside(uint64_t valueCount, const PatchPlace& place, Take take) {
    const uint64_t lineLength = std::max(1U, place.grid.patchWidth);
    const uint64_t inLine = std::min(lineLength, place.ColumnsLeft());
    const uint64_t lines = place.RowsLeft();
    for (uint64_t first = 0, line = 0; first < valueCount && line < lines; first += lineLength, ++line) {
        take(first, std::min(inLine, valueCount - first));
    }
}

// Few possible keys: one counter each.
template <class Key>
Counts<Key> CountByTable(std::span<const unsigned char> values, const PatchPlace& place) {
    std::vector<uint64_t> table(size_t{std::numeric_limits<Key>::max()} + 1);
    ForEachRunInside(values.size() / sizeof(Key), place, [&](uint64_t first, uint64_t length) {
        for (uint64_t i = first; i < first + length; ++i) {
            Key key{};
            std::memcpy(&key, values.data() + i * sizeof(Key), sizeof(Key));
            ++table[key];
        }
    });
    Counts<Key> counts;
    for (size_t key = 0; key < table.size(); ++key) {
        if (table[key] != 0) counts.emplace_back(static_cast<Key>(key), table[key]);
    }
    return counts;
}

// Many possible keys, of which neighbours mostly share one: equal neighbours first, then sort.
template <class Key>
Counts<Key> CountByRuns(std::span<const unsigned char> values, const PatchPlace& place) {
    Counts<Key> runs;
    ForEachRunInside(values.size() / sizeof(Key), place, [&](uint64_t first, uint64_t length) {
        for (uint64_t i = first; i < first + length; ++i) {
            Key key{};
            std::memcpy(&key, values.data() + i * sizeof(Key), sizeof(Key));
            if (runs.empty() || runs.back().first != key) runs.emplace_back(key, 0);
            ++runs.back().second;
        }
    });
    std::sort(runs.begin(), runs.end());
    Counts<Key> counts;
    for (const auto& [key, count] : runs) {
        if (counts.empty() || counts.back().first != key) counts.emplace_back(key, 0);
        counts.back().second += count;
    }
    return counts;
}

}  // namespace

template <class Key>
void PatchHistograms::Container<Key>::Count(std::span<const unsigned char> values, const PatchPlace& place) {
    Counts<Key> counts;
    if constexpr (sizeof(Key) <= 2) {
        counts = CountByTable<Key>(values, place);
    } else {
        counts = CountByRuns<Key>(values, place);
    }
    const std::lock_guard lock(mutex);
    std::map<Key, uint64_t>& entry = map[kxbase::QSNIndex(place.index)];
    auto hint = entry.begin();
    for (const auto& [key, count] : counts) {
        hint = entry.try_emplace(hint, key, 0);
        hint->second += count;
        ++hint;  // the next key belongs right before this place in a new entry
    }
}

void PatchHistograms::Count(kxbase::ComponentType component, uint64_t pixelLength,
                            std::span<const unsigned char> values, const PatchPlace& place) {
    if (pixelLength != kxbase::ComponentElementBytes(component)) return;
    switch (component) {
        case kxbase::Luminance8:
            return m_luminance8.Count(values, place);
        case kxbase::Luminance16:
            return m_luminance16.Count(values, place);
        case kxbase::Class:
            return m_classes.Count(values, place);
        case kxbase::Segment:
            return m_segments.Count(values, place);
        default:
            return;
    }
}

}  // namespace kxio
