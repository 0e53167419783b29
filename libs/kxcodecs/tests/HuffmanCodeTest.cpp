// SPDX-License-Identifier: MIT
#include "HuffmanCode.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using namespace kxcodecs;

// Sum of 2^-length over all codes, in units of 2^-most: a code with which every bit sequence means something
// has exactly 1.
uint64_t Space(const std::vector<uint8_t>& lengths, unsigned most) {
    uint64_t space = 0;
    for (const uint8_t length : lengths)
        space += length == 0 ? 0 : uint64_t{1} << (most - length);
    return space;
}

TEST(HuffmanCode, FrequentSymbolsAreShort) {
    EXPECT_EQ(HuffmanLengths(std::vector<uint32_t>{1, 8, 0, 4, 2, 1}, 15),
              (std::vector<uint8_t>{4, 1, 0, 2, 3, 4}));
    EXPECT_EQ(HuffmanLengths(std::vector<uint32_t>{5, 5, 5, 5}, 15), (std::vector<uint8_t>{2, 2, 2, 2}));
}

TEST(HuffmanCode, ASingleSymbolTakesOneBitAndNoneTakesNothing) {
    EXPECT_EQ(HuffmanLengths(std::vector<uint32_t>{0, 9, 0}, 15), (std::vector<uint8_t>{0, 1, 0}));
    EXPECT_EQ(HuffmanLengths(std::vector<uint32_t>{0, 0}, 15), (std::vector<uint8_t>{0, 0}));
    EXPECT_EQ(HuffmanLengths(std::vector<uint32_t>{0, 9, 1}, 15), (std::vector<uint8_t>{0, 1, 1}));
}

TEST(HuffmanCode, NoCodeIsTooLongAndNothingIsWasted) {
    // Each as frequent as the two before together: without a limit the rarest takes as many bits as there are
    // others.
    std::vector<uint32_t> rising{1, 1};
    while (rising.size() < 40)
        rising.push_back(rising[rising.size() - 2] + rising.back());
    for (const unsigned most : {7U, 9U, 15U}) {
        const auto lengths = HuffmanLengths(rising, most);
        for (const uint8_t length : lengths)
            EXPECT_LE(length, most);
        EXPECT_EQ(Space(lengths, most), uint64_t{1} << most);
        EXPECT_LT(lengths.back(), lengths.front());
    }
    std::mt19937 random(5);
    for (int round = 0; round < 200; ++round) {
        std::vector<uint32_t> counts(2 + random() % 284);
        for (uint32_t& count : counts)
            count = 1 + static_cast<uint32_t>(random()) % (1U << random() % 24);
        const auto lengths = HuffmanLengths(counts, 15);
        EXPECT_EQ(Space(lengths, 15), uint64_t{1} << 15);
    }
}

TEST(HuffmanCode, CodesAreCountedByLengthAndTurnedRound) {
    // In their usual order: 010, 011, 100, 101, 110, 00, 1110, 1111.
    EXPECT_EQ(HuffmanCodes(std::vector<uint8_t>{3, 3, 3, 3, 3, 2, 4, 4}),
              (std::vector<uint16_t>{0b010, 0b110, 0b001, 0b101, 0b011, 0b00, 0b0111, 0b1111}));
    EXPECT_EQ(HuffmanCodes(std::vector<uint8_t>{0, 1, 0}), (std::vector<uint16_t>{0, 0, 0}));
}

}  // namespace
