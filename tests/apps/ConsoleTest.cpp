// SPDX-License-Identifier: MIT
#include "Console.h"

#include <gtest/gtest.h>

namespace qsn {
namespace {

TEST(Console, ControlCharactersOfAFileAreShownNotObeyed) {
    EXPECT_EQ(Printable("a\x1b[2Jb"), "a\\x1b[2Jb");
    EXPECT_EQ(Printable("bell\x07"), "bell\\x07");
    EXPECT_EQ(Printable("\x7f"), "\\x7f");
    // U+009B starts a control sequence on some terminals.
    EXPECT_EQ(Printable("\xc2\x9b"
                        "31m"),
              "\\x9b31m");
}

TEST(Console, LineEndsBecomeBlanks) {
    EXPECT_EQ(Printable("one\ntwo\r\tthree"), "one two  three");
}

TEST(Console, OtherTextStaysAsItIs) {
    const std::string text =
        "Gr\xc3\xbc\xc3\x9f"
        "e \xe7\x82\xb9\xe7\xbe\xa4 \xf0\x9f\x93\xa1 \xc2\xa0";
    EXPECT_EQ(Printable(text), text);
}

}  // namespace
}  // namespace qsn
