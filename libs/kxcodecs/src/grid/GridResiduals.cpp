// SPDX-License-Identifier: MIT
#include "grid/GridResiduals.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "grid/GridPlaces.h"
#include "grid/GridPrediction.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridResiduals.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#include "grid/GridLanes.h"

#ifndef KXGRID_PARTS
#define KXGRID_PARTS
namespace kxcodecs::grid {

// About what an exception takes: its place and how much more.
constexpr uint32_t kExceptionBits = 20;
// Tokens of a block whose residuals are 2^k in the mean: about 2^kTokenBits.
constexpr uint32_t kTokenBits = 3;
// Greater residuals count as this one in means.
constexpr uint32_t kMostMeant = uint32_t{1} << 22;
// Widths that are tried: from that of the mean less 1, and that of the greatest.
constexpr uint32_t kWidths = 6;

// Where the parts of a block go, and where its exceptions.
struct PartsOfBlock {
    uint16_t* low;
    uint8_t* tokens;  // null: none
    uint8_t* places;
    uint32_t* more;
};

}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

// The residuals from i on; behind the last one 0.
HWY_INLINE V LoadSome(const uint32_t* residuals, uint32_t i, uint32_t count) {
    const U32 d;
    const V all = hn::LoadU(d, residuals + i);
    return count - i >= hn::Lanes(d) ? all : hn::IfThenElseZero(hn::FirstN(d, count - i), all);
}

struct Sizes {
    uint32_t mean;
    uint32_t all;  // bits that any residual has
};
HWY_INLINE Sizes SizesOf(const uint32_t* residuals, uint32_t count) {
    const U32 d;
    V sum = hn::Zero(d), all = hn::Zero(d);
    for (uint32_t i = 0; i < count; i += static_cast<uint32_t>(hn::Lanes(d))) {
        const V values = LoadSome(residuals, i, count);
        sum = hn::Add(sum, hn::Min(values, hn::Set(d, kMostMeant)));
        all = hn::Or(all, values);
    }
    HWY_ALIGN uint32_t lanes[16];
    hn::Store(all, d, lanes);
    uint32_t bits = 0;
    for (std::size_t i = 0; i < hn::Lanes(d); ++i)
        bits |= lanes[i];
    return {hn::GetLane(hn::SumOfLanes(d, sum)) / count, bits};
}

// Without tokens: the width that takes the fewest bits, exceptions included.
uint32_t ExponentForWidths(const uint32_t* residuals, uint32_t count) {
    const U32 d;
    const Sizes sizes = SizesOf(residuals, count);
    const auto whole = static_cast<uint32_t>(std::bit_width(sizes.all));
    const auto meant = static_cast<uint32_t>(std::bit_width(sizes.mean));
    const uint32_t first = std::min(kMostExponent, meant > 0 ? meant - 1 : 0);
    uint32_t best = std::min(kMostExponent, whole);
    // With none but those that cannot be told otherwise.
    uint64_t least = whole <= kMostExponent ? uint64_t{whole} * count : ~uint64_t{0};
    V longer[kWidths], limits[kWidths];
    for (uint32_t k = 0; k < kWidths; ++k) {
        longer[k] = hn::Zero(d);
        limits[k] = hn::Set(d, ~uint32_t{0} << std::min(kMostExponent, first + k));
    }
    const V one = hn::Set(d, 1);
    for (uint32_t i = 0; i < count; i += static_cast<uint32_t>(hn::Lanes(d))) {
        const V values = LoadSome(residuals, i, count);
        for (uint32_t k = 0; k < kWidths; ++k)
            longer[k] =
                hn::Add(longer[k], hn::IfThenElseZero(hn::Ne(hn::And(values, limits[k]), hn::Zero(d)), one));
    }
    for (uint32_t k = 0; k < kWidths && first + k <= kMostExponent; ++k) {
        const uint32_t exceptions = hn::GetLane(hn::SumOfLanes(d, longer[k]));
        const uint64_t bits = uint64_t{first + k} * count + uint64_t{kExceptionBits} * exceptions;
        if (exceptions < kMostToken && bits < least) {
            least = bits;
            best = first + k;
        }
    }
    return best;
}

uint32_t ExponentForTokens(const uint32_t* residuals, uint32_t count) {
    const auto size = static_cast<uint32_t>(std::bit_width(SizesOf(residuals, count).mean));
    const uint32_t exponent = std::min(kMostExponent, size > kTokenBits ? size - kTokenBits : 0);
    // A few great ones make the mean great, but not the width that suits most.
    const uint32_t width = ExponentForWidths(residuals, count);
    return std::min(exponent, width > kTokenBits + 1 ? width - kTokenBits - 1 : 0);
}

uint32_t FirstExponent(bool withTokens, const uint32_t* residuals, uint32_t count) {
    return withTokens ? ExponentForTokens(residuals, count) : ExponentForWidths(residuals, count);
}

// \return the exponent around `guess` for which the codes of tokens and the low bits together are the
// shortest
uint32_t Improve(const uint32_t* costs, const uint32_t* residuals, uint32_t count, uint32_t guess) {
    const U32 d;
    const I32 di;
    uint32_t best = guess;
    uint64_t least = ~uint64_t{0};
    const uint32_t first = guess > 0 ? guess - 1 : 0, last = std::min(kMostExponent, guess + 1);
    for (uint32_t exponent = first; exponent <= last; ++exponent) {
        V sum = hn::Zero(d);
        for (uint32_t i = 0; i < count; i += static_cast<uint32_t>(hn::Lanes(d))) {
            const V high = hn::ShiftRightSame(LoadSome(residuals, i, count), static_cast<int>(exponent));
            const V token = hn::Min(high, hn::Set(d, kMostToken));
            sum = hn::Add(sum, hn::GatherIndex(d, costs, hn::BitCast(di, token)));
        }
        const uint64_t cost = hn::GetLane(hn::SumOfLanes(d, sum)) + uint64_t{16} * exponent * count;
        if (cost < least) {
            least = cost;
            best = exponent;
        }
    }
    return best;
}

// Tokens alone, to count them.
void MakeTokens(const uint32_t* residuals, uint32_t count, uint32_t exponent, uint8_t* tokens) {
    const U32 d;
    const hn::Rebind<uint8_t, U32> d8;
    for (uint32_t i = 0; i < count; i += static_cast<uint32_t>(hn::Lanes(d))) {
        const V high = hn::ShiftRightSame(hn::LoadU(d, residuals + i), static_cast<int>(exponent));
        hn::StoreU(hn::TruncateTo(d8, hn::Min(high, hn::Set(d, kMostToken))), d8, tokens + i);
    }
}

// \return how many exceptions there are
uint32_t Part(const uint32_t* residuals, uint32_t count, uint32_t exponent, const PartsOfBlock& out) {
    const U32 d;
    const hn::Rebind<uint8_t, U32> d8;
    const hn::Rebind<uint16_t, U32> d16;
    const V lowBits = hn::Set(d, (uint32_t{1} << exponent) - 1);
    const V most = hn::Set(d, out.tokens != nullptr ? kMostToken : 0U);
    uint32_t exceptions = 0;
    for (uint32_t i = 0; i < count; i += static_cast<uint32_t>(hn::Lanes(d))) {
        const V values = LoadSome(residuals, i, count);
        const V high = hn::ShiftRightSame(values, static_cast<int>(exponent));
        const V token = hn::Min(high, most);
        hn::StoreU(hn::TruncateTo(d16, hn::And(values, lowBits)), d16, out.low + i);
        if (out.tokens != nullptr) hn::StoreU(hn::TruncateTo(d8, token), d8, out.tokens + i);
        for (uint32_t bits = BitsOf(hn::Ne(high, token)); bits != 0; bits &= bits - 1) {
            const uint32_t k = i + static_cast<uint32_t>(std::countr_zero(bits));
            out.places[exceptions] = static_cast<uint8_t>(k);
            out.more[exceptions] = (residuals[k] >> exponent) - hn::GetLane(most);
            ++exceptions;
        }
    }
    return exceptions;
}

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kxcodecs::grid {

HWY_EXPORT(FirstExponent);
HWY_EXPORT(Improve);
HWY_EXPORT(MakeTokens);
HWY_EXPORT(Part);

namespace {

// What each token costs, in sixteenths of a bit, once it is known how often each appears; the last one is an
// exception.
void CountCosts(const uint8_t* tokens, std::size_t count, uint32_t costs[]) {
    uint32_t counts[4][kMostToken + 1] = {};
    for (std::size_t i = 0; i < count; ++i)
        ++counts[i % 4][tokens[i]];
    const double total = static_cast<double>(count) + kMostToken + 1;
    for (uint32_t token = 0; token <= kMostToken; ++token) {
        const uint32_t times = counts[0][token] + counts[1][token] + counts[2][token] + counts[3][token];
        // No code of the packer is longer than 11 bits.
        costs[token] = static_cast<uint32_t>(std::min(11.0, std::log2(total / (times + 1))) * 16);
    }
    costs[kMostToken] += 16 * kExceptionBits;
}

template <class Visit>
void ForBlocks(const GridPlan& plan, const Visit& visit) {
    const uint32_t* residuals = plan.residuals.data();
    for (std::size_t i = 0; i < plan.counts.size(); ++i) {
        const uint32_t count = plan.counts[i];
        if (count > 0) visit(i, residuals, count);
        residuals += count;
    }
}

void ChooseExponents(const GridPlan& plan, bool withTokens, GridResiduals& out) {
    std::size_t all = 0;
    out.exponents.assign(plan.counts.size(), 0);
    ForBlocks(plan, [&](std::size_t i, const uint32_t* residuals, uint32_t count) {
        out.exponents[i] =
            static_cast<uint8_t>(HWY_DYNAMIC_DISPATCH(FirstExponent)(withTokens, residuals, count));
        all += count;
    });
    out.tokenCount = 0;
    out.tokens.clear();
    if (!withTokens) return;
    out.tokenCount = all;
    out.tokens.resize(all + kBlock);
    for (int round = 0; round < 2; ++round) {
        uint8_t* token = out.tokens.data();
        ForBlocks(plan, [&](std::size_t i, const uint32_t* residuals, uint32_t count) {
            HWY_DYNAMIC_DISPATCH(MakeTokens)(residuals, count, out.exponents[i], token);
            token += count;
        });
        uint32_t costs[kMostToken + 1];
        CountCosts(out.tokens.data(), all, costs);
        ForBlocks(plan, [&](std::size_t i, const uint32_t* residuals, uint32_t count) {
            out.exponents[i] = static_cast<uint8_t>(
                HWY_DYNAMIC_DISPATCH(Improve)(costs, residuals, count, out.exponents[i]));
        });
    }
}

}  // namespace

bool PartResiduals(const GridPlan& plan, bool withTokens, GridResiduals& out) {
    ChooseExponents(plan, withTokens, out);
    const std::size_t blocks = plan.counts.size();
    std::size_t starts[kMostExponent + 2] = {};
    for (std::size_t i = 0; i < blocks; ++i)
        starts[out.exponents[i] + 1U] += plan.counts[i];
    // Blocks without low bits leave none: they write over each other, behind all others.
    starts[1] = 0;
    for (uint32_t e = 1; e <= kMostExponent + 1; ++e) {
        starts[e] += e > 1 ? starts[e - 1] : 0;
        out.lowStarts[e] = starts[e];
    }
    out.lowStarts[0] = 0;
    const std::size_t all = starts[kMostExponent + 1];
    if (out.low.size() < all + kBlockCells + kBlock) out.low.resize(all + kBlockCells + kBlock);

    out.exceptionCounts.assign(blocks, 0);
    out.exceptionPlaces.clear();
    out.exceptionMore.clear();
    uint8_t* token = out.tokens.data();
    bool good = true;
    ForBlocks(plan, [&](std::size_t i, const uint32_t* residuals, uint32_t count) {
        uint8_t places[kBlockCells];
        uint32_t more[kBlockCells];
        const uint32_t exponent = out.exponents[i];
        // Vectors may write beyond the block: what is there is not there yet.
        uint16_t block[kBlockCells + kBlock];
        uint16_t* const low = out.low.data() + (exponent == 0 ? all : starts[exponent]);
        const uint32_t exceptions = HWY_DYNAMIC_DISPATCH(Part)(
            residuals, count, exponent, {block, withTokens ? token : nullptr, places, more});
        std::copy_n(block, count, low);
        if (exponent > 0) starts[exponent] += count;
        if (withTokens) token += count;
        good = good && exceptions <= std::numeric_limits<uint8_t>::max();
        out.exceptionCounts[i] = static_cast<uint8_t>(exceptions);
        out.exceptionPlaces.insert(out.exceptionPlaces.end(), places, places + exceptions);
        out.exceptionMore.insert(out.exceptionMore.end(), more, more + exceptions);
    });
    return good;
}

}  // namespace kxcodecs::grid
#endif
