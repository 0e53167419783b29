// SPDX-License-Identifier: MIT
#include "kxcodecs/SettleValues.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <limits>

#include "TestCodecs.h"
#include "kxbase/Exceptions.h"
#include "support/Thrown.h"

namespace kxcodecs::test {
namespace {

// Angles of a grid in steps: regular along the rows, with noise in each cell.
std::vector<int32_t> Angles(uint32_t width, uint32_t height, int noise) {
    const Bytes random = Noise(std::size_t{2} * width * height, 5);
    std::vector<int32_t> values;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const std::size_t i = 2 * (std::size_t{y} * width + x);
            const int sum = random[i] % noise + random[i + 1] % noise;
            values.push_back(static_cast<int32_t>(800000 + 1571 * x + y / 3) + sum);
        }
    }
    return values;
}

std::size_t ChunkBytes(const std::vector<int32_t>& values, uint32_t width, uint32_t height) {
    return EncodeWith(GridChunkCodec(), BytesOf(values), width, height).size();
}

void ExpectWithinReach(const std::vector<int32_t>& before, const std::vector<int32_t>& after,
                       const std::vector<uint32_t>& reach, uint64_t moved) {
    uint64_t changed = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        RC_ASSERT(std::abs(int64_t{after[i]} - before[i]) <= int64_t{reach[i]});
        if (after[i] != before[i]) ++changed;
    }
    RC_ASSERT(changed == moved);
}

TEST(SettleValues, NoValueMovesBeyondItsReach) {
    EXPECT_TRUE(rc::check([] {
        const auto width = *rc::gen::inRange<uint32_t>(1, 70);
        const auto height = *rc::gen::inRange<uint32_t>(1, 70);
        const auto noise = *rc::gen::element(1, 3, 40, 200);
        const std::vector<int32_t> before = Angles(width, height, noise);
        std::vector<uint32_t> reach;
        for (const unsigned char byte : Noise(before.size(), *rc::gen::inRange<uint32_t>(0, 1000)))
            reach.push_back(byte < 60 ? 0U : byte % 33U);
        std::vector<int32_t> after = before;
        const uint64_t moved = SettleValues(after, width, height, reach);
        ExpectWithinReach(before, after, reach, moved);
    }));
}

TEST(SettleValues, AnyNumbersStayInTheirReachAndInTheirRange) {
    EXPECT_TRUE(rc::check([](std::vector<int32_t> values) {
        if (values.empty()) return;
        values.push_back(std::numeric_limits<int32_t>::max());
        values.push_back(std::numeric_limits<int32_t>::min());
        const std::vector<uint32_t> reach(values.size(), (1U << 30) - 1);
        std::vector<int32_t> after = values;
        const uint64_t moved = SettleValues(after, static_cast<uint32_t>(values.size()), 1, reach);
        ExpectWithinReach(values, after, reach, moved);
    }));
}

TEST(SettleValues, ChunksBecomeSmaller) {
    const std::vector<int32_t> before = Angles(256, 256, 20);
    const std::size_t exact = ChunkBytes(before, 256, 256);
    std::size_t last = exact;
    for (const uint32_t reach : {2U, 8U, 30U}) {
        std::vector<int32_t> after = before;
        EXPECT_GT(SettleValues(after, 256, 256, std::vector<uint32_t>(before.size(), reach)), 0U);
        const std::size_t bytes = ChunkBytes(after, 256, 256);
        EXPECT_LT(bytes, last) << reach;
        last = bytes;
    }
    EXPECT_LT(last, exact / 3) << "more reach than noise";
}

TEST(SettleValues, WithoutReachNothingMoves) {
    const std::vector<int32_t> before = Angles(40, 40, 20);
    std::vector<int32_t> after = before;
    EXPECT_EQ(SettleValues(after, 40, 40, std::vector<uint32_t>(before.size())), 0U);
    EXPECT_EQ(after, before);
    EXPECT_EQ(SettleValues({}, 0, 7, {}), 0U);
}

TEST(SettleValues, SizesThatDoNotFitAreRefused) {
    std::vector<int32_t> values(12);
    std::vector<uint32_t> reach(12, 1);
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                  [&] { static_cast<void>(SettleValues(values, 5, 3, reach)); }),
              "Values cannot be settled");
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                  [&] { static_cast<void>(SettleValues(values, 4, 3, std::span(reach).first(11))); }),
              "Values cannot be settled");
    reach[3] = 1U << 30;
    EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                  [&] { static_cast<void>(SettleValues(values, 4, 3, reach)); }),
              "Values cannot be settled");
}

}  // namespace
}  // namespace kxcodecs::test
