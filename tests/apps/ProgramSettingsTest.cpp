// SPDX-License-Identifier: MIT
#include "ProgramSettings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <vector>

#include "Errors.h"
#include "support/Sanitizers.h"

namespace qsn {
namespace {

TEST(ProgramSettings, ProgressModesHaveTheirNames) {
    EXPECT_EQ(ParseProgressMode("auto"), ProgressMode::Auto);
    EXPECT_EQ(ParseProgressMode("never"), ProgressMode::Never);
    EXPECT_EQ(ParseProgressMode("json"), ProgressMode::JsonLines);
    EXPECT_THROW(ParseProgressMode("JSON"), UsageError);
}

TEST(ProgramSettings, AJsonLineOfProgressTellsWhatIsKnown) {
    EXPECT_EQ(
        ProgressJson("verify", {0, 0, 12, 50, 1.23456}),
        "{\"schema\":\"qsn.progress\",\"version\":1,\"work\":\"verify\",\"cells\":0,\"totalCells\":null,"
        "\"bytes\":12,\"totalBytes\":50,\"seconds\":1.235}\n");
}

TEST(ProgramSettings, SizesTakePowersOf1024) {
    EXPECT_EQ(ParseBytes("0"), uint64_t{0});
    EXPECT_EQ(ParseBytes("1000000"), uint64_t{1000000});
    EXPECT_EQ(ParseBytes("64M"), uint64_t{64} << 20);
    EXPECT_EQ(ParseBytes("2g"), uint64_t{2} << 30);
    EXPECT_EQ(ParseBytes("4000T"), uint64_t{4000} << 40);
    for (const char* text : {"", "M", "1.5G", "-1M", "1MB", "1 M", "5000000000"})
        EXPECT_EQ(ParseBytes(text), std::nullopt) << text;
}

TEST(ProgramSettingsDeathTest, ALimitOfMemoryEndsInBadAlloc) {
#ifdef _WIN32
    GTEST_SKIP() << "memory is not limited here";
#else
    if (kxtest::kAddressSanitizer || kxtest::kThreadSanitizer)
        GTEST_SKIP() << "a sanitizer needs more memory";
    const auto allocate = [] {
        if (!LimitMemory(uint64_t{256} << 20)) std::_Exit(3);
        try {
            const std::vector<char> large(size_t{1} << 30, 'x');
            std::_Exit(large[5] == 'x' ? 1 : 2);
        } catch (const std::bad_alloc&) {
            std::_Exit(0);
        }
    };
    EXPECT_EXIT(allocate(), testing::ExitedWithCode(0), "");
#endif
}

TEST(ProgramSettingsDeathTest, WhoEndsTheProgramAtWorkHasReachedALimit) {
    const auto endAtWork = [] {
        const LimitGuard guard;
        std::exit(1);
    };
    EXPECT_EXIT(endAtWork(), testing::ExitedWithCode(ExitLimit), "not enough memory for another thread");
    const auto endAfterwards = [] {
        { const LimitGuard guard; }
        std::exit(1);
    };
    EXPECT_EXIT(endAfterwards(), testing::ExitedWithCode(1), "");
}

TEST(ProgramSettings, MemoryOfTheProgramIsKnown) {
#ifdef _WIN32
    EXPECT_EQ(MostMemory(), 0U);
#else
    EXPECT_GT(MostMemory(), uint64_t{1} << 20);
#endif
}

}  // namespace
}  // namespace qsn
