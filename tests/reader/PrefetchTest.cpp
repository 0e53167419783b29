// SPDX-License-Identifier: MIT
#include "reader/Prefetch.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "SampleScans.h"
#include "support/TemporaryFile.h"

namespace {

using kxio::QSNScanReader;
using namespace kxtest;

// It runs on a thread that nobody waits for: an exception would end the process.
static_assert(noexcept(kxio::FillUpOSCache(std::wstring(), uint64_t{0})));

TEST(Prefetch, OpensAsWithoutIt) {
    const Bytes bytes = SmallScan().Build();
    const TemporaryFile file(L"prefetch.qsn", bytes);
    const std::wstring path = file.Path();
    for (const uint64_t block :
         {uint64_t{1}, uint64_t{4096}, uint64_t{bytes.size()}, uint64_t{1} << 62, ~uint64_t{0}}) {
        const QSNScanReader reader(path, block);
        EXPECT_EQ(reader.GetMessageList().size(), 1U) << block;
    }
}

TEST(Prefetch, MissingPathStillCannotBeOpened) {
    EXPECT_EQ(Failure([] { QSNScanReader(TemporaryFile(L"missing.qsn").Path(), 4096); }),
              "KXHeaderReadingException: Cannot open file");
}

TEST(PrefetchDeathTest, ProcessMayExitWhileItRuns) {
    const Bytes bytes(8 << 20, 1);
    const TemporaryFile file(L"exit.qsn", bytes);
    const std::wstring path = file.Path();
    EXPECT_EXIT(
        {
            try {
                QSNScanReader(path, 1);  // one byte at a time: still reading when the process ends
            } catch (const kxbase::KXException&) {
                std::exit(3);
            }
        },
        testing::ExitedWithCode(3), "");
}

}  // namespace
