// SPDX-License-Identifier: MIT
#include "grid/GridBlockChoice.h"

#include <algorithm>
#include <bit>

#include "grid/GridPlaces.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridBlockChoice.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

// Greater differences count as this one, so that sums stay in 32 bits.
constexpr int32_t kMostCounted = 1 << 22;

// Where a block lies, and what is left of its cells.
struct Block {
    const uint32_t* first;
    std::size_t stride;
    const uint16_t* mask;
    std::size_t maskStep;
    uint32_t lines;
    alignas(64) uint32_t differences[kBlockCells];  // 0 in cells that are not stored
};

HWY_INLINE V Size(V difference) {
    return hn::Min(difference, hn::Sub(hn::Zero(U32()), difference));
}
HWY_INLINE hn::Vec<I32> Clamped(V difference, V most) {
    const I32 d;
    const auto limit = hn::BitCast(d, most);
    return hn::Max(hn::Neg(limit), hn::Min(limit, hn::BitCast(d, difference)));
}

// \return the sum of the differences, none of which counts for more than kMostCounted
template <class Prediction>
int32_t Differences(Block& block, uint32_t lineStep) {
    const U32 d;
    const V most = hn::Set(d, kMostCounted);
    auto sum = hn::Zero(I32());
    for (uint32_t line = 0; line < block.lines; line += lineStep) {
        const uint32_t* const now = block.first + line * block.stride;
        const uint32_t word = block.mask[line * block.maskStep];
        for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d)) {
            const V predicted = Prediction::Predict(now - block.stride + i, now - 2 * block.stride + i);
            const V difference =
                hn::IfThenElseZero(LanesOf(LaneBits(word, i)), hn::Sub(hn::LoadU(d, now + i), predicted));
            hn::Store(difference, d, block.differences + line * kBlock + i);
            sum = hn::Add(sum, Clamped(difference, most));
        }
    }
    return hn::GetLane(hn::SumOfLanes(I32(), sum));
}

// About the sum of what is left behind an offset.
HWY_INLINE uint32_t Left(const Block& block, uint32_t offset, uint32_t lineStep) {
    const U32 d;
    const V most = hn::Set(d, kMostCounted), middle = hn::Set(d, offset);
    V sum = hn::Zero(d);
    for (uint32_t line = 0; line < block.lines; line += lineStep) {
        const uint32_t word = block.mask[line * block.maskStep];
        for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d)) {
            const V rest = Size(hn::Sub(hn::Load(d, block.differences + line * kBlock + i), middle));
            sum = hn::Add(sum, hn::IfThenElseZero(LanesOf(LaneBits(word, i)), hn::Min(rest, most)));
        }
    }
    return hn::GetLane(hn::SumOfLanes(d, sum));
}

// What is to be added to `offset` so that it lies in the middle of those differences that are not far away.
HWY_INLINE int32_t Nearer(const Block& block, uint32_t offset, uint32_t reach) {
    const U32 d;
    const V most = hn::Set(d, reach), middle = hn::Set(d, offset);
    auto sum = hn::Zero(I32());
    for (uint32_t line = 0; line < block.lines; ++line) {
        const uint32_t word = block.mask[line * block.maskStep];
        for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d)) {
            const V rest = hn::Sub(hn::Load(d, block.differences + line * kBlock + i), middle);
            sum = hn::Add(sum, Clamped(hn::IfThenElseZero(LanesOf(LaneBits(word, i)), rest), most));
        }
    }
    return hn::GetLane(hn::SumOfLanes(I32(), sum));
}

using Differ = int32_t (*)(Block&, uint32_t);
// In the order of Predictor.
constexpr Differ kDiffer[kPredictors] = {
    &Differences<Weights<1, 1, 0, 0>>,   &Differences<Weights<3, 1, 0, 0>>,
    &Differences<Weights<5, 1, 0, 0>>,   &Differences<Weights<7, 1, 0, 0>>,
    &Differences<Weights<15, 1, 0, 0>>,  &Differences<Weights<1, 1, 1, 1>>,
    &Differences<Weights<3, 1, 1, 1>>,   &Differences<Weights<7, 1, 1, 1>>,
    &Differences<Weights<15, 1, 1, 1>>,  &Differences<Weights<1, 3, -1, 1>>,
    &Differences<Weights<3, 3, -1, 1>>,  &Differences<Weights<7, 3, -1, 1>>,
    &Differences<Weights<15, 3, -1, 1>>, &Differences<Weights<3, 2, -1, 0>>,
    &Differences<Weights<7, 2, -1, 0>>,  &Differences<Weights<15, 2, -1, 0>>,
    &Differences<Weights<0, 0, 0, 0>>};

uint32_t CountStored(const Block& block, uint32_t lineStep) {
    uint32_t stored = 0;
    for (uint32_t line = 0; line < block.lines; line += lineStep)
        stored += CountBits(block.mask[line * block.maskStep]);
    return stored;
}
uint32_t Mean(int32_t sum, uint32_t count) {
    return static_cast<uint32_t>(sum / static_cast<int32_t>(std::max(1U, count)));
}

void TakeBlock(const PlanRow& row, std::size_t group, Block& block) {
    block.first = row.first + group * kBlock;
    block.stride = row.stride;
    block.mask = row.mask + group;
    block.maskStep = row.groups;
    block.lines = row.lines;
}

void Score(const PlanRow& row, const Predictor* tried, std::size_t count, uint32_t lineStep, uint32_t* scores,
           uint32_t* stored) {
    Block block;
    for (std::size_t group = 0; group < row.groups; ++group) {
        TakeBlock(row, group, block);
        stored[group] = CountStored(block, lineStep);
        for (std::size_t k = 0; k < count; ++k) {
            uint32_t& score = scores[k * row.groups + group];
            score = 0;
            if (stored[group] == 0) continue;
            const int32_t sum = kDiffer[static_cast<std::size_t>(tried[k])](block, lineStep);
            score = Left(block, Mean(sum, stored[group]), lineStep);
        }
    }
}

// Stored cells, moved together; readable and writable 16 numbers beyond. \return behind the last one
HWY_INLINE uint32_t* MoveTogether(V values, uint32_t bits, uint32_t* out) {
    const U32 d;
#if KXGRID_WIDE
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi32(static_cast<__mmask16>(bits), values.raw));
#else
    const hn::Rebind<uint8_t, U32> d8;
    const V places = hn::PromoteTo(d, hn::LoadU(d8, kPlaces.stored[bits]));
    hn::StoreU(hn::TableLookupLanes(values, hn::IndicesFromVec(d, places)), d, out);
#endif
    return out + CountBits(bits);
}

std::size_t Choose(const PlanRow& row, const Predictor* tried, std::size_t count, const ChoiceEffort& effort,
                   const RowChoice& out, uint32_t* residuals) {
    const U32 d;
    const uint32_t lineStep = effort.lineStep;
    Block block;
    uint32_t* next = residuals;
    for (std::size_t group = 0; group < row.groups; ++group) {
        TakeBlock(row, group, block);
        const uint32_t stored = CountStored(block, 1);
        out.counts[group] = static_cast<uint16_t>(stored);
        out.predictors[group] = 0;
        out.offsets[group] = 0;
        if (stored == 0) continue;
        const uint32_t sampled = lineStep == 1 ? stored : CountStored(block, lineStep);
        std::size_t best = 0;
        if (count > 1 && sampled > 0) {
            uint32_t least = ~uint32_t{0};
            for (std::size_t k = 0; k < count; ++k) {
                const int32_t sum = kDiffer[static_cast<std::size_t>(tried[k])](block, lineStep);
                const uint32_t left = Left(block, Mean(sum, sampled), lineStep);
                if (left < least) {
                    least = left;
                    best = k;
                }
            }
        }
        const auto predictor = static_cast<std::size_t>(tried[best]);
        uint32_t offset = Mean(kDiffer[predictor](block, 1), stored);
        for (int round = 0; round < effort.offsetRounds; ++round) {
            // Ever nearer ones count, so that the middle is that of most and not that of a few far ones.
            const uint32_t reach = (Left(block, offset, 1) / stored >> (2 * round)) + 1;
            offset += Mean(Nearer(block, offset, reach), stored);
        }
        out.predictors[group] = static_cast<uint8_t>(predictor);
        out.offsets[group] = offset;
        const V middle = hn::Set(d, offset);
        for (uint32_t line = 0; line < block.lines; ++line) {
            const uint32_t word = block.mask[line * block.maskStep];
            for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d)) {
                const V rest = hn::Sub(hn::Load(d, block.differences + line * kBlock + i), middle);
                next = MoveTogether(Zigzagged(rest), LaneBits(word, i), next);
            }
        }
    }
    return static_cast<std::size_t>(next - residuals);
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(Score);
HWY_EXPORT(Choose);

void ScoreRow(const PlanRow& row, std::span<const Predictor> tried, uint32_t lineStep, uint32_t* scores,
              uint32_t* stored) noexcept {
    HWY_DYNAMIC_DISPATCH(Score)(row, tried.data(), tried.size(), lineStep, scores, stored);
}

std::size_t ChooseRow(const PlanRow& row, std::span<const Predictor> tried, const ChoiceEffort& effort,
                      const RowChoice& out, uint32_t* residuals) noexcept {
    return HWY_DYNAMIC_DISPATCH(Choose)(row, tried.data(), tried.size(), effort, out, residuals);
}

}  // namespace kxcodecs::grid
#endif
