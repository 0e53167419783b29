// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/Date.h"

namespace kxexchange {

/// E57 counts seconds of GPS time: since 1980-01-06T00:00:00 UTC, leap seconds included. Leap seconds up to
/// the last one announced so far (end of 2016) are known.

/// The UTC moment, fractions dropped; no date when it lies outside the years 0 to 9999 or is no number.
kxbase::Date DateOfGps(double gpsSeconds);
/// GPS seconds of a moment that is set.
double GpsOfDate(const kxbase::Date& date);

}  // namespace kxexchange
