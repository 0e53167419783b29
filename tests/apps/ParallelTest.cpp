// SPDX-License-Identifier: MIT
#include "Parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

namespace qsn {
namespace {

TEST(Parallel, EveryNumberIsWorkedOnce) {
    for (const unsigned threads : {0U, 1U, 2U, 7U}) {
        std::vector<std::atomic<int>> counts(1000);
        ForEachParallel(counts.size(), threads, [&](uint64_t i) { ++counts[i]; });
        for (const auto& count : counts)
            EXPECT_EQ(count.load(), 1);
    }
}

TEST(Parallel, NothingToDoCallsNothing) {
    ForEachParallel(0, 4, [](uint64_t) { FAIL(); });
}

TEST(Parallel, AnExceptionLeavesWithItsTypeAndEndsTheRest) {
    std::atomic<int> worked{0};
    EXPECT_THROW(ForEachParallel(1000000, 3,
                                 [&](uint64_t i) {
                                     ++worked;
                                     if (i == 5) throw std::out_of_range("five");
                                 }),
                 std::out_of_range);
    EXPECT_LT(worked.load(), 1000000);
}

}  // namespace
}  // namespace qsn
