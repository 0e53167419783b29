// SPDX-License-Identifier: MIT
#include "Errors.h"

#include <gtest/gtest.h>

#include <new>
#include <system_error>
#include <vector>

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
    EXPECT_EQ(ExitCodeOf(Ended(ExitDifferent)), 1);
    EXPECT_EQ(ExitCodeOf(UsageError("what")), 2);
    EXPECT_EQ(ExitCodeOf(kxbase::KXComponentNotInFileException("Cannot use this component")), 2);
    EXPECT_EQ(ExitCodeOf(kxbase::KXHeaderReadingException("Cannot open file")), 3);
    EXPECT_EQ(ExitCodeOf(kxbase::KXFileNotOpenException("Cannot open file")), 3);
    EXPECT_EQ(ExitCodeOf(kxbase::KXHeaderReadingException("Unsupported ScanHeader version")), 4);
    EXPECT_EQ(ExitCodeOf(kxbase::KXUnkownCodecException("Invalid codec ")), 4);
    EXPECT_EQ(ExitCodeOf(kxbase::KXHeaderReadingException("Invalid scan headers")), 5);
    EXPECT_EQ(ExitCodeOf(kxbase::KXIncompleteFileException("Lookup table not found")), 5);
    EXPECT_EQ(ExitCodeOf(kxbase::KXUnreadablePatchException("Patch cannot be decoded")), 5);
    EXPECT_EQ(ExitCodeOf(Failure("half a picture", ExitPartial)), 6);
    EXPECT_EQ(ExitCodeOf(Failure("disk", ExitWriteFailed)), 7);
    EXPECT_EQ(ExitCodeOf(kxbase::KXWritingException("Cannot write file")), 7);
    EXPECT_EQ(ExitCodeOf(kxbase::KXFileNotOpenException("Cannot file not open")), 7);
    EXPECT_EQ(ExitCodeOf(std::bad_alloc()), 8);
    EXPECT_EQ(ExitCodeOf(Interrupted()), 130);
    EXPECT_EQ(ExitCodeOf(kxexchange::CancelledException("Cancelled")), 130);
}

TEST(Errors, AForeignFileIsToldFromADamagedOne) {
    const auto code = [](const char* field) {
        return ExitCodeOf(kxbase::KXHeaderReadingException("Invalid main header",
                                                           {"a.qsn", "MainFileHeader", field, 0, {}}));
    };
    EXPECT_EQ(code("tag"), 4);
    EXPECT_EQ(code("frame"), 4);
    EXPECT_EQ(code("payload size"), 5);
}

TEST(Errors, WhatCannotBeOpenedSaysWhy) {
    const auto text = [](const std::string& file) {
        return DescribeError(kxbase::KXHeaderReadingException("Cannot open file", {file, {}, {}, {}, {}}));
    };
    EXPECT_TRUE(text("nowhere/a.qsn").ends_with("): there is no such file")) << text("nowhere/a.qsn");
    EXPECT_TRUE(text(".").ends_with("): this is a folder")) << text(".");
}

TEST(Errors, ForeignAndDamagedFilesAreExplained) {
    const auto error = [](const char* file, const char* field) {
        return kxbase::KXHeaderReadingException("Invalid main header",
                                                {file, "MainFileHeader", field, 0, {}});
    };
    EXPECT_TRUE(DescribeError(error("a.e57", "tag")).ends_with(": this is no .qsn file"));
    EXPECT_EQ(AdviceFor(error("a.qsn", "tag")), "");
    EXPECT_NE(AdviceFor(error("a.qsn", "payload size")).find("qsn recover"), std::string::npos);
    EXPECT_EQ(AdviceFor(error("a.ptx", "payload size")), "");
    EXPECT_EQ(AdviceFor(std::bad_alloc()), "");
}

TEST(Errors, LackOfThreadsIsALimit) {
    const std::system_error error(std::make_error_code(std::errc::resource_unavailable_try_again));
    EXPECT_EQ(ExitCodeOf(error), 8);
    EXPECT_EQ(DescribeError(error), "not enough memory for another thread");
}

TEST(Errors, EveryExitCodeHasAMeaningInAscendingOrder) {
    std::vector<int> codes;
    for (const ExitCodeMeaning& meaning : ExitCodeMeanings()) {
        codes.push_back(meaning.code);
        EXPECT_STRNE(meaning.meaning, "");
    }
    EXPECT_EQ(codes, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 130}));
}

TEST(Errors, LackOfMemoryIsNamed) {
    EXPECT_EQ(DescribeError(std::bad_alloc()), "not enough memory");
}

}  // namespace
}  // namespace qsn
