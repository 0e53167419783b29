// SPDX-License-Identifier: MIT
#pragma once

#include <charconv>
#include <cstdint>
#include <system_error>

namespace kxexchange {

/// What ParseNumber found.
enum class NumberStatus {
    Ok,
    NotANumber,
    TooLarge,  ///< beyond double precision
};

inline bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}
inline bool EndsNumber(char c) {
    return IsBlank(c) || c == '\n';
}
inline bool IsDigit(char c) {
    return static_cast<unsigned char>(c - '0') < 10;
}

/// For a number beyond the range of doubles: on which side it lies. `exponent` is the power of ten of the
/// last digit.
inline bool IsLarge(const char* begin, const char* end, int exponent) {
    int64_t digits = 0;  // from the first that is not 0
    for (const char* p = begin; p != end && *p != 'e' && *p != 'E'; ++p) {
        if (IsDigit(*p) && (digits != 0 || *p != '0')) ++digits;
    }
    return digits + exponent > 0;
}

/// Reads one decimal number at `at`, which must be followed somewhere by a blank or a line end: text buffers
/// end with one. A leading '+' is allowed; "nan" and "inf" are not numbers here. On success `at` stands
/// behind the number, otherwise it is not moved. The result is the nearest double.
///
/// Numbers of up to 19 digits that fit 2^53 with a power of ten up to 22 are exact in one multiplication or
/// division of exact doubles; the rest goes through std::from_chars.
inline NumberStatus ParseNumber(const char*& at, double& value) {
    static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                         1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    static constexpr int kExactPowers = 22;
    static constexpr uint64_t kExactMantissa = uint64_t{1} << 53;
    static constexpr int kMantissaDigits = 19;
    static constexpr int kExponentLimit = 100000;

    const char* p = at;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    const char* const unsignedBegin = p;
    uint64_t mantissa = 0;
    while (IsDigit(*p))
        mantissa = mantissa * 10 + static_cast<uint64_t>(*p++ - '0');
    auto digits = p - unsignedBegin;
    int exponent = 0;
    if (*p == '.') {
        const char* const fraction = ++p;
        while (IsDigit(*p))
            mantissa = mantissa * 10 + static_cast<uint64_t>(*p++ - '0');
        const auto decimals = p - fraction;
        digits += decimals;
        exponent = decimals < kExponentLimit ? -static_cast<int>(decimals) : -kExponentLimit;
    }
    if (digits == 0) return NumberStatus::NotANumber;
    if (*p == 'e' || *p == 'E') {
        ++p;
        const bool negativeExponent = *p == '-';
        if (*p == '-' || *p == '+') ++p;
        if (!IsDigit(*p)) return NumberStatus::NotANumber;
        int given = 0;
        while (IsDigit(*p)) {
            if (given < kExponentLimit) given = given * 10 + (*p - '0');
            ++p;
        }
        exponent += negativeExponent ? -given : given;
    }
    if (!EndsNumber(*p)) return NumberStatus::NotANumber;

    if (digits <= kMantissaDigits && mantissa <= kExactMantissa && exponent >= -kExactPowers &&
        exponent <= kExactPowers) {
        const auto whole = static_cast<double>(mantissa);
        const double magnitude = exponent < 0 ? whole / kPowers[-exponent] : whole * kPowers[exponent];
        value = negative ? -magnitude : magnitude;
    } else {
        double magnitude = 0;
        const auto result = std::from_chars(unsignedBegin, p, magnitude);
        if (result.ec == std::errc::result_out_of_range) {
            if (IsLarge(unsignedBegin, p, exponent)) return NumberStatus::TooLarge;
            magnitude = 0;  // too small for a double
        } else if (result.ec != std::errc() || result.ptr != p) {
            return NumberStatus::NotANumber;
        }
        value = negative ? -magnitude : magnitude;
    }
    at = p;
    return NumberStatus::Ok;
}

/// Reads a whole number of 0..`limit`; otherwise false, and `at` is not moved.
inline bool ParseWhole(const char*& at, uint64_t limit, uint64_t& value) {
    const char* p = at;
    if (*p == '+') ++p;
    if (!IsDigit(*p)) return false;
    uint64_t result = 0;
    while (IsDigit(*p)) {
        const auto digit = static_cast<uint64_t>(*p++ - '0');
        if (digit > limit || result > (limit - digit) / 10) return false;
        result = result * 10 + digit;
    }
    if (!EndsNumber(*p)) return false;
    value = result;
    at = p;
    return true;
}

}  // namespace kxexchange
