// SPDX-License-Identifier: MIT
#include "kxbase/UTF8.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <vector>

namespace kxbase {
namespace {

TEST(UTF8, WellFormedTextsBothWays) {
    const struct {
        std::wstring wide;
        std::string utf8;
    } rows[] = {
        {L"", ""},
        {L"plain", "plain"},
        {std::wstring(L"a\0b", 3), std::string("a\0b", 3)},
        {L"\u007f\u0080", "\x7f\xc2\x80"},
        {L"\u07ff\u0800", "\xdf\xbf\xe0\xa0\x80"},
        {L"\ud7ff\ue000", "\xed\x9f\xbf\xee\x80\x80"},
        {L"\uffff", "\xef\xbf\xbf"},
        {L"\ufffd", "\xef\xbf\xbd"},
        {L"\U00010000", "\xf0\x90\x80\x80"},
        {L"\U0001f600!", "\xf0\x9f\x98\x80!"},
        {L"\U0010ffff", "\xf4\x8f\xbf\xbf"},
        {L"M\u00fcller \u2713", "M\xc3\xbcller \xe2\x9c\x93"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Encode_UTF8(row.wide), row.utf8);
        EXPECT_EQ(Decode_UTF8(row.utf8), row.wide);
    }
}

TEST(UTF8, OneReplacementPerMaximalBadPart) {
    const std::wstring r = L"\ufffd";
    const auto times = [&r](int n) {
        std::wstring text;
        for (int i = 0; i < n; ++i)
            text += r;
        return text;
    };
    const struct {
        const char* name;
        std::string bytes;
        std::wstring text;
    } rows[] = {
        {"a byte that never occurs",
         "a\xff"
         "b",
         L"a" + r + L"b"},
        {"lone continuation bytes", "\x80\xbf", times(2)},
        {"overlong two bytes", "\xc0\xaf", times(2)},
        {"overlong two bytes, upper lead", "\xc1\xbf", times(2)},
        {"overlong three bytes", "\xe0\x80\xaf", times(3)},
        {"overlong three bytes, last", "\xe0\x9f\xbf", times(3)},
        {"overlong four bytes", "\xf0\x80\x80\xaf", times(4)},
        {"overlong four bytes, last", "\xf0\x8f\xbf\xbf", times(4)},
        {"surrogates", "\xed\xa0\x80\xed\xbf\xbf", times(6)},
        {"above the last character", "\xf4\x90\x80\x80", times(4)},
        {"lead bytes above f4", "\xf5\x80\x80\x80", times(4)},
        {"two bytes cut at the end", "\xc3", times(1)},
        {"three bytes cut after one", "\xe2", times(1)},
        {"three bytes cut after two", "\xe2\x82", times(1)},
        {"four bytes cut after two", "\xf0\x9f", times(1)},
        {"four bytes cut after three", "\xf0\x9f\x98", times(1)},
        {"cut sequence, then text",
         "\xe2\x82"
         "x",
         r + L"x"},
        {"cut sequence, then a good one", "\xf0\x9f\x98\xc3\xbc", r + L"\u00fc"},
        {"cut sequence, then a bad byte", "\xe2\x82\xff", times(2)},
        {"a mixture of overlong forms", "\xc0\xaf\xe0\x80\xbf\xf0\x81\x82\x41", times(8) + L"A"},
        {"a mixture of surrogates", "\xed\xa0\x80\xed\xbf\xbf\xed\xaf\x41", times(8) + L"A"},
        {"a mixture of other bad bytes", "\xf4\x91\x92\x93\xff\x41\x80\xbf\x42",
         times(5) + L"A" + times(2) + L"B"},
        {"a mixture of cut sequences", "\xe1\x80\xe2\xf0\x91\x92\xf1\xbf\x41", times(4) + L"A"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Decode_UTF8(row.bytes), row.text);
    }
}

TEST(UTF8, WideNumbersThatAreNoCharactersAreReplaced) {
    const std::string r = "\xef\xbf\xbd";
    EXPECT_EQ(Encode_UTF8({L'a', static_cast<wchar_t>(0xd800), L'b'}), "a" + r + "b");
    EXPECT_EQ(Encode_UTF8({static_cast<wchar_t>(0xdfff)}), r);
    EXPECT_EQ(Encode_UTF8({static_cast<wchar_t>(0xdc00), static_cast<wchar_t>(0xd800)}), r + r);
    if constexpr (sizeof(wchar_t) > 2) {
        EXPECT_EQ(Encode_UTF8({static_cast<wchar_t>(0x110000)}), r);
        EXPECT_EQ(Encode_UTF8({static_cast<wchar_t>(0x7fffffff)}), r);
        EXPECT_EQ(Encode_UTF8({static_cast<wchar_t>(-1)}), r);
    }
}

rc::Gen<wchar_t> AnyCharacter() {
    const uint32_t last = sizeof(wchar_t) > 2 ? 0x10ffff : 0xffff;
    const auto inRange = [](uint32_t from, uint32_t to) {
        return rc::gen::map(rc::gen::inRange<uint32_t>(from, to + 1),
                            [](uint32_t c) { return static_cast<wchar_t>(c); });
    };
    return rc::gen::oneOf(inRange(0, 0x7f), inRange(0x80, 0x7ff), inRange(0x800, 0xd7ff),
                          inRange(0xe000, 0xffff), inRange(last > 0xffff ? 0x10000 : 0xe000, last));
}

RC_GTEST_PROP(UTF8, EveryTextOfCharactersComesBack, ()) {
    const auto text = *rc::gen::container<std::wstring>(AnyCharacter());
    RC_ASSERT(Decode_UTF8(Encode_UTF8(text)) == text);
}

RC_GTEST_PROP(UTF8, ArbitraryBytesDecodeToTextThatIsStable, (const std::vector<char>& bytes)) {
    const std::wstring text = Decode_UTF8(std::string(bytes.begin(), bytes.end()));
    RC_ASSERT(text.size() <= bytes.size());
    RC_ASSERT(Decode_UTF8(Encode_UTF8(text)) == text);
}

}  // namespace
}  // namespace kxbase
