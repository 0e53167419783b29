// SPDX-License-Identifier: MIT
#include "JsonOutput.h"

#include <fmt/format.h>

#include <cmath>

#include "Numbers.h"
#include "Units.h"

namespace qsn {

namespace {

/// Adding 0 makes 0 of -0.
constexpr double kPositiveZero = 0.0;

Json Rounded(double value, double perUnit) {
    if (!std::isfinite(value)) return nullptr;
    const double rounded = std::round(value * perUnit) / perUnit;
    return (std::isfinite(rounded) ? rounded : value) + kPositiveZero;
}

}  // namespace

Json JsonDocument(const char* schema, int version, const std::string& file) {
    return {{"schema", schema}, {"version", version}, {"file", file}};
}

std::string JsonText(const Json& json) {
    // Texts are valid UTF-8 already: those of files were decoded, the path was checked with the arguments.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string JsonLine(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json ShortNumber(float value) {
    if (!std::isfinite(value)) return nullptr;
    const auto number = ParseNumber(fmt::format("{}", value));
    return number ? Json(*number + kPositiveZero) : Json(nullptr);
}

Json ShortMetres(float fileUnits) {
    const Json number = ShortNumber(fileUnits);
    // Divided, not multiplied: 3995.7 / 1000 is the double next to 3.9957.
    return number.is_null() ? number : Json(number.get<double>() / 1000);
}

Json RoundedDegrees(double radians) {
    return Rounded(radians * kDegreesPerRadian, 1e10);
}

Json RoundedMetres(double metres) {
    return Rounded(metres, 1e7);
}

Json PolarPointKeys(const kxbase::tBasePolarPoint<float>& point) {
    return {{"rangeMetres", ShortMetres(point.range)},
            {"horizontalRadians", ShortNumber(point.horizontal)},
            {"horizontalDegrees", RoundedDegrees(static_cast<double>(point.horizontal))},
            {"verticalRadians", ShortNumber(point.vertical)},
            {"verticalDegrees", RoundedDegrees(static_cast<double>(point.vertical))}};
}

}  // namespace qsn
