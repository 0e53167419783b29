// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "kxbase/Export.h"

namespace kxbase {

/// A moment in UTC, to the second; or no date at all. A value type.
class KXBASE_EXPORT Date {
public:
    /// No date: its text is empty.
    Date() = default;
    /// From ISO 8601 text: "YYYY-MM-DDThh:mm:ss" or the basic form without separators, with or without a
    /// fraction (dropped), "Z", a "+hh:mm" offset or nothing (taken as UTC).
    /// \throws KXBadInputException for anything else, also for the empty text
    explicit Date(const std::wstring& text);

    /// The present moment.
    static Date Now();
    /// From seconds since 1970-01-01T00:00:00Z.
    /// \throws KXBadInputException outside the years 0 to 9999, which the text cannot write
    static Date FromUnixSeconds(int64_t seconds);

    /// "YYYY-MM-DDThh:mm:ssZ"; empty for no date.
    std::string ToISOString() const;
    bool IsSet() const { return m_set; }  ///< false for no date
    /// Seconds since 1970-01-01T00:00:00Z; 0 for no date.
    int64_t UnixSeconds() const { return m_seconds; }

    auto operator<=>(const Date&) const = default;

private:
    bool m_set = false;
    int64_t m_seconds = 0;
};

}  // namespace kxbase
