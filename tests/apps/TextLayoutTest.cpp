// SPDX-License-Identifier: MIT
#include "TextLayout.h"

#include <gtest/gtest.h>

namespace qsn {
namespace {

TEST(TextLayout, ValuesStandInOneColumn) {
    TextLayout layout;
    layout.Section("Grid");
    layout.Row("rows", "12");
    layout.Row("columns", "345");
    layout.Section("Other");
    layout.Row("x", "");
    EXPECT_EQ(layout.ToString(),
              "Grid\n"
              "  rows     12\n"
              "  columns  345\n"
              "\n"
              "Other\n"
              "  x\n");
}

TEST(TextLayout, TablesAlignEachColumn) {
    TextLayout layout;
    layout.Section("Parts");
    layout.Table({{"no", "name"}, {"1", "range"}, {"12", "x"}, {"", "all"}}, {true, false});
    EXPECT_EQ(layout.ToString(),
              "Parts\n"
              "  no  name\n"
              "   1  range\n"
              "  12  x\n"
              "      all\n");
}

TEST(TextLayout, WidthsCountCharactersNotBytes) {
    EXPECT_EQ(CharacterCount("Gr\xc3\xbc\xc3\x9f"
                             "e"),
              5U);
    TextLayout layout;
    layout.Table({{"\xc3\xbc\xc3\xbc", "1"}, {"abc", "2"}}, {false, false});
    EXPECT_EQ(layout.ToString(),
              "  \xc3\xbc\xc3\xbc   1\n"
              "  abc  2\n");
}

}  // namespace
}  // namespace qsn
