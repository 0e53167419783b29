// SPDX-License-Identifier: MIT
#include "kxbase/Date.h"

#include <chrono>
#include <cstdio>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"

namespace kxbase {

namespace {

// A small parser over the text; every step says whether it matched.
class Scanner {
public:
    explicit Scanner(const std::wstring& text) : m_text(text) {}

    bool Digits(int count, int& value) {
        value = 0;
        for (int i = 0; i < count; ++i) {
            if (!AtDigit()) return false;
            value = value * 10 + (m_text[m_at++] - L'0');
        }
        return true;
    }
    bool Take(wchar_t c) {
        if (m_at >= m_text.size() || m_text[m_at] != c) return false;
        ++m_at;
        return true;
    }
    bool AtDigit() const { return m_at < m_text.size() && m_text[m_at] >= L'0' && m_text[m_at] <= L'9'; }
    bool AtEnd() const { return m_at == m_text.size(); }

private:
    const std::wstring& m_text;
    size_t m_at = 0;
};

bool ParseOffset(Scanner& in, int& offsetMinutes) {
    offsetMinutes = 0;
    if (in.Take(L'Z')) return true;
    const bool plus = in.Take(L'+');
    if (!plus && !in.Take(L'-')) return true;  // no offset: UTC
    int hours = 0;
    int minutes = 0;
    if (!in.Digits(2, hours)) return false;
    const bool colon = in.Take(L':');
    if ((colon || in.AtDigit()) && !in.Digits(2, minutes)) return false;
    if (hours > 23 || minutes > 59) return false;
    offsetMinutes = (plus ? 1 : -1) * (hours * 60 + minutes);
    return true;
}

bool ParseIso(const std::wstring& text, int64_t& seconds) {
    namespace chr = std::chrono;
    Scanner in(text);
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, offset = 0;
    if (!in.Digits(4, year)) return false;
    const bool extended = in.Take(L'-');
    if (!in.Digits(2, month) || (extended && !in.Take(L'-')) || !in.Digits(2, day)) return false;
    if (!in.Take(L'T') || !in.Digits(2, hour) || (extended && !in.Take(L':')) || !in.Digits(2, minute))
        return false;
    if ((extended && !in.Take(L':')) || !in.Digits(2, second)) return false;
    if (in.Take(L'.') || in.Take(L',')) {
        int digit = 0;
        if (!in.Digits(1, digit)) return false;
        while (in.AtDigit())
            in.Digits(1, digit);
    }
    if (!ParseOffset(in, offset) || !in.AtEnd()) return false;
    const chr::year_month_day date{chr::year(year), chr::month(static_cast<unsigned>(month)),
                                   chr::day(static_cast<unsigned>(day))};
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) return false;
    const chr::sys_seconds moment = chr::sys_days(date) + chr::hours(hour) + chr::minutes(minute) +
                                    chr::seconds(second) - chr::minutes(offset);
    seconds = moment.time_since_epoch().count();
    return true;
}

// The years that four digits can write.
constexpr int64_t kFirstSecond = -62167219200;  // 0000-01-01T00:00:00Z
constexpr int64_t kLastSecond = 253402300799;   // 9999-12-31T23:59:59Z

}  // namespace

Date::Date(const std::wstring& text) {
    if (!ParseIso(text, m_seconds) || m_seconds < kFirstSecond || m_seconds > kLastSecond) {
        ErrorContext context;
        context.detail = "found \"" + Encode_UTF8(text.substr(0, 64)) + "\", expected YYYY-MM-DDThh:mm:ssZ";
        throw KXBadInputException("Not a date", context);
    }
    m_set = true;
}

Date Date::Now() {
    using namespace std::chrono;
    return FromUnixSeconds(floor<seconds>(system_clock::now()).time_since_epoch().count());
}

Date Date::FromUnixSeconds(int64_t seconds) {
    if (seconds < kFirstSecond || seconds > kLastSecond) {
        throw KXBadInputException("Not a date", {{}, {}, {}, {}, "the year needs more than four digits"});
    }
    Date date;
    date.m_set = true;
    date.m_seconds = seconds;
    return date;
}

std::string Date::ToISOString() const {
    if (!m_set) return {};
    namespace chr = std::chrono;
    const chr::sys_seconds moment{chr::seconds(m_seconds)};
    const chr::sys_days dayStart = chr::floor<chr::days>(moment);
    const chr::year_month_day date(dayStart);
    const chr::hh_mm_ss time(moment - dayStart);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
}

}  // namespace kxbase
