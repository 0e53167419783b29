// SPDX-License-Identifier: MIT
#include "WorkerTeam.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

namespace kxexchange {
namespace {

TEST(WorkerTeam, EveryPieceOfWorkIsDoneOnceBeforeItReturns) {
    WorkerTeam team;
    for (const size_t threads : {0U, 1U, 2U, 5U}) {
        for (const size_t count : {0U, 1U, 2U, 3U, 100U}) {
            std::vector<std::atomic<int>> done(count);
            team.Run(count, threads, [&](size_t i) { ++done[i]; });
            for (const auto& times : done)
                EXPECT_EQ(times, 1) << count << " pieces, " << threads << " threads";
        }
    }
}

TEST(WorkerTeam, TheCallerHelpsAndOneThreadIsTheCaller) {
    WorkerTeam team;
    team.Run(3, 1, [caller = std::this_thread::get_id()](size_t) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
    });
}

TEST(WorkerTeam, PiecesRunSideBySide) {
    WorkerTeam team;
    std::atomic<int> here{0};
    // Each waits for the other: with one thread this would never end.
    team.Run(2, 2, [&](size_t) {
        ++here;
        while (here < 2)
            std::this_thread::yield();
    });
    EXPECT_EQ(here, 2);
}

TEST(WorkerTeam, IsUsedThousandsOfTimes) {
    WorkerTeam team;
    uint64_t sum = 0;
    for (int round = 0; round < 5000; ++round) {
        std::atomic<uint64_t> part{0};
        team.Run(4, 3, [&](size_t i) { part += i; });
        sum += part;
    }
    EXPECT_EQ(sum, 5000U * 6);
}

}  // namespace
}  // namespace kxexchange
