// SPDX-License-Identifier: MIT
#include "kxio/ScanAccess.h"

#include <gtest/gtest.h>

#include "SampleScans.h"

namespace {

using kxio::PatchRect;
using kxio::QSNScanReader;
using kxio::ReadOptions;
using kxio::ReadReport;
using kxio::Rgb8;
using kxio::ScanAccess;
using namespace kxtest;

TEST(ScanAccess, LayerHoldsEveryCellOfTheGridInItsPlace) {
    kxbase::InMemoryStream stream(SmallScan().Build());
    QSNScanReader reader(&stream);
    const ScanAccess access(reader);
    for (const unsigned threads : {1U, 2U, 5U, 0U}) {
        std::vector<float> ranges(70);
        const ReadReport report =
            access.ReadLayer<float>(kxbase::Range, ranges, {kxio::MissingPatches::Throw, threads});
        EXPECT_EQ(report, (ReadReport{9, 0, 0}));
        for (uint32_t row = 0; row < 7; ++row) {
            for (uint32_t column = 0; column < 10; ++column)
                EXPECT_EQ(ranges[row * 10 + column], RangeAt(row, column)) << row << ", " << column;
        }
    }
}

}  // namespace
