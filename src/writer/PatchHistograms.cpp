// SPDX-License-Identifier: MIT
#include "writer/PatchHistograms.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"

namespace kxio {

namespace {

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
ValueCounts CountByTable(std::span<const unsigned char> values, const PatchPlace& place) {
    // A patch has fewer than 2^32 bytes.
    std::vector<uint32_t> table(size_t{std::numeric_limits<Key>::max()} + 1);
    ForEachRunInside(values.size() / sizeof(Key), place, [&](uint64_t first, uint64_t length) {
        for (uint64_t i = first; i < first + length; ++i) {
            Key key{};
            std::memcpy(&key, values.data() + i * sizeof(Key), sizeof(Key));
            ++table[key];
        }
    });
    ValueCounts counts;
    counts.reserve(table.size() - static_cast<size_t>(std::count(table.begin(), table.end(), 0U)));
    for (size_t key = 0; key < table.size(); ++key) {
        if (table[key] != 0) counts.emplace_back(key, table[key]);
    }
    return counts;
}

// One entry for each run of equal keys.
ValueCounts Joined(const ValueCounts& sorted) {
    ValueCounts joined;
    for (const auto& [key, count] : sorted) {
        if (joined.empty() || joined.back().first != key) joined.emplace_back(key, 0);
        joined.back().second += count;
    }
    return joined;
}

// Many possible keys, of which neighbours mostly share one: equal neighbours first, then sort.
template <class Key>
ValueCounts CountByRuns(std::span<const unsigned char> values, const PatchPlace& place) {
    ValueCounts runs;
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

ValueCounts Sum(const ValueCounts& a, const ValueCounts& b) {
    ValueCounts both;
    both.reserve(a.size() + b.size());
    std::merge(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(both));
    return Joined(both);
}

constexpr uint64_t kNumberBytes = sizeof(uint64_t);

uint64_t PatchNumberBytes(uint64_t values) {
    return (2 + 2 * values) * kNumberBytes;
}

// What a record says of one patch.
kxcodecs::ZLibPiece Pack(kxbase::QSNIndex index, const ValueCounts& counts) {
    std::vector<unsigned char> numbers(static_cast<size_t>(PatchNumberBytes(counts.size())));
    kxbase::ByteWriter out(numbers);
    out.U64(index.Pack());
    out.U64(counts.size());
    for (const auto& [value, count] : counts) {
        out.U64(value);
        out.U64(count);
    }
    return kxcodecs::PackPairs(numbers);
}

ValueCounts CountsOf(const kxcodecs::ZLibPiece& piece) {
    const std::vector<unsigned char> numbers = kxcodecs::Unpacked(piece);
    kxbase::ByteReader in(numbers);
    in.Skip(kNumberBytes, "index");
    ValueCounts counts(in.U64("number of values"));
    for (auto& [value, count] : counts) {
        value = in.U64("value");
        count = in.U64("count");
    }
    return counts;
}

}  // namespace

std::optional<ValueCounts> CountPatchValues(kxbase::ComponentType component, uint64_t pixelLength,
                                            std::span<const unsigned char> values, const PatchPlace& place) {
    if (pixelLength != kxbase::ComponentElementBytes(component)) return std::nullopt;
    switch (component) {
        case kxbase::Luminance8:
            return CountByTable<uint8_t>(values, place);
        case kxbase::Luminance16:
            return CountByTable<uint16_t>(values, place);
        case kxbase::Class:
            return CountByRuns<kxbase::ClassId>(values, place);
        case kxbase::Segment:
            return CountByRuns<kxbase::SegmentId>(values, place);
        default:
            return std::nullopt;
    }
}

const PatchHistograms::Container* PatchHistograms::Find(kxbase::ComponentType component) const {
    switch (component) {
        case kxbase::Luminance8:
            return &m_luminance8;
        case kxbase::Luminance16:
            return &m_luminance16;
        case kxbase::Class:
            return &m_classes;
        case kxbase::Segment:
            return &m_segments;
        default:
            return nullptr;
    }
}

PatchHistograms::Container* PatchHistograms::Find(kxbase::ComponentType component) {
    return const_cast<Container*>(std::as_const(*this).Find(component));
}

void PatchHistograms::Count(kxbase::ComponentType component, uint64_t pixelLength,
                            std::span<const unsigned char> values, const PatchPlace& place) {
    const auto patch = CountPatchValues(component, pixelLength, values, place);
    if (!patch) return;
    const kxbase::QSNIndex index(place.index);
    kxcodecs::ZLibPiece packed = Pack(index, *patch);
    Container* const container = Find(component);
    const std::lock_guard lock(container->mutex);
    const auto [entry, isNew] = container->patches.try_emplace(index);
    // A position that came before adds up.
    entry->second = isNew ? std::move(packed) : Pack(index, Sum(CountsOf(entry->second), *patch));
}

std::map<kxbase::QSNIndex, ValueCounts> PatchHistograms::All(kxbase::ComponentType component) const {
    std::map<kxbase::QSNIndex, ValueCounts> all;
    if (const Container* const container = Find(component)) {
        for (const auto& [index, piece] : container->patches)
            all[index] = CountsOf(piece);
    }
    return all;
}

uint64_t PatchHistograms::NumberBytes(kxbase::ComponentType component) const {
    const Container* const container = Find(component);
    if (!container || container->patches.empty()) return 0;
    uint64_t bytes = kNumberBytes;
    for (const auto& [index, piece] : container->patches)
        bytes += piece.bytes;
    return bytes;
}

PackedPatches PatchHistograms::Take(kxbase::ComponentType component) {
    Container* const container = Find(component);
    return container ? std::exchange(container->patches, {}) : PackedPatches();
}

}  // namespace kxio
