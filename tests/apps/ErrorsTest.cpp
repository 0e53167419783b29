// SPDX-License-Identifier: MIT
#include "Errors.h"

#include <gtest/gtest.h>

#include <new>

#include "kxbase/Exceptions.h"
#include "kxexchange/Errors.h"

namespace qsn {
namespace {

TEST(Errors, LibraryErrorsTellAllTheyKnow) {
    kxbase::ErrorContext context;
    context.file = "room.qsn";
    context.record = "patch 18 (row 2, column 0)";
    context.field = "payload";
    context.offset = 4812032;
    context.detail = "73412 bytes, only 51200 left";
    const std::string text =
        DescribeError(kxbase::KXUnreadablePatchException("Patch cannot be decoded", context));
    for (const char* piece :
         {"Patch cannot be decoded", "room.qsn", "patch 18", "payload", "4812032", "51200 left"})
        EXPECT_NE(text.find(piece), std::string::npos) << piece << " in " << text;
}

TEST(Errors, ExitCodesFollowTheKindOfError) {
    EXPECT_EQ(ExitCodeOf(Failure("disk")), 1);
    EXPECT_EQ(ExitCodeOf(kxbase::KXHeaderReadingException("Cannot open file")), 1);
    EXPECT_EQ(ExitCodeOf(std::bad_alloc()), 1);
    EXPECT_EQ(ExitCodeOf(UsageError("what")), 2);
    EXPECT_EQ(ExitCodeOf(Interrupted()), 130);
    EXPECT_EQ(ExitCodeOf(kxexchange::CancelledException("Cancelled")), 130);
}

TEST(Errors, LackOfMemoryIsNamed) {
    EXPECT_EQ(DescribeError(std::bad_alloc()), "not enough memory");
}

}  // namespace
}  // namespace qsn
