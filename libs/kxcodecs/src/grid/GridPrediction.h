// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "grid/GridSimd.h"
#include "grid/GridTypes.h"

namespace kxcodecs::grid {

/// How a cell is predicted from the line before it (a) and the one before that (b). "Mean n" weighs n cells
/// of a line around the same place. All sums are modulo 2^32 and shifted with their sign, so they are exact
/// everywhere. The numbers stand in files.
enum class Predictor : uint8_t {
    Copy = 0,      ///< a
    Mean3 = 1,     ///< weights 1 2 1
    Mean5 = 2,     ///< weights 1 2 2 2 1
    Mean7 = 3,     ///< weights 1 1 1 2 1 1 1
    Mean15 = 4,    ///< fifteen ones, the middle one twice
    Both1 = 5,     ///< mean of a and b
    Both3 = 6,     ///< mean of Mean3 in a and in b
    Both7 = 7,     ///< of Mean7
    Both15 = 8,    ///< of Mean15
    Half1 = 9,     ///< a + (a - b) / 2
    Half3 = 10,    ///< the same of Mean3
    Half7 = 11,    ///< of Mean7
    Half15 = 12,   ///< of Mean15
    Slope3 = 13,   ///< 2 a - b of Mean3
    Slope7 = 14,   ///< of Mean7
    Slope15 = 15,  ///< of Mean15
    Zero = 16,     ///< 0: for cells that have nothing to do with each other
};
constexpr uint32_t kPredictors = 17;

template <int Taps>
KXGRID_INLINE uint32_t Weighted(const uint32_t* a) {
    if constexpr (Taps == 1) return a[0];
    if constexpr (Taps == 3) return a[-1] + a[0] + a[0] + a[1];
    if constexpr (Taps == 5) return a[-2] + a[2] + 2 * (a[-1] + a[0] + a[1]);
    if constexpr (Taps == 7) return a[-3] + a[-2] + a[-1] + a[0] + a[0] + a[1] + a[2] + a[3];
    if constexpr (Taps == 15) {
        return Weighted<7>(a) + a[-7] + a[-6] + a[-5] + a[-4] + a[4] + a[5] + a[6] + a[7];
    }
    return 0;
}
/// The sum of the weights is two to this power.
template <int Taps>
constexpr int kWeightBits = Taps == 1    ? 0
                            : Taps == 3  ? 2
                            : Taps == 15 ? 4
                                         : 3;

KXGRID_INLINE uint32_t ShiftWithSign(uint32_t value, int bits) {
    return static_cast<uint32_t>(static_cast<int32_t>(value) >> bits);
}

/// 16 predictions; `a` and `b` are readable 8 cells to both sides.
template <int Taps, int WeightA, int WeightB, int ExtraBits>
KXGRID_INLINE void PredictWith(const uint32_t* a, const uint32_t* b, uint32_t* KXGRID_RESTRICT out) {
    constexpr int kBits = kWeightBits<Taps> + ExtraBits;
    constexpr uint32_t kHalf = kBits == 0 ? 0 : uint32_t{1} << (kBits > 0 ? kBits - 1 : 0);
    for (uint32_t i = 0; i < kBlock; ++i) {
        uint32_t sum = Weighted<Taps>(a + i) * static_cast<uint32_t>(WeightA) + kHalf;
        if constexpr (WeightB != 0) sum += Weighted<Taps>(b + i) * static_cast<uint32_t>(WeightB);
        out[i] = ShiftWithSign(sum, kBits);
    }
}

KXGRID_INLINE void Predict16(Predictor predictor, const uint32_t* a, const uint32_t* b,
                             uint32_t* KXGRID_RESTRICT out) {
    switch (predictor) {
        case Predictor::Copy:
            return PredictWith<1, 1, 0, 0>(a, b, out);
        case Predictor::Mean3:
            return PredictWith<3, 1, 0, 0>(a, b, out);
        case Predictor::Mean5:
            return PredictWith<5, 1, 0, 0>(a, b, out);
        case Predictor::Mean7:
            return PredictWith<7, 1, 0, 0>(a, b, out);
        case Predictor::Mean15:
            return PredictWith<15, 1, 0, 0>(a, b, out);
        case Predictor::Both1:
            return PredictWith<1, 1, 1, 1>(a, b, out);
        case Predictor::Both3:
            return PredictWith<3, 1, 1, 1>(a, b, out);
        case Predictor::Both7:
            return PredictWith<7, 1, 1, 1>(a, b, out);
        case Predictor::Both15:
            return PredictWith<15, 1, 1, 1>(a, b, out);
        case Predictor::Half1:
            return PredictWith<1, 3, -1, 1>(a, b, out);
        case Predictor::Half3:
            return PredictWith<3, 3, -1, 1>(a, b, out);
        case Predictor::Half7:
            return PredictWith<7, 3, -1, 1>(a, b, out);
        case Predictor::Half15:
            return PredictWith<15, 3, -1, 1>(a, b, out);
        case Predictor::Slope3:
            return PredictWith<3, 2, -1, 0>(a, b, out);
        case Predictor::Slope7:
            return PredictWith<7, 2, -1, 0>(a, b, out);
        case Predictor::Slope15:
            return PredictWith<15, 2, -1, 0>(a, b, out);
        case Predictor::Zero:
            break;
    }
    for (uint32_t i = 0; i < kBlock; ++i)
        out[i] = 0;
}

}  // namespace kxcodecs::grid
