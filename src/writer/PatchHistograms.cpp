// SPDX-License-Identifier: MIT
#include "writer/PatchHistograms.h"

#include <algorithm>
#include <cstring>
#include <iterator>
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
    // A patch has fewer than 2^32 bytes.
    std::vector<uint32_t> table(size_t{std::numeric_limits<Key>::max()} + 1);
    ForEachRunInside(values.size() / sizeof(Key), place, [&](uint64_t first, uint64_t length) {
        for (uint64_t i = first; i < first + length; ++i) {
            Key key{};
            std::memcpy(&key, values.data() + i * sizeof(Key), sizeof(Key));
            ++table[key];
        }
    });
    Counts<Key> counts;
    counts.reserve(table.size() - static_cast<size_t>(std::count(table.begin(), table.end(), 0U)));
    for (size_t key = 0; key < table.size(); ++key) {
        if (table[key] != 0) counts.emplace_back(static_cast<Key>(key), table[key]);
    }
    return counts;
}

// One entry for each run of equal keys; takes no more memory than the result needs.
template <class Key>
Counts<Key> Joined(const Counts<Key>& sorted) {
    size_t size = 0;
    for (size_t i = 0; i < sorted.size(); ++i)
        size += i == 0 || sorted[i].first != sorted[i - 1].first ? 1 : 0;
    Counts<Key> joined;
    joined.reserve(size);
    for (const auto& [key, count] : sorted) {
        if (joined.empty() || joined.back().first != key) joined.emplace_back(key, 0);
        joined.back().second += count;
    }
    return joined;
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
    return Joined(runs);
}

template <class Key>
Counts<Key> Sum(const Counts<Key>& a, const Counts<Key>& b) {
    Counts<Key> both;
    both.reserve(a.size() + b.size());
    std::merge(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(both));
    return Joined(both);
}

}  // namespace

template <class Key>
void PatchHistograms::Container<Key>::Count(std::span<const unsigned char> values, const PatchPlace& place) {
    Counts<Key> patch;
    if constexpr (sizeof(Key) <= 2) {
        patch = CountByTable<Key>(values, place);
    } else {
        patch = CountByRuns<Key>(values, place);
    }
    const std::lock_guard lock(mutex);
    Counts<Key>& entry = counts[kxbase::QSNIndex(place.index)];
    // A position that came before adds up.
    entry = entry.empty() ? std::move(patch) : Sum(entry, patch);
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
