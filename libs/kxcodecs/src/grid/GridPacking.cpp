// SPDX-License-Identifier: MIT
#include "grid/GridPacking.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "grid/GridSimd.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridPacking.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#ifndef KXGRID_UNITS
#define KXGRID_UNITS
namespace kxcodecs::grid {
constexpr std::size_t kLanes = 16;
constexpr std::size_t kUnit = 256;
}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;
using U16 = hn::CappedTag<uint16_t, kLanes>;
using V = hn::Vec<U16>;

HWY_INLINE V Swapped(V words) {
    if constexpr (std::endian::native == std::endian::big)
        return hn::Or(hn::ShiftLeft<8>(words), hn::ShiftRight<8>(words));
    return words;
}
#if HWY_TARGET == HWY_SCALAR
HWY_INLINE V LoadWords(const unsigned char* bytes) {
    uint16_t word;
    std::memcpy(&word, bytes, sizeof word);
    return Swapped(hn::Set(U16(), word));
}
HWY_INLINE void StoreWords(V words, unsigned char* bytes) {
    const uint16_t word = hn::GetLane(Swapped(words));
    std::memcpy(bytes, &word, sizeof word);
}
#else
using U8 = hn::Repartition<uint8_t, U16>;
HWY_INLINE V LoadWords(const unsigned char* bytes) {
    return Swapped(hn::BitCast(U16(), hn::LoadU(U8(), bytes)));
}
HWY_INLINE void StoreWords(V words, unsigned char* bytes) {
    hn::StoreU(hn::BitCast(U8(), Swapped(words)), U8(), bytes);
}
#endif

// Row `Row` of the values of a unit, from lane `lane` on.
template <int Bits, int Row>
HWY_INLINE void UnpackRow(const unsigned char* packed, std::size_t lane, uint16_t* values) {
    constexpr int kWord = Row * Bits / 16, kShift = Row * Bits % 16;
    constexpr auto kMask = static_cast<uint16_t>((uint32_t{1} << Bits) - 1);
    const U16 d;
    V value = hn::ShiftRight<kShift>(LoadWords(packed + (kWord * kLanes + lane) * 2));
    if constexpr (kShift + Bits > 16)
        value =
            hn::Or(value, hn::ShiftLeft<16 - kShift>(LoadWords(packed + ((kWord + 1) * kLanes + lane) * 2)));
    if constexpr (kShift + Bits != 16) value = hn::And(value, hn::Set(d, kMask));
    hn::StoreU(value, d, values + Row * kLanes + lane);
}

// Word `Word` of a unit, from the rows that have a part of it.
template <int Bits, int Word, int Row>
HWY_INLINE V PackedWord(const uint16_t* values, std::size_t lane) {
    constexpr int kShift = Row * Bits - Word * 16;
    const U16 d;
    const V value = hn::LoadU(d, values + Row * kLanes + lane);
    V word = hn::Zero(d);
    if constexpr (kShift >= 0) {
        word = hn::ShiftLeft<kShift>(value);
    } else {
        word = hn::ShiftRight<-kShift>(value);
    }
    if constexpr (kShift + Bits < 16 && Row + 1 < 16) {
        return hn::Or(word, PackedWord<Bits, Word, Row + 1>(values, lane));
    } else {
        return word;
    }
}

template <int Bits, int... Rows>
HWY_INLINE void UnpackUnit(const unsigned char* packed, uint16_t* values,
                           std::integer_sequence<int, Rows...>) {
    for (std::size_t lane = 0; lane < kLanes; lane += hn::Lanes(U16()))
        (UnpackRow<Bits, Rows>(packed, lane, values), ...);
}
template <int Bits, int... Words>
HWY_INLINE void PackUnit(const uint16_t* values, unsigned char* packed,
                         std::integer_sequence<int, Words...>) {
    for (std::size_t lane = 0; lane < kLanes; lane += hn::Lanes(U16()))
        (StoreWords(PackedWord<Bits, Words, Words * 16 / Bits>(values, lane),
                    packed + (Words * kLanes + lane) * 2),
         ...);
}

template <int Bits>
void UnpackUnits(const unsigned char* packed, uint64_t units, uint16_t* values) {
    for (uint64_t unit = 0; unit < units; ++unit)
        UnpackUnit<Bits>(packed + unit * Bits * kLanes * 2, values + unit * kUnit,
                         std::make_integer_sequence<int, 16>());
}
template <int Bits>
void PackUnits(const uint16_t* values, uint64_t units, unsigned char* packed) {
    for (uint64_t unit = 0; unit < units; ++unit)
        PackUnit<Bits>(values + unit * kUnit, packed + unit * Bits * kLanes * 2,
                       std::make_integer_sequence<int, Bits>());
}

template <int... Less>
void UnpackAny(const unsigned char* packed, uint64_t units, uint32_t bits, uint16_t* values,
               std::integer_sequence<int, Less...>) {
    ((bits == Less + 1 ? UnpackUnits<Less + 1>(packed, units, values) : void()), ...);
}
template <int... Less>
void PackAny(const uint16_t* values, uint64_t units, uint32_t bits, unsigned char* packed,
             std::integer_sequence<int, Less...>) {
    ((bits == Less + 1 ? PackUnits<Less + 1>(values, units, packed) : void()), ...);
}

void Unpack(const unsigned char* packed, uint64_t units, uint32_t bits, uint16_t* values) {
    UnpackAny(packed, units, bits, values, std::make_integer_sequence<int, 16>());
}
void Pack(const uint16_t* values, uint64_t units, uint32_t bits, unsigned char* packed) {
    PackAny(values, units, bits, packed, std::make_integer_sequence<int, 16>());
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(Unpack);
HWY_EXPORT(Pack);

namespace {

uint64_t Words(uint64_t count, uint32_t bits) {
    const uint64_t rows = (count + kLanes - 1) / kLanes;
    return (rows * bits + 15) / 16;
}

}  // namespace

uint64_t PackedBytes(uint64_t count, uint32_t bits) {
    return (count / kUnit * bits + Words(count % kUnit, bits)) * kLanes * 2;
}

void PackLow(std::span<const uint16_t> values, uint32_t bits, std::vector<unsigned char>& out) {
    if (bits == 0) return;
    const std::size_t start = out.size(), units = values.size() / kUnit, rest = values.size() % kUnit;
    out.resize(start + static_cast<std::size_t>(PackedBytes(values.size(), bits)));
    unsigned char* const packed = out.data() + start;
    HWY_DYNAMIC_DISPATCH(Pack)(values.data(), units, bits, packed);
    if (rest == 0) return;
    uint16_t last[kUnit] = {};
    unsigned char lastPacked[kUnit * 2];
    std::copy_n(values.data() + units * kUnit, rest, last);
    HWY_DYNAMIC_DISPATCH(Pack)(last, 1, bits, lastPacked);
    std::memcpy(packed + units * bits * kLanes * 2, lastPacked, Words(rest, bits) * kLanes * 2);
}

void UnpackLow(const unsigned char* packed, uint64_t count, uint32_t bits, uint16_t* values) noexcept {
    const uint64_t units = count / kUnit, rest = count % kUnit;
    if (bits == 0) {
        std::fill_n(values, (units + (rest > 0)) * kUnit, uint16_t{0});
        return;
    }
    HWY_DYNAMIC_DISPATCH(Unpack)(packed, units, bits, values);
    if (rest == 0) return;
    unsigned char last[kUnit * 2] = {};
    std::memcpy(last, packed + units * bits * kLanes * 2, Words(rest, bits) * kLanes * 2);
    HWY_DYNAMIC_DISPATCH(Unpack)(last, 1, bits, values + units * kUnit);
}

}  // namespace kxcodecs::grid
#endif
