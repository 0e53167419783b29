// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "kxbase/Points.h"

namespace qsn {

using Json = nlohmann::ordered_json;

/// An object with the keys that every document begins with: schema, version, file.
Json JsonDocument(const char* schema, int version, const std::string& file);

/// The text of a document, ending with a line end.
std::string JsonText(const Json& json);
/// The same on one line, without a line end.
std::string JsonLine(const Json& json);

/// A float with the digits that it needs, not those of its double; 0 for -0, null when it is not finite.
Json ShortNumber(float value);
/// A number of the file's own unit in metres, just as short.
Json ShortMetres(float fileUnits);
/// Ten decimals are a ten-billionth of a degree: noise of the conversion stays out.
Json RoundedDegrees(double radians);
/// Metres to the tenth of a micrometre.
Json RoundedMetres(double metres);

/// A direction's four keys and, before them, the range's.
Json PolarPointKeys(const kxbase::tBasePolarPoint<float>& point);

}  // namespace qsn
