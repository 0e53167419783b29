// SPDX-License-Identifier: MIT
#include "grid/GridBlockRow.h"

#include <algorithm>
#include <bit>

#include "grid/GridPlaces.h"
#include "grid/GridPrediction.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridBlockRow.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

// Parts of the residuals of a block become the residuals, offset included.
template <bool Tokens>
HWY_INLINE void Assemble(const BlockInput& block, uint32_t* HWY_RESTRICT residuals) {
    const U32 d;
    const hn::Rebind<uint16_t, U32> d16;
    const hn::Rebind<uint8_t, U32> d8;
    const std::size_t n = hn::Lanes(d);
    const V offset = hn::Set(d, block.offset);
    const int exponent = block.exponent;
    for (std::size_t i = 0; i < block.stored; i += n) {
        V value = hn::PromoteTo(d, hn::LoadU(d16, block.low + i));
        if constexpr (Tokens)
            value =
                hn::Or(value, hn::ShiftLeftSame(hn::PromoteTo(d, hn::LoadU(d8, block.tokens + i)), exponent));
        hn::StoreU(hn::Add(Unzigzagged(value), offset), d, residuals + i);
    }
    for (uint32_t i = 0; i < block.exceptions; ++i) {
        const uint32_t at = block.places[i];
        const uint32_t token = Tokens ? block.tokens[at] : 0U;
        residuals[at] =
            UndoZigzag(((token + block.more[i]) << block.exponent) | block.low[at]) + block.offset;
    }
}

// One line of a row of blocks.
struct Line {
    const uint32_t* before;
    const uint32_t* beforeThat;
    uint32_t* now;
    const uint16_t* mask;
    const uint32_t** residuals;  ///< the next ones of each group
};

// Some groups of a line that have the same predictor; `Full`: all their cells are stored.
template <class Prediction, bool Full>
void DecodeGroups(const Line& line, const uint32_t* groups, std::size_t count) {
    const U32 d;
    const std::size_t n = hn::Lanes(d);
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t group = groups[k], at = group * kBlock;
        const uint32_t* residuals = line.residuals[group];
        const uint32_t* const before = line.before + at;
        const uint32_t* const beforeThat = line.beforeThat + at;
        uint32_t* const now = line.now + at;
        if (Full || (!KXGRID_WIDE && line.mask[group] == 0xFFFF)) {
            for (std::size_t i = 0; i < kBlock; i += n)
                hn::StoreU(
                    hn::Add(Prediction::Predict(before + i, beforeThat + i), hn::LoadU(d, residuals + i)), d,
                    now + i);
            line.residuals[group] = residuals + kBlock;
            continue;
        }
        for (std::size_t i = 0; i < kBlock; i += n) {
            const uint32_t bits = LaneBits(line.mask[group], i);
            const V stored =
                hn::Add(Prediction::Predict(before + i, beforeThat + i), Spread(residuals, bits));
            hn::StoreU(hn::IfThenElse(LanesOf(bits), stored, hn::LoadU(d, before + i)), d, now + i);
            residuals += CountBits(bits);
        }
        line.residuals[group] = residuals;
    }
}

using GroupsDecoder = void (*)(const Line&, const uint32_t*, std::size_t);
#define KXGRID_DECODERS(...) \
    { &DecodeGroups<Weights<__VA_ARGS__>, false>, &DecodeGroups<Weights<__VA_ARGS__>, true> }
// In the order of Predictor.
constexpr GroupsDecoder kDecoders[kPredictors][2] = {
    KXGRID_DECODERS(1, 1, 0, 0),   KXGRID_DECODERS(3, 1, 0, 0),  KXGRID_DECODERS(5, 1, 0, 0),
    KXGRID_DECODERS(7, 1, 0, 0),   KXGRID_DECODERS(15, 1, 0, 0), KXGRID_DECODERS(1, 1, 1, 1),
    KXGRID_DECODERS(3, 1, 1, 1),   KXGRID_DECODERS(7, 1, 1, 1),  KXGRID_DECODERS(15, 1, 1, 1),
    KXGRID_DECODERS(1, 3, -1, 1),  KXGRID_DECODERS(3, 3, -1, 1), KXGRID_DECODERS(7, 3, -1, 1),
    KXGRID_DECODERS(15, 3, -1, 1), KXGRID_DECODERS(3, 2, -1, 0), KXGRID_DECODERS(7, 2, -1, 0),
    KXGRID_DECODERS(15, 2, -1, 0), KXGRID_DECODERS(0, 0, 0, 0)};
#undef KXGRID_DECODERS

bool AllStored(const uint16_t* mask, std::size_t words) {
    uint16_t all = 0xFFFF;
    for (std::size_t i = 0; i < words; ++i)
        all = static_cast<uint16_t>(all & mask[i]);
    return all == 0xFFFF;
}

void DecodeRow(const BlockRow& row) {
    const U32 d;
    const std::size_t n = hn::Lanes(d);
    const uint32_t groups = row.groups;
    const std::size_t padded = std::size_t{groups} * kBlock;
    // Groups that have the same predictor are decoded together: no cell of a line depends on another one.
    uint32_t starts[kPredictors + 1] = {};
    for (uint32_t group = 0; group < groups; ++group) {
        const BlockInput& block = row.blocks[group];
        uint32_t* const residuals = row.residuals + std::size_t{group} * kBlockCells;
        if (block.tokens != nullptr) {
            Assemble<true>(block, residuals);
        } else {
            Assemble<false>(block, residuals);
        }
        row.next[group] = residuals;
        ++starts[block.predictor + 1U];
    }
    for (uint32_t p = 0; p < kPredictors; ++p)
        starts[p + 1] += starts[p];
    uint32_t ends[kPredictors];
    std::copy_n(starts, kPredictors, ends);
    for (uint32_t group = 0; group < groups; ++group)
        row.order[ends[row.blocks[group].predictor]++] = group;
    uint32_t used[kPredictors], usedCount = 0;
    for (uint32_t p = 0; p < kPredictors; ++p) {
        if (ends[p] > starts[p]) used[usedCount++] = p;
    }
    const bool full = AllStored(row.mask, std::size_t{row.lines} * groups);
    for (uint32_t line = 0; line < row.lines; ++line) {
        uint32_t* const now = row.line + line * row.stride;
        const uint32_t* const before = now - row.stride;
        const Line part{before, before - row.stride, now, row.mask + std::size_t{line} * groups, row.next};
        for (uint32_t k = 0; k < usedCount; ++k) {
            const uint32_t p = used[k];
            kDecoders[p][full](part, row.order + starts[p], ends[p] - starts[p]);
        }
        const V first = hn::Set(d, now[0]), last = hn::Set(d, now[padded - 1]);
        for (std::size_t i = 0; i < kApron; i += n) {
            hn::StoreU(first, d, now - kApron + i);
            hn::StoreU(last, d, now + padded + i);
        }
    }
}

void CountRow(const uint16_t* mask, std::size_t groups, uint32_t lines, BlockInput* blocks) {
    for (std::size_t group = 0; group < groups; ++group) {
        uint32_t stored = 0;
        for (uint32_t line = 0; line < lines; ++line)
            stored += CountBits(mask[line * groups + group]);
        blocks[group].stored = static_cast<uint16_t>(stored);
    }
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(DecodeRow);
HWY_EXPORT(CountRow);

void DecodeBlockRow(const BlockRow& row) noexcept {
    HWY_DYNAMIC_DISPATCH(DecodeRow)(row);
}

void CountBlockRow(const uint16_t* mask, std::size_t groups, uint32_t lines, BlockInput* blocks) noexcept {
    HWY_DYNAMIC_DISPATCH(CountRow)(mask, groups, lines, blocks);
}

}  // namespace kxcodecs::grid
#endif
