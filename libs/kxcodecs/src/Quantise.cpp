// SPDX-License-Identifier: MIT
#include "kxcodecs/Quantise.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "kxbase/Exceptions.h"

namespace kxcodecs {
namespace {

// Half away from zero without a call per value: the conversion truncates, and the difference to a truncated
// double is exact.
template <class Integer>
Integer RoundAndClamp(double value) {
    // 2^31 or 2^63: the first value that does not fit; its negative is the last that does.
    constexpr double kLimit = -static_cast<double>(std::numeric_limits<Integer>::min());
    if (std::isnan(value)) return 0;
    if (value >= kLimit) return std::numeric_limits<Integer>::max();
    if (value <= -kLimit) return std::numeric_limits<Integer>::min();
    const auto whole = static_cast<int64_t>(value);
    const double rest = value - static_cast<double>(whole);
    const int64_t rounded = whole + (rest >= 0.5 ? 1 : 0) - (rest <= -0.5 ? 1 : 0);
    // Only for 32 bits: 2147483647.5 and above rounds up to the first value that does not fit.
    if constexpr (sizeof(Integer) < sizeof(int64_t)) {
        if (rounded > std::numeric_limits<Integer>::max()) return std::numeric_limits<Integer>::max();
    }
    return static_cast<Integer>(rounded);
}

template <class Float, class Integer>
void QuantiseAll(std::span<const unsigned char> values, double step, std::span<unsigned char> stored) {
    static_assert(sizeof(Float) == sizeof(Integer));
    for (std::size_t at = 0; at < values.size(); at += sizeof(Float)) {
        Float value;
        std::memcpy(&value, values.data() + at, sizeof value);
        const auto integer = RoundAndClamp<Integer>(static_cast<double>(value) * step);
        std::memcpy(stored.data() + at, &integer, sizeof integer);
    }
}

template <class Float, class Integer>
void DequantiseAll(std::span<unsigned char> bytes, Float step) {
    static_assert(sizeof(Float) == sizeof(Integer));
    const Float reciprocal = Float{1} / step;
    const std::size_t whole = bytes.size() - bytes.size() % sizeof(Float);
    for (std::size_t at = 0; at < whole; at += sizeof(Float)) {
        Integer integer;
        std::memcpy(&integer, bytes.data() + at, sizeof integer);
        const Float value = static_cast<Float>(integer) * reciprocal;
        std::memcpy(bytes.data() + at, &value, sizeof value);
    }
}

}  // namespace

void Quantise(std::span<const unsigned char> values, uint64_t elementBytes, float step,
              std::span<unsigned char> stored) {
    if (!IsQuantisable(elementBytes) || !std::isfinite(step) || !(step > 0.0F) ||
        values.size() % elementBytes != 0 || stored.size() != values.size()) {
        throw kxbase::KXBadInputException("Values cannot be quantised");
    }
    if (elementBytes == 4) {
        QuantiseAll<float, int32_t>(values, step, stored);
    } else {
        QuantiseAll<double, int64_t>(values, step, stored);
    }
}

void Dequantise(std::span<unsigned char> bytes, uint64_t elementBytes, float step) noexcept {
    if (step == 1.0F) return;
    if (elementBytes == 4) {
        DequantiseAll<float, int32_t>(bytes, step);
    } else if (elementBytes == 8) {
        DequantiseAll<double, int64_t>(bytes, static_cast<double>(step));
    }
}

}  // namespace kxcodecs
