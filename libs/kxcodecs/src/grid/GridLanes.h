// SPDX-License-Identifier: MIT
// Lanes of 32-bit numbers and masks of 16 cells, once for each kind of vectors: include it behind highway.h.
#if defined(KXGRID_LANES_TOGGLE) == defined(HWY_TARGET_TOGGLE)
#ifdef KXGRID_LANES_TOGGLE
#undef KXGRID_LANES_TOGGLE
#else
#define KXGRID_LANES_TOGGLE
#endif

#include <bit>
#include <cstdint>

#include "grid/GridSimd.h"
#include "grid/GridTypes.h"

// Whether a vector has 16 lanes that a mask can move apart and together.
#undef KXGRID_WIDE
#if HWY_TARGET <= HWY_AVX3
#define KXGRID_WIDE 1
#else
#define KXGRID_WIDE 0
#endif

HWY_BEFORE_NAMESPACE();
namespace kxcodecs::grid::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;
// A group of cells at most; elsewhere 8 lanes, so that one byte of a mask tells what belongs in a vector.
using U32 = hn::CappedTag<uint32_t, KXGRID_WIDE ? 16 : 8>;
using I32 = hn::RebindToSigned<U32>;
using V = hn::Vec<U32>;
using M = hn::Mask<U32>;

// Bits that are set; the library's function may be compiled for lesser processors.
HWY_INLINE uint32_t CountBits(uint32_t bits) {
#if defined(__GNUC__) || defined(__clang__)
    return static_cast<uint32_t>(__builtin_popcount(bits));
#else
    return static_cast<uint32_t>(std::popcount(bits));
#endif
}

// The lanes whose bits are set, the lowest first.
HWY_INLINE M LanesOf(uint32_t bits) {
#if KXGRID_WIDE
    return M{static_cast<__mmask16>(bits)};
#else
    HWY_ALIGN static constexpr uint32_t kBits[8] = {1, 2, 4, 8, 16, 32, 64, 128};
    return hn::TestBit(hn::Set(U32(), bits), hn::Load(U32(), kBits));
#endif
}

// The way back.
HWY_INLINE uint32_t BitsOf(M lanes) {
#if KXGRID_WIDE
    return lanes.raw;
#else
    uint8_t bytes[8] = {};
    hn::StoreMaskBits(U32(), lanes, bytes);
    return bytes[0];
#endif
}

// `bits` of as many lanes as a vector has.
HWY_INLINE uint32_t LaneBits(uint32_t word, std::size_t from) {
    return (word >> from) & ((1U << hn::Lanes(U32())) - 1);
}

// The first numbers at `from`, in turn, in the lanes whose bits are set; what else stands there is undefined.
// As many numbers as there are lanes are readable.
HWY_INLINE V Spread(const uint32_t* from, uint32_t bits) {
#if KXGRID_WIDE
    return V{_mm512_maskz_expand_epi32(static_cast<__mmask16>(bits), _mm512_loadu_si512(from))};
#else
    const U32 d;
    const hn::Rebind<uint8_t, U32> d8;
    const V places = hn::PromoteTo(d, hn::LoadU(d8, kPlaces.of[bits]));
    return hn::TableLookupLanes(hn::LoadU(d, from), hn::IndicesFromVec(d, places));
#endif
}

HWY_INLINE V Zigzagged(V value) {
    const U32 d;
    return hn::Xor(hn::BitCast(d, hn::ShiftRight<31>(hn::BitCast(I32(), value))), hn::ShiftLeft<1>(value));
}
HWY_INLINE V Unzigzagged(V value) {
    const U32 d;
    return hn::Xor(hn::ShiftRight<1>(value), hn::Sub(hn::Zero(d), hn::And(value, hn::Set(d, 1))));
}

#if KXGRID_WIDE
// Lanes from `By` on, continued by those of the next vector.
template <int By>
HWY_INLINE V Slid(V lanes, V next) {
    return V{_mm512_alignr_epi32(next.raw, lanes.raw, By)};
}
#endif

// The sum of n cells of a line around the same place, with the weights of the predictors.
template <int Taps>
HWY_INLINE V Sum(const uint32_t* a) {
    const U32 d;
    if constexpr (Taps == 1) {
        return hn::LoadU(d, a);
#if KXGRID_WIDE
    } else if constexpr (Taps == 3) {
        // Whole vectors alone are loaded: what two of them hold together may still be on its way to memory.
        const V left = hn::Load(d, a - kBlock), middle = hn::Load(d, a), right = hn::Load(d, a + kBlock);
        return hn::Add(hn::Add(Slid<15>(left, middle), Slid<1>(middle, right)), hn::ShiftLeft<1>(middle));
    } else if constexpr (Taps == 7 || Taps == 15) {
        const V left = hn::Load(d, a - kBlock), middle = hn::Load(d, a), right = hn::Load(d, a + kBlock);
        // Sums of 2, of 4, of 8 cells from each one on.
        const V left2 = hn::Add(left, Slid<1>(left, middle)),
                middle2 = hn::Add(middle, Slid<1>(middle, right)),
                right2 = hn::Add(right, Slid<1>(right, right));
        const V left4 = hn::Add(left2, Slid<2>(left2, middle2)),
                middle4 = hn::Add(middle2, Slid<2>(middle2, right2));
        if constexpr (Taps == 7) return hn::Add(Slid<13>(left4, middle4), middle4);
        const V right4 = hn::Add(right2, Slid<2>(right2, right2));
        const V left8 = hn::Add(left4, Slid<4>(left4, middle4)),
                middle8 = hn::Add(middle4, Slid<4>(middle4, right4));
        return hn::Add(Slid<9>(left8, middle8), middle8);
#endif
    } else if constexpr (Taps == 3) {
        return hn::Add(hn::Add(hn::LoadU(d, a - 1), hn::LoadU(d, a + 1)), hn::ShiftLeft<1>(hn::LoadU(d, a)));
    } else if constexpr (Taps == 5) {
        const V inner = hn::Add(hn::Add(hn::LoadU(d, a - 1), hn::LoadU(d, a)), hn::LoadU(d, a + 1));
        return hn::Add(hn::Add(hn::LoadU(d, a - 2), hn::LoadU(d, a + 2)), hn::ShiftLeft<1>(inner));
    } else if constexpr (Taps == 7) {
        const V left = hn::Add(hn::Add(hn::LoadU(d, a - 3), hn::LoadU(d, a - 2)), hn::LoadU(d, a - 1));
        const V right = hn::Add(hn::Add(hn::LoadU(d, a + 1), hn::LoadU(d, a + 2)), hn::LoadU(d, a + 3));
        return hn::Add(hn::Add(left, right), hn::ShiftLeft<1>(hn::LoadU(d, a)));
    } else {
        const V left = hn::Add(hn::Add(hn::LoadU(d, a - 7), hn::LoadU(d, a - 6)),
                               hn::Add(hn::LoadU(d, a - 5), hn::LoadU(d, a - 4)));
        const V right = hn::Add(hn::Add(hn::LoadU(d, a + 7), hn::LoadU(d, a + 6)),
                                hn::Add(hn::LoadU(d, a + 5), hn::LoadU(d, a + 4)));
        return hn::Add(hn::Add(left, right), Sum<7>(a));
    }
}

// A predictor: its taps, the weights of the line before and of the one before that, and the bits that are
// shifted out beyond those of the taps' weights.
template <int Taps, int WeightA, int WeightB, int ExtraBits>
struct Weights {
    static constexpr int kTaps = Taps;
    // Whether it asks for the line before the last one.
    static constexpr bool kTwoLines = WeightB != 0;

    // Predictions of as many cells as a vector has lanes.
    static HWY_INLINE V Predict(const uint32_t* before, const uint32_t* beforeThat) {
        const U32 d;
        if constexpr (Taps == 0) {
            return hn::Zero(d);
        } else if constexpr (kTwoLines) {
            return Of(Sum<Taps>(before), Sum<Taps>(beforeThat));
        } else {
            return Of(Sum<Taps>(before), hn::Zero(d));
        }
    }
    // The same, given the sums over both lines.
    static HWY_INLINE V Of(V a, V b) {
        const U32 d;
        if constexpr (Taps == 0) {
            return hn::Zero(d);
        } else {
            constexpr int kBits = kWeightBits<Taps> + ExtraBits;
            V sum = a;
            if constexpr (WeightA >= 2) sum = hn::Add(sum, a);
            if constexpr (WeightA == 3) sum = hn::Add(sum, a);
            if constexpr (WeightB == 1) sum = hn::Add(sum, b);
            if constexpr (WeightB == -1) sum = hn::Sub(sum, b);
            if constexpr (kBits == 0) {
                return sum;
            } else {
                const V rounded = hn::Add(sum, hn::Set(d, uint32_t{1} << (kBits - 1)));
                return hn::BitCast(d, hn::ShiftRight<kBits>(hn::BitCast(I32(), rounded)));
            }
        }
    }
};

}  // namespace
}  // namespace kxcodecs::grid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
