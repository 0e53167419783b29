// SPDX-License-Identifier: MIT
#include "E57Time.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace kxexchange {

namespace {

constexpr int64_t kGpsEpoch = 315964800;  // 1980-01-06 in seconds since 1970
// First seconds of UTC behind each leap second since then, as published by the IERS in Bulletin C.
constexpr std::array<int64_t, 18> kLeaps{
    362793600, 394329600, 425865600, 489024000, 567993600,  631152000,  662688000,  709948800,  741484800,
    773020800, 820454400, 867715200, 915148800, 1136073600, 1230768000, 1341100800, 1435708800, 1483228800};
// Years 1 to 9998, roughly: what a date can say, whatever the leap seconds.
constexpr double kLeast = -6.2e10;
constexpr double kGreatest = 2.53e11;

}  // namespace

kxbase::Date DateOfGps(double gpsSeconds) {
    if (!(gpsSeconds > kLeast && gpsSeconds < kGreatest)) return {};
    const int64_t atomic = static_cast<int64_t>(std::floor(gpsSeconds)) + kGpsEpoch;
    int64_t utc = atomic;
    for (const int64_t leap : kLeaps) {
        if (utc > leap) --utc;
    }
    // The leap second itself is told as the second behind it.
    return kxbase::Date::FromUnixSeconds(utc);
}

double GpsOfDate(const kxbase::Date& date) {
    const int64_t utc = date.UnixSeconds();
    const auto passed = std::upper_bound(kLeaps.begin(), kLeaps.end(), utc) - kLeaps.begin();
    return static_cast<double>(utc - kGpsEpoch + passed);
}

}  // namespace kxexchange
