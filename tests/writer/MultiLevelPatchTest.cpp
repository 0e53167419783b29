// SPDX-License-Identifier: MIT
#include "kxio/MultiLevelPatch.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "kxbase/Exceptions.h"
#include "support/Thrown.h"

namespace {

using kxio::MultiLevelPatch;
using Bytes = std::vector<unsigned char>;

Bytes Counting(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    return bytes;
}

TEST(MultiLevelPatch, LevelZeroCopiesThePatchUnchanged) {
    for (const int length : {1, 2, 3, 4, 5, 6, 7, 8, 12, 24}) {
        const Bytes source = Counting(static_cast<size_t>(5 * 5 * length));
        Bytes reduced(source.size());
        MultiLevelPatch(length, 0, 5).DownSampling(source.data(), 0, 0, reduced.data());
        EXPECT_EQ(reduced, source) << "value length " << length;
    }
}

TEST(MultiLevelPatch, LevelOneKeepsEvenRowsAndColumnsInItsBlock) {
    // clang-format off
    Bytes source = { 0,  1,  2,  3,
                    10, 11, 12, 13,
                    20, 21, 22, 23,
                    30, 31, 32, 33};
    const Bytes lowerRight = {99, 99, 99, 99,
                              99, 99, 99, 99,
                              99, 99,  0,  2,
                              99, 99, 20, 22};
    const Bytes upperRight = {99, 99,  0,  2,
                              99, 99, 20, 22,
                              99, 99, 99, 99,
                              99, 99, 99, 99};
    // clang-format on
    const MultiLevelPatch half(1, 1, 4);
    Bytes reduced(16, 99);
    half.DownSampling(source.data(), 1, 1, reduced.data());
    EXPECT_EQ(reduced, lowerRight);
    reduced.assign(16, 99);
    half.DownSampling(source.data(), 1, 0, reduced.data());
    EXPECT_EQ(reduced, upperRight);
}

TEST(MultiLevelPatch, AllBlocksOfALevelFillADestinationPatch) {
    for (const int level : {1, 2, 3}) {
        const int blocks = 1 << level;
        const MultiLevelPatch reduce(2, level, 16);
        Bytes reduced(16 * 16 * 2, 0);
        for (int y = 0; y < blocks; ++y) {
            for (int x = 0; x < blocks; ++x) {
                const Bytes source(16 * 16 * 2, static_cast<unsigned char>(1 + y * blocks + x));
                reduce.DownSampling(source.data(), x, y, reduced.data());
            }
        }
        for (int row = 0; row < 16; ++row) {
            for (int column = 0; column < 16; ++column) {
                const int block = (row >> (4 - level)) * blocks + (column >> (4 - level));
                EXPECT_EQ(reduced[static_cast<size_t>(row * 16 + column) * 2 + 1], 1 + block)
                    << "level " << level << " row " << row << " column " << column;
            }
        }
    }
}

TEST(MultiLevelPatch, SideThatIsNoMultipleOfTheStepLeavesTheRestUntouched) {
    const Bytes source = Counting(5 * 5);
    Bytes reduced(5 * 5, 200);
    MultiLevelPatch(1, 1, 5).DownSampling(source.data(), 1, 1, reduced.data());
    // The block begins at (5 x 1) >> 1 = 2 and has 5 >> 1 = 2 values per side.
    EXPECT_EQ(reduced[2 * 5 + 2], source[0]);
    EXPECT_EQ(reduced[2 * 5 + 3], source[2]);
    EXPECT_EQ(reduced[3 * 5 + 2], source[2 * 5]);
    EXPECT_EQ(reduced[3 * 5 + 3], source[2 * 5 + 2]);
    EXPECT_EQ(std::count(reduced.begin(), reduced.end(), 200), 21);
}

TEST(MultiLevelPatch, TwelveBytesAreCopiedWhole) {
    const Bytes source = Counting(4 * 4 * 12);
    Bytes reduced(4 * 4 * 12, 0);
    MultiLevelPatch(12, 1, 4).DownSampling(source.data(), 0, 0, reduced.data());
    EXPECT_TRUE(std::equal(source.begin(), source.begin() + 12, reduced.begin()));
    EXPECT_TRUE(std::equal(source.begin() + 2 * 12, source.begin() + 3 * 12, reduced.begin() + 12));
}

TEST(MultiLevelPatch, BytesBehindTheLastWholeWordAreNotCopied) {
    const Bytes source(2 * 2 * 10, 1);
    Bytes reduced(2 * 2 * 10, 77);
    MultiLevelPatch(10, 0, 2).DownSampling(source.data(), 0, 0, reduced.data());
    for (size_t value = 0; value < 4; ++value) {
        for (size_t byte = 0; byte < 10; ++byte) {
            EXPECT_EQ(reduced[value * 10 + byte], byte < 8 ? 1 : 77) << "value " << value << " byte " << byte;
        }
    }
}

TEST(MultiLevelPatch, BlockOutsideTheDestinationIsIgnored) {
    const Bytes source = Counting(16);
    const MultiLevelPatch half(1, 1, 4);
    for (const auto& [x, y] : {std::array{2, 0}, {0, 2}, {-1, 0}, {0, -1}, {1 << 30, 0}}) {
        Bytes reduced(16, 5);
        half.DownSampling(source.data(), x, y, reduced.data());
        EXPECT_EQ(reduced, Bytes(16, 5)) << x << ", " << y;
    }
}

TEST(MultiLevelPatch, LevelBeyondTheSideCopiesNothing) {
    const Bytes source = Counting(16);
    Bytes reduced(16, 5);
    MultiLevelPatch(1, 30, 4).DownSampling(source.data(), 7, 7, reduced.data());
    EXPECT_EQ(reduced, Bytes(16, 5));
}

TEST(MultiLevelPatch, ImpossibleArgumentsAreRefused) {
    struct Case {
        int pixelLength, level, patchSize;
        bool allowed;
    };
    const Case cases[] = {
        {1, -1, 4, false},    {1, 31, 4, false},      {1, 32, 4, false},   {0, 0, 4, false},
        {-4, 0, 4, false},    {4, 0, 0, false},       {4, 0, -1, false},   {1, 0, 46341, false},
        {8, 0, 16384, false}, {1 << 30, 0, 2, false}, {7, 0, 16384, true}, {1, 30, 4, true},
    };
    for (const Case& c : cases) {
        if (c.allowed) {
            EXPECT_NO_THROW(MultiLevelPatch(c.pixelLength, c.level, c.patchSize));
        } else {
            EXPECT_EQ(kxtest::ThrownBy<kxbase::KXBadInputException>(
                          [&] { static_cast<void>(MultiLevelPatch(c.pixelLength, c.level, c.patchSize)); }),
                      "Patch cannot be reduced")
                << c.pixelLength << ", " << c.level << ", " << c.patchSize;
        }
    }
}

TEST(MultiLevelPatch, CopiesReduceAlike) {
    const Bytes source = Counting(8 * 8 * 4);
    const MultiLevelPatch original(4, 1, 8);
    const MultiLevelPatch copied(original);
    MultiLevelPatch assigned(1, 0, 1);
    assigned = original;
    Bytes expected(source.size()), fromCopy(source.size()), fromAssigned(source.size());
    original.DownSampling(source.data(), 1, 0, expected.data());
    copied.DownSampling(source.data(), 1, 0, fromCopy.data());
    assigned.DownSampling(source.data(), 1, 0, fromAssigned.data());
    EXPECT_EQ(fromCopy, expected);
    EXPECT_EQ(fromAssigned, expected);
    EXPECT_NE(expected, Bytes(source.size()));
}

}  // namespace
