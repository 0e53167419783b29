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
constexpr uint32_t kLanes = 16;
constexpr uint32_t kUnit = 256;
}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

// One whole unit; the words of a lane are 16 apart.
template <int Bits>
KXGRID_INLINE void UnpackUnit(const uint16_t* words, uint16_t* KXGRID_RESTRICT values) {
    constexpr uint32_t kMask = (uint32_t{1} << Bits) - 1;
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC unroll 16
#endif
    for (int row = 0; row < 16; ++row) {
        const int word = row * Bits / 16, shift = row * Bits % 16;
        const bool crosses = shift + Bits > 16;
        for (uint32_t lane = 0; lane < kLanes; ++lane) {
            uint32_t value =
                static_cast<uint32_t>(words[static_cast<uint32_t>(word) * kLanes + lane]) >> shift;
            if (crosses) {
                value |= static_cast<uint32_t>(words[static_cast<uint32_t>(word + 1) * kLanes + lane])
                         << (16 - shift);
            }
            values[static_cast<uint32_t>(row) * kLanes + lane] = static_cast<uint16_t>(value & kMask);
        }
    }
}

template <int Bits>
KXGRID_INLINE void UnpackUnits(const unsigned char* packed, uint64_t units, uint16_t* values) {
    uint16_t words[kLanes * 16];
    for (uint64_t unit = 0; unit < units; ++unit) {
        std::memcpy(words, packed + unit * Bits * 32, Bits * 32);
        if constexpr (std::endian::native == std::endian::big) {
            for (uint16_t& word : words)
                word = static_cast<uint16_t>((word << 8) | (word >> 8));
        }
        UnpackUnit<Bits>(words, values + unit * kUnit);
    }
}

KXGRID_INLINE void UnpackAny(const unsigned char* packed, uint64_t units, uint32_t bits, uint16_t* values) {
    switch (bits) {
        case 1:
            return UnpackUnits<1>(packed, units, values);
        case 2:
            return UnpackUnits<2>(packed, units, values);
        case 3:
            return UnpackUnits<3>(packed, units, values);
        case 4:
            return UnpackUnits<4>(packed, units, values);
        case 5:
            return UnpackUnits<5>(packed, units, values);
        case 6:
            return UnpackUnits<6>(packed, units, values);
        case 7:
            return UnpackUnits<7>(packed, units, values);
        case 8:
            return UnpackUnits<8>(packed, units, values);
        case 9:
            return UnpackUnits<9>(packed, units, values);
        case 10:
            return UnpackUnits<10>(packed, units, values);
        case 11:
            return UnpackUnits<11>(packed, units, values);
        case 12:
            return UnpackUnits<12>(packed, units, values);
        case 13:
            return UnpackUnits<13>(packed, units, values);
        case 14:
            return UnpackUnits<14>(packed, units, values);
        case 15:
            return UnpackUnits<15>(packed, units, values);
        case 16:
            return UnpackUnits<16>(packed, units, values);
        default:
            std::fill_n(values, units * kUnit, uint16_t{0});
    }
}

void Unpack(const unsigned char* packed, uint64_t units, uint32_t bits, uint16_t* values) {
    UnpackAny(packed, units, bits, values);
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(Unpack);

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
    for (std::size_t first = 0; first < values.size(); first += kUnit) {
        const std::size_t count = std::min<std::size_t>(kUnit, values.size() - first);
        uint16_t words[kLanes * 17] = {};
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = i / kLanes * bits;
            const uint32_t shifted = static_cast<uint32_t>(values[first + i]) << (at % 16);
            uint16_t* const word = words + at / 16 * kLanes + i % kLanes;
            word[0] = static_cast<uint16_t>(word[0] | shifted);
            word[kLanes] = static_cast<uint16_t>(word[kLanes] | (shifted >> 16));
        }
        const std::size_t wordCount = static_cast<std::size_t>(Words(count, bits)) * kLanes;
        for (std::size_t i = 0; i < wordCount; ++i) {
            out.push_back(static_cast<unsigned char>(words[i]));
            out.push_back(static_cast<unsigned char>(words[i] >> 8));
        }
    }
}

void UnpackLow(const unsigned char* packed, uint64_t count, uint32_t bits, uint16_t* values) noexcept {
    const uint64_t units = count / kUnit;
    HWY_DYNAMIC_DISPATCH(Unpack)(packed, units, bits, values);
    const uint64_t rest = count % kUnit;
    if (rest == 0) return;
    unsigned char last[kUnit * 2] = {};
    if (bits > 0) {
        std::memcpy(last, packed + units * bits * kLanes * 2, Words(rest, bits) * kLanes * 2);
    }
    HWY_DYNAMIC_DISPATCH(Unpack)(last, 1, bits, values + units * kUnit);
}

}  // namespace kxcodecs::grid
#endif
