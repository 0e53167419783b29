// SPDX-License-Identifier: MIT
#include "Progress.h"

#include <gtest/gtest.h>

namespace qsn {
namespace {

TEST(Progress, TheLineTellsShareRatesAndTimeLeft) {
    EXPECT_EQ(ProgressLine("import", {1000000, 4000000, 50000000, 0, 2.0}, 200),
              "import  25 %  1.00 M cells  500 k cells/s  25.0 MB/s  0:06 left");
}

TEST(Progress, WithoutATotalThereIsNoShareAndNoTimeLeft) {
    EXPECT_EQ(ProgressLine("import", {1000, 0, 0, 0, 2.0}, 200), "import  1.00 k cells  500 cells/s");
}

TEST(Progress, BytesTellTheShareWhenCellsDoNot) {
    EXPECT_EQ(ProgressLine("read", {0, 0, 30, 60, 0.1}, 200), "read  50 %");
}

TEST(Progress, NoRatesInTheFirstMoments) {
    EXPECT_EQ(ProgressLine("import", {10, 100, 5, 0, 0.01}, 200), "import  10 %  10 cells");
}

TEST(Progress, MoreThanAnnouncedIsNotMoreThanAll) {
    EXPECT_EQ(ProgressLine("import", {300, 200, 0, 0, 1.0}, 200), "import 100 %  300 cells  300 cells/s");
}

TEST(Progress, TheLineNeverFillsTheTerminal) {
    const ProgressState state{1000000, 4000000, 50000000, 0, 2.0};
    for (unsigned columns = 1; columns < 90; ++columns)
        EXPECT_LT(ProgressLine("import", state, columns).size(), columns);
}

}  // namespace
}  // namespace qsn
