// SPDX-License-Identifier: MIT
#include <algorithm>
#include <bit>

#include "ByteFilter.h"
#include "grid/GridPayload.h"
#include "grid/GridPlaces.h"
#include "grid/GridPrediction.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridCheck.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

#ifndef KXGRID_CHECK
#define KXGRID_CHECK
namespace kxcodecs::grid {

constexpr std::size_t kCheckLanes = 16;
constexpr std::size_t kCheckRow = kCheckLanes * 4;
// In each lane: the sum of its words, and the sum of that after each word.
struct CheckSums {
    uint32_t sums[kCheckLanes] = {};
    uint32_t sumsOfSums[kCheckLanes] = {};
};
inline uint32_t LoadWord(const unsigned char* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

void AddRows(const unsigned char* bytes, std::size_t rows, CheckSums& out) {
#if HWY_TARGET != HWY_SCALAR
    if constexpr (std::endian::native == std::endian::little) {
        const U32 d;
        const hn::Repartition<uint8_t, U32> d8;
        for (std::size_t lane = 0; lane < kCheckLanes; lane += hn::Lanes(d)) {
            V sum = hn::LoadU(d, out.sums + lane), sumOfSums = hn::LoadU(d, out.sumsOfSums + lane);
            for (std::size_t row = 0; row < rows; ++row) {
                const auto words = hn::LoadU(d8, bytes + row * kCheckRow + lane * 4);
                sum = hn::Add(sum, hn::BitCast(d, words));
                sumOfSums = hn::Add(sumOfSums, sum);
            }
            hn::StoreU(sum, d, out.sums + lane);
            hn::StoreU(sumOfSums, d, out.sumsOfSums + lane);
        }
        return;
    }
#endif
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t lane = 0; lane < kCheckLanes; ++lane) {
            out.sums[lane] += LoadWord(bytes + row * kCheckRow + 4 * lane);
            out.sumsOfSums[lane] += out.sums[lane];
        }
    }
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(AddRows);

uint32_t CheckOf(std::span<const unsigned char> front, uint32_t width, uint32_t height, uint64_t elementBytes,
                 std::span<const unsigned char> bytes) noexcept {
    CheckSums sums;
    const std::size_t rows = bytes.size() / kCheckRow;
    HWY_DYNAMIC_DISPATCH(AddRows)(bytes.data(), rows, sums);
    unsigned char last[kCheckRow] = {};
    std::copy(bytes.begin() + static_cast<std::ptrdiff_t>(rows * kCheckRow), bytes.end(), last);
    HWY_DYNAMIC_DISPATCH(AddRows)(last, 1, sums);
    uint32_t hash = HashOf({LoadWord(front.data()), width, height, static_cast<uint32_t>(elementBytes),
                            static_cast<uint32_t>(bytes.size())});
    for (std::size_t lane = 0; lane < kCheckLanes; ++lane) {
        hash = (hash ^ sums.sums[lane]) * 0x9E3779B1U;
        hash = (hash ^ (hash >> 15) ^ sums.sumsOfSums[lane]) * 0x85EBCA77U;
    }
    return hash ^ (hash >> 13);
}

}  // namespace kxcodecs::grid
#endif
