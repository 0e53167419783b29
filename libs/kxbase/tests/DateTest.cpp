// SPDX-License-Identifier: MIT
#include "kxbase/Date.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <clocale>
#include <ctime>

#include "kxbase/Exceptions.h"
#include "support/Thrown.h"

namespace kxbase {
namespace {

std::wstring Widen(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

TEST(Date, AcceptedForms) {
    const struct {
        const wchar_t* text;
        int64_t seconds;
    } rows[] = {
        {L"1970-01-01T00:00:00Z", 0},
        {L"2000-02-29T12:34:56Z", 951827696},
        {L"2000-02-29T12:34:56", 951827696},
        {L"20000229T123456Z", 951827696},
        {L"20000229T123456", 951827696},
        {L"2000-02-29T12:34:56.789Z", 951827696},
        {L"2000-02-29T12:34:56.5", 951827696},
        {L"2000-02-29T14:34:56+02:00", 951827696},
        {L"2000-02-29T07:04:56-05:30", 951827696},
        {L"2000-02-29T12:34:56.001+00:00", 951827696},
        {L"2024-02-29T23:59:59Z", 1709251199},
        {L"1969-12-31T23:59:59Z", -1},
        {L"1900-03-01T00:00:00Z", -2203891200},
        {L"2038-01-19T03:14:08Z", 2147483648},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.text);
        Date date;
        ASSERT_NO_THROW(date = Date(row.text));
        EXPECT_TRUE(date.IsSet());
        EXPECT_EQ(date.UnixSeconds(), row.seconds);
    }
}

TEST(Date, RefusedForms) {
    const wchar_t* const rows[] = {
        L"",
        L" ",
        L"x",
        L"2024-13-01",
        L"2024-01-01",
        L"2024-13-01T00:00:00Z",
        L"2024-00-01T00:00:00Z",
        L"2024-01-00T00:00:00Z",
        L"2024-01-32T00:00:00Z",
        L"2024-04-31T00:00:00Z",
        L"2023-02-29T00:00:00Z",
        L"1900-02-29T00:00:00Z",
        L"2024-01-01T25:00:00Z",
        L"2024-01-01T00:60:00Z",
        L"2024-01-01T00:00:61Z",
        L"2024-01-01T00:00Z",
        L"2024-01-01 00:00:00 and more",
        L"2024-01-01T00:00:00Zz",
        L"2024-01-01T00:00:00Z ",
        L" 2024-01-01T00:00:00Z",
        L"2024-01-01T00:00:00.Z",
        L"2024-01-01T00:00:00+",
        L"2024-01-01T00:00:00+2",
        L"2024-0101T00:00:00Z",
        L"2024-01-01T0000:00Z",
        L"2024-1-1T0:0:0Z",
        L"+024-01-01T00:00:00Z",
        L"2024-01-01T-1:00:00Z",
        L"２０２４-01-01T00:00:00Z",
    };
    for (const wchar_t* text : rows) {
        SCOPED_TRACE(testing::Message() << text);
        EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>([&] { static_cast<void>(Date{std::wstring(text)}); }),
                  "Not a date");
    }
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>(
                  [&] { static_cast<void>(Date(std::wstring(L"2024-01-01T00:00:00Z\0", 21))); }),
              "Not a date");
}

TEST(Date, TextIsUtcToTheSecond) {
    EXPECT_EQ(Date::FromUnixSeconds(0).ToISOString(), "1970-01-01T00:00:00Z");
    EXPECT_EQ(Date::FromUnixSeconds(-1).ToISOString(), "1969-12-31T23:59:59Z");
    EXPECT_EQ(Date::FromUnixSeconds(951827696).ToISOString(), "2000-02-29T12:34:56Z");
    EXPECT_EQ(Date(L"2024-01-01T00:30:00+01:00").ToISOString(), "2023-12-31T23:30:00Z");
}

TEST(Date, NoDateHasAnEmptyText) {
    const Date none;
    EXPECT_FALSE(none.IsSet());
    EXPECT_EQ(none.ToISOString(), "");
    EXPECT_EQ(none.UnixSeconds(), 0);
    EXPECT_NE(none, Date::FromUnixSeconds(0));
    EXPECT_EQ(none, Date());
}

TEST(Date, NowLiesBetweenTwoReadingsOfTheClock) {
    const int64_t before = std::time(nullptr);
    const Date now = Date::Now();
    // time() may lag the finer clock by a tick.
    const int64_t after = std::time(nullptr) + 1;
    EXPECT_TRUE(now.IsSet());
    EXPECT_GE(now.UnixSeconds(), before - 1);
    EXPECT_LE(now.UnixSeconds(), after);
}

TEST(Date, TimeZoneOfTheProcessIsIgnored) {
    const char* old = std::getenv("TZ");
    const std::string kept = old ? old : "";
    setenv("TZ", "Asia/Kolkata", 1);
    tzset();
    EXPECT_EQ(Date(L"2000-02-29T12:34:56").UnixSeconds(), 951827696);
    EXPECT_EQ(Date::FromUnixSeconds(951827696).ToISOString(), "2000-02-29T12:34:56Z");
    if (old) {
        setenv("TZ", kept.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}

TEST(Date, YearsThatTheTextCannotWriteAreRefused) {
    EXPECT_EQ(Date::FromUnixSeconds(253402300799).ToISOString(), "9999-12-31T23:59:59Z");
    EXPECT_EQ(Date::FromUnixSeconds(-62167219200).ToISOString(), "0000-01-01T00:00:00Z");
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>(
                  [&] { static_cast<void>(Date::FromUnixSeconds(253402300800)); }),
              "Not a date");
    EXPECT_EQ(kxtest::ThrownBy<KXBadInputException>(
                  [&] { static_cast<void>(Date::FromUnixSeconds(-62167219201)); }),
              "Not a date");
    EXPECT_EQ(
        kxtest::ThrownBy<KXBadInputException>([&] { static_cast<void>(Date(L"9999-12-31T23:59:59-00:01")); }),
        "Not a date");
    EXPECT_EQ(
        kxtest::ThrownBy<KXBadInputException>([&] { static_cast<void>(Date(L"0000-01-01T00:00:00+00:01")); }),
        "Not a date");
}

RC_GTEST_PROP(Date, TextOfAnyMomentReadsBack, ()) {
    // 0000-01-01 to 9999-12-31: years of four digits.
    const auto seconds = *rc::gen::inRange<int64_t>(-62167219200, 253402300800);
    const Date date = Date::FromUnixSeconds(seconds);
    RC_ASSERT(date.ToISOString().size() == 20u);
    RC_ASSERT(Date(Widen(date.ToISOString())) == date);
}

RC_GTEST_PROP(Date, ArbitraryTextIsADateOrIsRefused, (const std::string& text)) {
    const std::wstring wide = Widen(text);
    try {
        RC_ASSERT(Date(wide).IsSet());
    } catch (const KXBadInputException&) {
    }
}

}  // namespace
}  // namespace kxbase
