// SPDX-License-Identifier: MIT
#include "grid/GridBlockRow.h"

#include <bit>

#include "grid/GridPrediction.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grid/GridBlockRow.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.
#include <hwy/highway.h>

#ifndef KXGRID_PLACES
#define KXGRID_PLACES
namespace kxcodecs::grid {

// For each byte of a mask: which of the stored cells stands in each of its 8 places.
struct Places {
    uint8_t of[256][8];
};
constexpr Places MakePlaces() {
    Places places{};
    for (uint32_t mask = 0; mask < 256; ++mask) {
        uint8_t next = 0;
        for (uint32_t bit = 0; bit < 8; ++bit) {
            places.of[mask][bit] = next;
            if ((mask >> bit) & 1) ++next;
        }
    }
    return places;
}
inline constexpr Places kPlaces = MakePlaces();

}  // namespace kxcodecs::grid
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;
// At most 8 lanes, so that one byte of the mask tells which residuals belong in a vector.
using U32 = hn::CappedTag<uint32_t, 8>;
using I32 = hn::RebindToSigned<U32>;
using V = hn::Vec<U32>;

HWY_INLINE V Zigzagged(V value) {
    const U32 d;
    return hn::Xor(hn::ShiftRight<1>(value), hn::Sub(hn::Zero(d), hn::And(value, hn::Set(d, 1))));
}

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
        hn::StoreU(hn::Add(Zigzagged(value), offset), d, residuals + i);
    }
    for (uint32_t i = 0; i < block.exceptions; ++i) {
        const uint32_t at = block.places[i];
        const uint32_t token = Tokens ? block.tokens[at] : 0U;
        residuals[at] =
            UndoZigzag(((token + block.more[i]) << block.exponent) | block.low[at]) + block.offset;
    }
}

template <int Taps>
HWY_INLINE V Sum(const uint32_t* a) {
    const U32 d;
    const auto at = [&](int i) HWY_ATTR { return hn::LoadU(d, a + i); };
    if constexpr (Taps == 1) {
        return at(0);
    } else if constexpr (Taps == 3) {
        return hn::Add(hn::Add(at(-1), at(1)), hn::ShiftLeft<1>(at(0)));
    } else if constexpr (Taps == 5) {
        const V inner = hn::Add(hn::Add(at(-1), at(0)), at(1));
        return hn::Add(hn::Add(at(-2), at(2)), hn::ShiftLeft<1>(inner));
    } else if constexpr (Taps == 7) {
        const V left = hn::Add(hn::Add(at(-3), at(-2)), at(-1)),
                right = hn::Add(hn::Add(at(1), at(2)), at(3));
        return hn::Add(hn::Add(left, right), hn::ShiftLeft<1>(at(0)));
    } else {
        const V left = hn::Add(hn::Add(at(-7), at(-6)), hn::Add(at(-5), at(-4)));
        const V right = hn::Add(hn::Add(at(7), at(6)), hn::Add(at(5), at(4)));
        return hn::Add(hn::Add(left, right), Sum<7>(a));
    }
}

struct Line {
    const uint32_t* before;
    const uint32_t* beforeThat;
    const uint32_t* residuals;
    uint32_t* now;
    uint32_t mask;
};

template <int Taps, int WeightA, int WeightB, int ExtraBits>
HWY_INLINE V Predict(const Line& line, std::size_t i) {
    const U32 d;
    constexpr int kBits = kWeightBits<Taps> + ExtraBits;
    const V a = Sum<Taps>(line.before + i);
    V sum = a;
    if constexpr (WeightA >= 2) sum = hn::Add(sum, a);
    if constexpr (WeightA == 3) sum = hn::Add(sum, a);
    if constexpr (WeightB == 1) sum = hn::Add(sum, Sum<Taps>(line.beforeThat + i));
    if constexpr (WeightB == -1) sum = hn::Sub(sum, Sum<Taps>(line.beforeThat + i));
    if constexpr (kBits == 0) {
        return sum;
    } else {
        const V rounded = hn::Add(sum, hn::Set(d, uint32_t{1} << (kBits - 1)));
        return hn::BitCast(d, hn::ShiftRight<kBits>(hn::BitCast(I32(), rounded)));
    }
}

// One line of a block. \return residuals used
template <class Prediction>
HWY_INLINE std::size_t DecodeLine(const Line& line, const Prediction& prediction) {
    const U32 d;
    const hn::Rebind<uint8_t, U32> d8;
    const std::size_t n = hn::Lanes(d);
    if (line.mask == 0xFFFF) {
        for (std::size_t i = 0; i < kBlock; i += n)
            hn::StoreU(hn::Add(prediction(i), hn::LoadU(d, line.residuals + i)), d, line.now + i);
        return kBlock;
    }
    const uint32_t* residuals = line.residuals;
    const uint32_t lanes = n == 32 ? ~0U : (1U << n) - 1;
    for (std::size_t i = 0; i < kBlock; i += n) {
        const uint32_t bits = (line.mask >> i) & lanes;
        const V places = hn::PromoteTo(d, hn::LoadU(d8, kPlaces.of[bits]));
        const V spread = hn::TableLookupLanes(hn::LoadU(d, residuals), hn::IndicesFromVec(d, places));
        const V bit = hn::Set(d, bits);
        alignas(32) static constexpr uint32_t kBits[8] = {1, 2, 4, 8, 16, 32, 64, 128};
        const auto stored = hn::TestBit(bit, hn::LoadU(d, kBits));
        hn::StoreU(hn::IfThenElse(stored, hn::Add(prediction(i), spread), hn::LoadU(d, line.before + i)), d,
                   line.now + i);
        residuals += std::popcount(bits);
    }
    return static_cast<std::size_t>(residuals - line.residuals);
}

template <int Taps, int WeightA, int WeightB, int ExtraBits>
HWY_INLINE std::size_t DecodeWith(const Line& line) {
    return DecodeLine(
        line, [&](std::size_t i) HWY_ATTR { return Predict<Taps, WeightA, WeightB, ExtraBits>(line, i); });
}

HWY_INLINE std::size_t DecodeAny(Predictor predictor, const Line& line) {
    switch (predictor) {
        case Predictor::Copy:
            return DecodeWith<1, 1, 0, 0>(line);
        case Predictor::Mean3:
            return DecodeWith<3, 1, 0, 0>(line);
        case Predictor::Mean5:
            return DecodeWith<5, 1, 0, 0>(line);
        case Predictor::Mean7:
            return DecodeWith<7, 1, 0, 0>(line);
        case Predictor::Mean15:
            return DecodeWith<15, 1, 0, 0>(line);
        case Predictor::Both1:
            return DecodeWith<1, 1, 1, 1>(line);
        case Predictor::Both3:
            return DecodeWith<3, 1, 1, 1>(line);
        case Predictor::Both7:
            return DecodeWith<7, 1, 1, 1>(line);
        case Predictor::Both15:
            return DecodeWith<15, 1, 1, 1>(line);
        case Predictor::Half1:
            return DecodeWith<1, 3, -1, 1>(line);
        case Predictor::Half3:
            return DecodeWith<3, 3, -1, 1>(line);
        case Predictor::Half7:
            return DecodeWith<7, 3, -1, 1>(line);
        case Predictor::Half15:
            return DecodeWith<15, 3, -1, 1>(line);
        case Predictor::Slope3:
            return DecodeWith<3, 2, -1, 0>(line);
        case Predictor::Slope7:
            return DecodeWith<7, 2, -1, 0>(line);
        case Predictor::Slope15:
            return DecodeWith<15, 2, -1, 0>(line);
        case Predictor::Zero:
            break;
    }
    return DecodeLine(line, [](std::size_t) HWY_ATTR { return hn::Zero(U32()); });
}

void DecodeRow(const BlockRow& row) {
    const U32 d;
    const std::size_t n = hn::Lanes(d);
    const uint32_t groups = row.groups;
    const std::size_t padded = std::size_t{groups} * kBlock;
    for (uint32_t group = 0; group < groups; ++group) {
        const BlockInput& block = row.blocks[group];
        uint32_t* const residuals = row.residuals + std::size_t{group} * kBlockCells;
        if (block.tokens != nullptr) {
            Assemble<true>(block, residuals);
        } else {
            Assemble<false>(block, residuals);
        }
        row.next[group] = residuals;
    }
    for (uint32_t line = 0; line < row.lines; ++line) {
        uint32_t* const now = row.line + line * row.stride;
        const uint32_t* const before = now - row.stride;
        const uint16_t* const mask = row.mask + std::size_t{line} * groups;
        for (uint32_t group = 0; group < groups; ++group) {
            const std::size_t at = std::size_t{group} * kBlock;
            if (mask[group] == 0) {
                for (std::size_t i = 0; i < kBlock; i += n)
                    hn::StoreU(hn::LoadU(d, before + at + i), d, now + at + i);
                continue;
            }
            const Line part{before + at, before + at - row.stride, row.next[group], now + at, mask[group]};
            row.next[group] += DecodeAny(static_cast<Predictor>(row.blocks[group].predictor), part);
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
            stored += static_cast<uint32_t>(std::popcount(mask[line * groups + group]));
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
