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
// \return the greatest place of an exception; any place is one in the block's room
template <bool Tokens>
HWY_INLINE uint32_t Assemble(const BlockInput& block, uint32_t* HWY_RESTRICT residuals) {
    const U32 d;
    const hn::Rebind<uint16_t, U32> d16;
    const hn::Rebind<uint8_t, U32> d8;
    const std::size_t n = hn::Lanes(d);
    const V offset = hn::Set(d, block.offset);
    // Copies: what vectors are stored into might be the block, for all the compiler knows.
    const int exponent = block.exponent;
    const uint16_t* const low = block.low;
    const uint8_t* const tokens = block.tokens;
    const std::size_t stored = block.stored;
    for (std::size_t i = 0; i < stored; i += n) {
        V value = hn::PromoteTo(d, hn::LoadU(d16, low + i));
        if constexpr (Tokens)
            value = hn::Or(value, hn::ShiftLeftSame(hn::PromoteTo(d, hn::LoadU(d8, tokens + i)), exponent));
        hn::Store(hn::Add(Unzigzagged(value), offset), d, residuals + i);
    }
    uint32_t last = 0;
    for (uint32_t i = 0; i < block.exceptions; ++i) {
        const uint32_t at = block.places[i];
        last = std::max(last, at);
        const uint32_t token = Tokens ? block.tokens[at] : 0U;
        residuals[at] =
            UndoZigzag(((token + block.more[i]) << block.exponent) | block.low[at]) + block.offset;
    }
    return last;
}

// One line of a row of blocks.
struct Line {
    const uint32_t* before;
    const uint32_t* beforeThat;
    uint32_t* now;
    const uint16_t* mask;
    const uint32_t** residuals;  ///< the next ones of each group
    uint32_t* sums;              ///< over the line before the last one, for predictors that want them
};

// Sums that are worth being kept from one line to the next.
template <class Prediction>
constexpr bool kKeepsSums = Prediction::kTwoLines && (Prediction::kTaps > 1);

// A prediction of cells at `at`. What is now the line before is for the next line the one before that.
template <class Prediction>
HWY_INLINE V Predicted(const Line& line, std::size_t at) {
    const U32 d;
    if constexpr (kKeepsSums<Prediction>) {
        const V sum = Sum<Prediction::kTaps>(line.before + at);
        const V predicted = Prediction::Of(sum, hn::Load(d, line.sums + at));
        hn::Store(sum, d, line.sums + at);
        return predicted;
    } else {
        return Prediction::Predict(line.before + at, line.beforeThat + at);
    }
}

// Some groups of a line that have the same predictor; `Full`: all their cells are stored.
template <class Prediction, bool Full>
void DecodeGroups(const Line& given, const uint32_t* groups, std::size_t count) {
    const Line line = given;  // a copy: no store can be into it
    const U32 d;
    const std::size_t n = hn::Lanes(d);
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t group = groups[k], first = group * kBlock;
        const uint32_t* residuals = line.residuals[group];
        const uint32_t word = line.mask[group];
        if (Full || (!KXGRID_WIDE && word == 0xFFFF)) {
            for (std::size_t i = 0; i < kBlock; i += n)
                hn::Store(hn::Add(Predicted<Prediction>(line, first + i), hn::LoadU(d, residuals + i)), d,
                          line.now + first + i);
            line.residuals[group] = residuals + kBlock;
            continue;
        }
        for (std::size_t i = 0; i < kBlock; i += n) {
            const uint32_t bits = LaneBits(word, i);
            const std::size_t at = first + i;
            const V stored = hn::Add(Predicted<Prediction>(line, at), Spread(residuals, bits));
            hn::Store(hn::IfThenElse(LanesOf(bits), stored, hn::Load(d, line.before + at)), d, line.now + at);
            residuals += CountBits(bits);
        }
        line.residuals[group] = residuals;
    }
}

// Groups of which nothing is stored go on as the line before.
template <bool>
void CopyGroups(const Line& given, const uint32_t* groups, std::size_t count) {
    const Line line = given;
    const U32 d;
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t first = std::size_t{groups[k]} * kBlock;
        for (std::size_t i = first; i < first + kBlock; i += hn::Lanes(d))
            hn::Store(hn::Load(d, line.before + i), d, line.now + i);
    }
}

// The sums over the line before the last one, for a block's first line.
template <class Prediction>
void FirstSums(const uint32_t* beforeThat, uint32_t* sums) {
    if constexpr (kKeepsSums<Prediction>) {
        const U32 d;
        for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d))
            hn::Store(Sum<Prediction::kTaps>(beforeThat + i), d, sums + i);
    }
}

using GroupsDecoder = void (*)(const Line&, const uint32_t*, std::size_t);
struct Kind {
    GroupsDecoder decode[2];  ///< where cells are missing, and where none are
    void (*firstSums)(const uint32_t*, uint32_t*);
};
#define KXGRID_KIND(...)                                                                         \
    {                                                                                            \
        {&DecodeGroups<Weights<__VA_ARGS__>, false>, &DecodeGroups<Weights<__VA_ARGS__>, true>}, \
            &FirstSums<Weights<__VA_ARGS__>>                                                     \
    }
// In the order of Predictor; then the one of blocks of which nothing is stored.
constexpr uint32_t kNothing = kPredictors, kKinds = kPredictors + 1;
constexpr Kind kKindsOfBlocks[kKinds] = {
    KXGRID_KIND(1, 1, 0, 0),   KXGRID_KIND(3, 1, 0, 0),
    KXGRID_KIND(5, 1, 0, 0),   KXGRID_KIND(7, 1, 0, 0),
    KXGRID_KIND(15, 1, 0, 0),  KXGRID_KIND(1, 1, 1, 1),
    KXGRID_KIND(3, 1, 1, 1),   KXGRID_KIND(7, 1, 1, 1),
    KXGRID_KIND(15, 1, 1, 1),  KXGRID_KIND(1, 3, -1, 1),
    KXGRID_KIND(3, 3, -1, 1),  KXGRID_KIND(7, 3, -1, 1),
    KXGRID_KIND(15, 3, -1, 1), KXGRID_KIND(3, 2, -1, 0),
    KXGRID_KIND(7, 2, -1, 0),  KXGRID_KIND(15, 2, -1, 0),
    KXGRID_KIND(0, 0, 0, 0),   {{&CopyGroups<false>, &CopyGroups<true>}, &FirstSums<Weights<0, 0, 0, 0>>}};
#undef KXGRID_KIND

bool AllStored(const uint16_t* mask, std::size_t words) {
    uint16_t all = 0xFFFF;
    for (std::size_t i = 0; i < words; ++i)
        all = static_cast<uint16_t>(all & mask[i]);
    return all == 0xFFFF;
}

uint32_t KindOf(const BlockInput& block) {
    return block.stored == 0 ? kNothing : block.predictor;
}

bool DecodeRow(const BlockRow& row) {
    const U32 d;
    bool good = true;
    const std::size_t n = hn::Lanes(d);
    const uint32_t groups = row.groups;
    const std::size_t padded = std::size_t{groups} * kBlock;
    // Groups of one kind are decoded together: no cell of a line depends on another one.
    uint32_t starts[kKinds + 1] = {};
    for (uint32_t group = 0; group < groups; ++group) {
        const BlockInput& block = row.blocks[group];
        const uint32_t kind = KindOf(block);
        ++starts[kind + 1];
        if (kind == kNothing) continue;
        uint32_t* const residuals = row.residuals + std::size_t{group} * kBlockCells;
        const uint32_t last =
            block.tokens != nullptr ? Assemble<true>(block, residuals) : Assemble<false>(block, residuals);
        good = good && last < block.stored;
        row.next[group] = residuals;
        const std::size_t at = std::size_t{group} * kBlock;
        kKindsOfBlocks[kind].firstSums(row.line + at - 2 * row.stride, row.sums + at);
    }
    for (uint32_t kind = 0; kind < kKinds; ++kind)
        starts[kind + 1] += starts[kind];
    uint32_t ends[kKinds];
    std::copy_n(starts, kKinds, ends);
    for (uint32_t group = 0; group < groups; ++group)
        row.order[ends[KindOf(row.blocks[group])]++] = group;
    uint32_t used[kKinds], usedCount = 0;
    for (uint32_t kind = 0; kind < kKinds; ++kind) {
        if (ends[kind] > starts[kind]) used[usedCount++] = kind;
    }
    const bool full = AllStored(row.mask, std::size_t{row.lines} * groups);
    for (uint32_t line = 0; line < row.lines; ++line) {
        uint32_t* const now = row.line + line * row.stride;
        const uint32_t* const before = now - row.stride;
        const Line part{before,  before - row.stride, now, row.mask + std::size_t{line} * groups, row.next,
                        row.sums};
        for (uint32_t k = 0; k < usedCount; ++k) {
            const uint32_t kind = used[k];
            kKindsOfBlocks[kind].decode[full](part, row.order + starts[kind], ends[kind] - starts[kind]);
        }
        const V first = hn::Set(d, now[0]), last = hn::Set(d, now[padded - 1]);
        for (std::size_t i = 0; i < kApron; i += n) {
            hn::Store(first, d, now - kApron + i);
            hn::Store(last, d, now + padded + i);
        }
        row.sink->Put(now, part.mask, row.firstLine + line);
    }
    return good;
}

// Bits that are set in each byte.
template <class Words>
HWY_INLINE Words BitsOfBytes(Words words) {
    const hn::DFromV<Words> d;
    words = hn::Sub(words, hn::And(hn::ShiftRight<1>(words), hn::Set(d, 0x5555)));
    words =
        hn::Add(hn::And(words, hn::Set(d, 0x3333)), hn::And(hn::ShiftRight<2>(words), hn::Set(d, 0x3333)));
    return hn::And(hn::Add(words, hn::ShiftRight<4>(words)), hn::Set(d, 0x0F0F));
}

void CountRow(const uint16_t* mask, std::size_t groups, uint32_t lines, uint16_t* counts) {
    const hn::CappedTag<uint16_t, 16> d;
    const std::size_t n = hn::Lanes(d);
    std::size_t group = 0;
    for (; group + n <= groups; group += n) {
        auto sum = hn::Zero(d);  // of a byte, 16 lines have 128 bits at most
        for (uint32_t line = 0; line < lines; ++line)
            sum = hn::Add(sum, BitsOfBytes(hn::LoadU(d, mask + line * groups + group)));
        hn::StoreU(hn::Add(hn::And(sum, hn::Set(d, 0xFF)), hn::ShiftRight<8>(sum)), d, counts + group);
    }
    for (; group < groups; ++group) {
        uint32_t stored = 0;
        for (uint32_t line = 0; line < lines; ++line)
            stored += CountBits(mask[line * groups + group]);
        counts[group] = static_cast<uint16_t>(stored);
    }
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(DecodeRow);
HWY_EXPORT(CountRow);

bool DecodeBlockRow(const BlockRow& row) noexcept {
    return HWY_DYNAMIC_DISPATCH(DecodeRow)(row);
}

void CountBlockRow(const uint16_t* mask, std::size_t groups, uint32_t lines, uint16_t* counts) noexcept {
    HWY_DYNAMIC_DISPATCH(CountRow)(mask, groups, lines, counts);
}

}  // namespace kxcodecs::grid
#endif
