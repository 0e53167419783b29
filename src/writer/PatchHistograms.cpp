// SPDX-License-Identifier: MIT
#include "writer/PatchHistograms.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

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

// Seven bits a byte, the lowest first; all bytes but the last have the highest bit.
void PackNumber(uint64_t number, std::vector<unsigned char>& out) {
    while (number >= 0x80) {
        out.push_back(static_cast<unsigned char>(number | 0x80));
        number >>= 7;
    }
    out.push_back(static_cast<unsigned char>(number));
}

uint64_t UnpackNumber(const unsigned char*& at) {
    uint64_t number = 0;
    for (unsigned shift = 0;; shift += 7) {
        const unsigned char byte = *at++;
        number |= (uint64_t{byte} & 0x7f) << shift;
        if (byte < 0x80) return number;
    }
}

// Each value as its distance to the one in front of it, then its count.
std::vector<unsigned char> Pack(const ValueCounts& counts) {
    std::vector<unsigned char> bytes;
    uint64_t before = 0;
    for (const auto& [value, count] : counts) {
        PackNumber(value - before, bytes);
        PackNumber(count, bytes);
        before = value;
    }
    bytes.shrink_to_fit();
    return bytes;
}

template <class Take>
void ForEachPacked(const std::vector<unsigned char>& bytes, uint64_t values, Take take) {
    const unsigned char* at = bytes.data();
    for (uint64_t value = 0, i = 0; i < values; ++i) {
        value += UnpackNumber(at);
        const uint64_t count = UnpackNumber(at);
        take(value, count);
    }
}

ValueCounts Unpacked(const std::vector<unsigned char>& bytes, uint64_t values) {
    ValueCounts counts;
    counts.reserve(static_cast<size_t>(values));
    ForEachPacked(bytes, values, [&](uint64_t value, uint64_t count) { counts.emplace_back(value, count); });
    return counts;
}

ValueCounts CountPatch(kxbase::ComponentType component, std::span<const unsigned char> values,
                       const PatchPlace& place) {
    switch (component) {
        case kxbase::Luminance8:
            return CountByTable<uint8_t>(values, place);
        case kxbase::Luminance16:
            return CountByTable<uint16_t>(values, place);
        case kxbase::Class:
            return CountByRuns<kxbase::ClassId>(values, place);
        default:
            return CountByRuns<kxbase::SegmentId>(values, place);
    }
}

}  // namespace

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
    Container* const container = Find(component);
    if (!container || pixelLength != kxbase::ComponentElementBytes(component)) return;
    const ValueCounts patch = CountPatch(component, values, place);
    std::vector<unsigned char> bytes = Pack(patch);
    const std::lock_guard lock(container->mutex);
    const auto [entry, isNew] = container->patches.try_emplace(kxbase::QSNIndex(place.index));
    Packed& packed = entry->second;
    if (isNew) {
        packed = {patch.size(), std::move(bytes)};
    } else {
        // A position that came before adds up.
        const ValueCounts sum = Sum(Unpacked(packed.bytes, packed.values), patch);
        packed = {sum.size(), Pack(sum)};
    }
}

std::map<kxbase::QSNIndex, ValueCounts> PatchHistograms::All(kxbase::ComponentType component) const {
    std::map<kxbase::QSNIndex, ValueCounts> all;
    if (const Container* const container = Find(component)) {
        for (const auto& [index, packed] : container->patches)
            all[index] = Unpacked(packed.bytes, packed.values);
    }
    return all;
}

uint64_t PatchHistograms::NumberBytes(kxbase::ComponentType component) const {
    const Container* const container = Find(component);
    if (!container || container->patches.empty()) return 0;
    uint64_t numbers = 1;
    for (const auto& [index, packed] : container->patches)
        numbers += 2 + 2 * packed.values;
    return numbers * sizeof(uint64_t);
}

std::vector<unsigned char> PatchHistograms::TakeNumbers(kxbase::ComponentType component) {
    std::vector<unsigned char> numbers(static_cast<size_t>(NumberBytes(component)));
    if (numbers.empty()) return numbers;
    auto& patches = Find(component)->patches;
    kxbase::ByteWriter out(numbers);
    out.U64(patches.size());
    for (auto entry = patches.begin(); entry != patches.end(); entry = patches.erase(entry)) {
        const Packed& packed = entry->second;
        out.U64(entry->first.Pack());
        out.U64(packed.values);
        ForEachPacked(packed.bytes, packed.values, [&](uint64_t value, uint64_t count) {
            out.U64(value);
            out.U64(count);
        });
    }
    return numbers;
}

}  // namespace kxio
