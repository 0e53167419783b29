// SPDX-License-Identifier: MIT
// What readers and writers keep while they work, and how poses become quaternions.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "GridGather.h"
#include "Quaternion.h"
#include "RowStore.h"
#include "TestTools.h"

namespace kxexchange::testing {
namespace {

TEST(GridGather, ColumnsComeBackFromMemoryAndFromAFileAlike) {
    for (const uint64_t limit : {uint64_t{1} << 20, uint64_t{400}}) {
        GridGather gather(50, 30, {}, limit);
        std::vector<uint64_t> order(50 * 30);
        for (size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::shuffle(order.begin(), order.end(), std::mt19937(3));
        for (int round = 0; round < 8; ++round) {
            for (const uint64_t at : order) {
                if (at % 5 == 0) continue;
                Cell cell;
                cell.valid = true;
                cell.x = static_cast<double>(at + static_cast<uint64_t>(round) * 100000);
                gather.Put(at / 30, at % 30, cell);
            }
        }
        EXPECT_EQ(gather.UsesFile(), limit == 400);
        for (int pass = 0; pass < 2; ++pass) {
            gather.Rewind();
            std::vector<Cell> all, cells;
            while (gather.Read(7, cells) != 0)
                all.insert(all.end(), cells.begin(), cells.end());
            ASSERT_EQ(all.size(), order.size());
            for (size_t i = 0; i < all.size(); ++i) {
                EXPECT_EQ(all[i].valid, i % 5 != 0);
                EXPECT_EQ(all[i].x, i % 5 != 0 ? static_cast<double>(i) : 0.0);  // the first of the eight
            }
            EXPECT_EQ(gather.Collisions(), 7u * 1200);
        }
    }
}

TEST(RowStore, ColumnsBecomeRowsInMemoryAndThroughAFileAlike) {
    for (const uint64_t limit : {uint64_t{1} << 20, uint64_t{500}}) {
        RowStore store(37, 11, 3, {}, limit);
        for (int column = 0; column < 37; ++column) {
            std::vector<unsigned char> records;
            for (int row = 0; row < 11; ++row)
                records.insert(records.end(),
                               {static_cast<unsigned char>(column), static_cast<unsigned char>(row), 9});
            store.AddColumn(records);
        }
        EXPECT_EQ(store.UsesFile(), limit == 500);
        std::vector<unsigned char> row;
        for (const uint64_t wanted : {uint64_t{10}, uint64_t{0}, uint64_t{4}}) {
            store.ReadRow(wanted, row);
            ASSERT_EQ(row.size(), 111u);
            for (size_t column = 0; column < 37; ++column) {
                EXPECT_EQ(row[3 * column], column);
                EXPECT_EQ(row[3 * column + 1], wanted);
                EXPECT_EQ(row[3 * column + 2], 9);
            }
        }
    }
}

TEST(Quaternion, ComesBackForEveryGreatestComponent) {
    for (const Quaternion& q :
         {Quaternion{1, 0, 0, 0}, Quaternion{0.1, 0.9, 0.3, 0.2}, Quaternion{0.2, 0.1, -0.9, 0.3},
          Quaternion{0.05, -0.2, 0.3, 0.9}, Quaternion{0, 0, 0, 1}}) {
        const auto pose = PoseOf({1, 2, 3}, q);
        const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
        const Quaternion again = QuaternionOf(pose);
        for (size_t i = 0; i < 4; ++i)
            EXPECT_NEAR(again[i], q[i] / length, 1e-15);
        EXPECT_LT(RotationError(pose), 1e-15);
    }
}

}  // namespace
}  // namespace kxexchange::testing
