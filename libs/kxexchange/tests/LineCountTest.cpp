// SPDX-License-Identifier: MIT
#include "LineCount.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

TEST(LineCount, EveryLengthCountsLikeTheStandardLibrary) {
    std::mt19937 random(5);
    std::string text;
    // Up to more rows of bytes than a byte can count, with line ends only, some and none.
    for (const size_t most : {1U, 2U, 40U, 100000U}) {
        text.clear();
        for (size_t i = 0; i < 70000; ++i)
            text += random() % most == 0 ? '\n' : 'x';
        const char* const begin = text.data();
        for (size_t length = 0; length < text.size(); length += 1 + length / 8) {
            const char* const end = begin + length;
            ASSERT_EQ(kxexchange::CountLineEnds(begin, end),
                      static_cast<size_t>(std::count(begin, end, '\n')))
                << length;
        }
    }
}
