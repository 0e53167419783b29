// SPDX-License-Identifier: MIT
#include "kxbase/Exceptions.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "kxbase/ByteReader.h"

namespace kxbase {
namespace {

template <class E>
class ExceptionFamily : public testing::Test {};

using Family =
    testing::Types<KXHeaderReadingException, KXHeaderOperationException, KXFileNotOpenException,
                   KXUnkownCodecException, KXUnkownComponentException, KXUnreadablePatchException,
                   KXIncompleteFileException, KXWrongDataSizeofException, KXComponentNotInFileException,
                   KXBadInputException, KXWritingException, KXIndexOutOfBoundsException, ByteRangeException>;
TYPED_TEST_SUITE(ExceptionFamily, Family);

TYPED_TEST(ExceptionFamily, IsCaughtAsTheBaseWithItsBareText) {
    try {
        throw TypeParam("Patch not in file", ErrorContext{.file = "room.qsn"});
    } catch (const KXException& e) {
        EXPECT_STREQ(e.what(), "Patch not in file");
        EXPECT_EQ(e.Context().file, "room.qsn");
        EXPECT_NE(dynamic_cast<const TypeParam*>(&e), nullptr);
    }
    try {
        throw TypeParam("Cannot read file");
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "Cannot read file");
    }
}

TYPED_TEST(ExceptionFamily, KeepsItsTypeWhenContextIsAddedOnTheWayUp) {
    const auto inner = [] { throw TypeParam("text"); };
    const auto outer = [&inner] {
        try {
            inner();
        } catch (KXException& e) {
            e.AddContext({.file = "hall.qsn"});
            throw;
        }
    };
    try {
        outer();
        FAIL();
    } catch (const TypeParam& e) {
        EXPECT_EQ(e.Context().file, "hall.qsn");
        EXPECT_STREQ(e.what(), "text");
    }
}

TEST(KXException, CopiesShareTheContextAndDoNotThrow) {
    static_assert(std::is_nothrow_copy_constructible_v<KXException>);
    static_assert(std::is_nothrow_copy_assignable_v<KXException>);
    static_assert(std::is_base_of_v<std::exception, KXException>);
    KXException first("text");
    const KXException second = first;
    first.AddContext({.detail = "found 3"});
    EXPECT_EQ(second.Context().detail, "found 3");
}

TEST(KXException, InnermostKnowledgeWins) {
    KXException e("text", {.record = "patch 18", .offset = 4096});
    e.AddContext({.file = "a.qsn", .record = "file", .field = "whole", .offset = 0, .detail = "why"});
    EXPECT_EQ(e.Context().file, "a.qsn");
    EXPECT_EQ(e.Context().record, "patch 18");
    EXPECT_EQ(e.Context().offset, 4096u);
    EXPECT_EQ(e.Context().detail, "why");
    // A field of the outer record would mix two places.
    EXPECT_EQ(e.Context().field, "");
    e.AddContext({.file = "b.qsn"});
    EXPECT_EQ(e.Context().file, "a.qsn");
}

TEST(KXException, DescribeHoldsTextAndPlace) {
    const KXException bare("Cannot read file");
    EXPECT_EQ(bare.Describe(), "Cannot read file");
    const KXException full("Cannot read file", {.file = "room.qsn",
                                                .record = "patch 18 (row 2, column 0)",
                                                .field = "byte count",
                                                .offset = 4812032,
                                                .detail = "73412 announced, 51200 left"});
    EXPECT_EQ(full.Describe(),
              "Cannot read file (room.qsn: patch 18 (row 2, column 0) at byte 4812032, field byte count: "
              "73412 announced, 51200 left)");
}

TEST(ErrorContext, UnknownPiecesAreLeftOut) {
    const struct {
        ErrorContext context;
        const char* line;
    } rows[] = {
        {{}, ""},
        {{.file = "f"}, "f"},
        {{.record = "r"}, "r"},
        {{.field = "x"}, "field x"},
        {{.offset = 0}, "at byte 0"},
        {{.detail = "d"}, "d"},
        {{.file = "f", .detail = "d"}, "f: d"},
        {{.file = "f", .offset = 7, .detail = "d"}, "f: at byte 7: d"},
        {{.record = "r", .field = "x", .detail = "d"}, "r, field x: d"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.context.ToString(), row.line);
        EXPECT_EQ(row.context.Empty(), row.line[0] == '\0');
    }
}

}  // namespace
}  // namespace kxbase
