// SPDX-License-Identifier: MIT
#include "kxcodecs/Quantise.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "TestCodecs.h"
#include "kxbase/Exceptions.h"
#include "support/Thrown.h"

namespace kxcodecs::test {
namespace {

template <class Float, class Integer>
Integer QuantiseOne(Float value, float step) {
    const Bytes in = BytesOf(std::vector<Float>{value});
    Bytes out(in.size());
    Quantise(in, sizeof(Float), step, out);
    return ValuesOf<Integer>(out)[0];
}

TEST(Quantise, FloatsBecomeTheNearestInteger) {
    constexpr float kInf = std::numeric_limits<float>::infinity();
    constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
    constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
    struct Row {
        const char* name;
        float value, step;
        int32_t expected;
    };
    const Row rows[] = {
        {"zero", 0.0F, 1000.0F, 0},
        {"minus zero", -0.0F, 1000.0F, 0},
        {"one and a half at a thousandth", 1.5F, 1000.0F, 1500},
        {"half goes up", 0.25F, 2.0F, 1},
        {"minus half goes down", -0.25F, 2.0F, -1},
        {"one and a half", 0.75F, 2.0F, 2},
        {"two and a half is no tie to even", 1.25F, 2.0F, 3},
        {"minus two and a half", -1.25F, 2.0F, -3},
        {"below half goes to zero", std::nextafter(0.25F, 0.0F), 2.0F, 0},
        {"above minus half goes to zero", std::nextafter(-0.25F, 0.0F), 2.0F, 0},
        {"product in double keeps the low digits", 8388609.0F, 3.0F, 25165827},
        {"fine step", 0.5F, 0.5F, 0},
        {"coarse step", 3.0F, 0.5F, 2},
        {"not a number", std::nanf(""), 10.0F, 0},
        {"infinity", kInf, 10.0F, kMax},
        {"minus infinity", -kInf, 10.0F, kMin},
        {"largest float", std::numeric_limits<float>::max(), 2.0F, kMax},
        {"lowest float", std::numeric_limits<float>::lowest(), 2.0F, kMin},
        {"smallest float", std::numeric_limits<float>::denorm_min(), 2.0F, 0},
        {"2^31 is too much", 1073741824.0F, 2.0F, kMax},
        {"-2^31 just fits", -1073741824.0F, 2.0F, kMin},
        {"2147483647.5 rounds out of range", 65537.0F, 32767.5F, kMax},
        {"-2147483647.5 rounds to the minimum", -65537.0F, 32767.5F, kMin},
        {"2147483646.5 rounds to the maximum", 464773.0F, 4620.5F, kMax},
        {"below -2^31", -2147483904.0F, 1.0F, kMin},
    };
    for (const Row& row : rows) {
        EXPECT_EQ((QuantiseOne<float, int32_t>(row.value, row.step)), row.expected) << row.name;
    }
}

TEST(Quantise, DoublesBecomeTheNearestInteger) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    struct Row {
        const char* name;
        double value;
        float step;
        int64_t expected;
    };
    const Row rows[] = {
        {"one and a half at a thousandth", 1.5, 1000.0F, 1500},
        {"half goes up", 0.25, 2.0F, 1},
        {"minus half goes down", -0.25, 2.0F, -1},
        {"the number before a half goes to zero", 0.24999999999999997, 2.0F, 0},
        {"large half", 1125899906842624.25, 2.0F, 2251799813685249},
        {"large minus half", -1125899906842624.25, 2.0F, -2251799813685249},
        {"above 2^53 nothing is rounded", 4503599627370497.0, 4.0F, 18014398509481988},
        {"not a number", std::nan(""), 10.0F, 0},
        {"infinity", kInf, 10.0F, kMax},
        {"minus infinity", -kInf, 10.0F, kMin},
        {"product overflows", std::numeric_limits<double>::max(), 10.0F, kMax},
        {"2^63 is too much", 4611686018427387904.0, 2.0F, kMax},
        {"the number before 2^63 fits", 4611686018427387392.0, 2.0F, 9223372036854774784},
        {"-2^63 just fits", -4611686018427387904.0, 2.0F, kMin},
        {"below -2^63", -9.3e18, 2.0F, kMin},
    };
    for (const Row& row : rows) {
        EXPECT_EQ((QuantiseOne<double, int64_t>(row.value, row.step)), row.expected) << row.name;
    }
}

TEST(Quantise, WorksInPlaceAndOnUnalignedBytes) {
    const Bytes values = BytesOf(std::vector<float>{1.0F, -2.0F, 3.5F});
    Bytes padded = Bytes{0xEE} + values;
    const std::span<unsigned char> inside(padded.data() + 1, values.size());
    Quantise(inside, 4, 2.0F, inside);
    EXPECT_EQ(padded, Bytes{0xEE} + BytesOf(std::vector<int32_t>{2, -4, 7}));
}

TEST(Quantise, RefusesWhatItCannotDo) {
    const Bytes values(8);
    Bytes out(8);
    for (const float step : {0.0F, -1.0F, std::nanf(""), std::numeric_limits<float>::infinity()}) {
        EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                      [&] { static_cast<void>(Quantise(values, 4, step, out)); }),
                  "Values cannot be quantised")
            << step;
    }
    for (const uint64_t elementBytes : {0U, 1U, 2U, 3U, 5U, 12U, 16U}) {
        EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                      [&] { static_cast<void>(Quantise(values, elementBytes, 2.0F, out)); }),
                  "Values cannot be quantised")
            << elementBytes;
    }
    Bytes odd(7);
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                  [&] { static_cast<void>(Quantise(odd, 4, 2.0F, odd)); }),
              "Values cannot be quantised");
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                  [&] { static_cast<void>(Quantise(values, 4, 2.0F, odd)); }),
              "Values cannot be quantised");
}

TEST(Dequantise, IntegerTimesReciprocalOfTheStep) {
    Bytes bytes = BytesOf(std::vector<int32_t>{1500});
    Dequantise(bytes, 4, 1000.0F);
    EXPECT_NEAR(ValuesOf<float>(bytes)[0], 1.5F, 1.5e-6F);
    // Reciprocal and product in single precision, which is not the float nearest to 1.5.
    EXPECT_EQ(ValuesOf<float>(bytes)[0], 1500.0F * (1.0F / 1000.0F));

    bytes = BytesOf(std::vector<int64_t>{-1500});
    Dequantise(bytes, 8, 1000.0F);
    EXPECT_EQ(ValuesOf<double>(bytes)[0], -1500.0 * (1.0 / 1000.0));
}

TEST(Dequantise, LeavesStepOneAndOtherSizesAlone) {
    for (const uint64_t elementBytes : {0U, 1U, 2U, 3U, 12U, 16U, 20U, 24U}) {
        const Bytes before = Noise(48, 1);
        Bytes bytes = before;
        Dequantise(bytes, elementBytes, 1000.0F);
        EXPECT_EQ(bytes, before) << elementBytes;
    }
    const Bytes before = Noise(48, 2);
    Bytes bytes = before;
    Dequantise(bytes, 4, 1.0F);
    Dequantise(bytes, 8, 1.0F);
    EXPECT_EQ(bytes, before);
}

TEST(Dequantise, TailOfAnElementStaysAsItIs) {
    Bytes bytes = BytesOf(std::vector<int32_t>{2}) + Bytes{0xAA, 0xBB, 0xCC};
    Dequantise(bytes, 4, 2.0F);
    EXPECT_EQ(ValuesOf<float>(bytes)[0], 1.0F);
    EXPECT_EQ(Bytes(bytes.begin() + 4, bytes.end()), (Bytes{0xAA, 0xBB, 0xCC}));
}

TEST(Dequantise, StepsOfADamagedHeaderGiveNumbersWithoutMeaningAndNothingWorse) {
    for (const float step : {0.0F, -0.0F, std::nanf(""), std::numeric_limits<float>::infinity(), -5.0F,
                             std::numeric_limits<float>::denorm_min()}) {
        Bytes bytes(16, 0x7F);
        Dequantise(bytes, 4, step);
        bytes.assign(16, 0x7F);
        Dequantise(bytes, 8, step);
    }
    Bytes bytes = {5, 0, 0, 0};
    Dequantise(bytes, 4, 0.0F);
    EXPECT_TRUE(std::isinf(ValuesOf<float>(bytes)[0]));
}

RC_GTEST_PROP(Quantise, AgreesWithTheStandardRounding, (const std::vector<int32_t>& numerators)) {
    const float step = static_cast<float>(*rc::gen::inRange(1, 100000)) / 64.0F;
    std::vector<float> values;
    for (const int32_t n : numerators)
        values.push_back(static_cast<float>(n) / 128.0F);
    const Bytes in = BytesOf(values);
    Bytes out(in.size());
    Quantise(in, 4, step, out);
    const auto integers = ValuesOf<int32_t>(out);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double exact = std::round(static_cast<double>(values[i]) * static_cast<double>(step));
        const double clamped = std::min(std::max(exact, -2147483648.0), 2147483647.0);
        RC_ASSERT(static_cast<double>(integers[i]) == clamped);
    }
}

RC_GTEST_PROP(Quantise, ThereAndBackStaysWithinHalfAStep, (const std::vector<int16_t>& sixteenths)) {
    std::vector<double> values;
    for (const int16_t n : sixteenths)
        values.push_back(n / 16.0);
    const float step = static_cast<float>(*rc::gen::inRange(2, 10000));
    Bytes bytes = BytesOf(values);
    Quantise(bytes, 8, step, bytes);
    Dequantise(bytes, 8, step);
    const auto back = ValuesOf<double>(bytes);
    for (std::size_t i = 0; i < values.size(); ++i) {
        RC_ASSERT(std::abs(back[i] - values[i]) <= 0.5 / static_cast<double>(step) + 1e-9);
    }
}

}  // namespace
}  // namespace kxcodecs::test
