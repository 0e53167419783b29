// SPDX-License-Identifier: MIT
#include "grid/GridBlockChoice.h"

#include <algorithm>
#include <bit>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridBlockChoice.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

// Greater differences count as this one when predictors are compared, so that sums stay in 32 bits.
constexpr int32_t kMostCounted = 1 << 22;

HWY_INLINE void Differences(Predictor predictor, uint32_t line, PlanBlock& block) {
    const uint32_t* const now = block.first + line * block.stride;
    uint32_t predicted[kBlock];
    Predict16(predictor, now - block.stride, now - 2 * block.stride, predicted);
    uint32_t* const out = block.differences + line * kBlock;
    const uint32_t* const lanes = block.lanes + line * kBlock;
    for (uint32_t i = 0; i < kBlock; ++i)
        out[i] = (now[i] - predicted[i]) & lanes[i];
}

HWY_INLINE uint64_t Score(Predictor predictor, uint32_t lineStep, PlanBlock& block) {
    uint32_t sum = 0, stored = 0;
    for (uint32_t line = 0; line < block.lines; line += lineStep) {
        Differences(predictor, line, block);
        const uint32_t* const differences = block.differences + line * kBlock;
        const uint32_t* const lanes = block.lanes + line * kBlock;
        for (uint32_t i = 0; i < kBlock; ++i) {
            sum += static_cast<uint32_t>(
                std::clamp(static_cast<int32_t>(differences[i]), -kMostCounted, kMostCounted));
            stored -= lanes[i];
        }
    }
    const auto mean =
        static_cast<uint32_t>(static_cast<int32_t>(sum) / static_cast<int32_t>(std::max(1U, stored)));
    uint32_t score = 0;
    for (uint32_t line = 0; line < block.lines; line += lineStep) {
        const uint32_t* const differences = block.differences + line * kBlock;
        const uint32_t* const lanes = block.lanes + line * kBlock;
        for (uint32_t i = 0; i < kBlock; ++i) {
            const uint32_t rest = differences[i] - mean;
            const uint32_t size = std::min(rest, 0U - rest);
            score += std::min(size, static_cast<uint32_t>(kMostCounted)) & lanes[i];
        }
    }
    return score;
}

void Choose(const Predictor* tried, std::size_t count, uint32_t lineStep, PlanBlock& block, Predictor& best,
            uint64_t& least) {
    best = tried[0];
    least = ~uint64_t{0};
    for (std::size_t k = 0; k < count; ++k) {
        const uint64_t score = Score(tried[k], lineStep, block);
        if (score < least) {
            least = score;
            best = tried[k];
        }
    }
    for (uint32_t line = 0; line < block.lines; ++line)
        Differences(best, line, block);
}

void SetLanes(const uint16_t* mask, std::size_t maskStep, PlanBlock& block) {
    block.stored = 0;
    for (uint32_t line = 0; line < block.lines; ++line) {
        const uint32_t word = mask[line * maskStep];
        block.stored += static_cast<uint32_t>(std::popcount(word));
        for (uint32_t i = 0; i < kBlock; ++i)
            block.lanes[line * kBlock + i] = 0U - ((word >> i) & 1);
    }
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(Choose);
HWY_EXPORT(SetLanes);

void TakeMask(const uint16_t* mask, std::size_t maskStep, PlanBlock& block) noexcept {
    HWY_DYNAMIC_DISPATCH(SetLanes)(mask, maskStep, block);
}

Predictor BestPredictor(std::span<const Predictor> tried, uint32_t lineStep, PlanBlock& block,
                        uint64_t& score) noexcept {
    Predictor best{};
    HWY_DYNAMIC_DISPATCH(Choose)(tried.data(), tried.size(), lineStep, block, best, score);
    return best;
}

}  // namespace kxcodecs::grid
#endif
