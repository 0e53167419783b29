// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kxexchange {

/// Facts of an E57 file that travel beside a scan (ScanDescription::keepsakes) so that an E57 written later
/// says the same again. The keys begin with "e57-".
using Keepsakes = std::vector<std::pair<std::string, std::string>>;

/// The namespace of this library's own elements in E57 files.
constexpr std::string_view kE57OwnNamespace = "urn:kxio:e57:1";
constexpr std::string_view kE57OwnPrefix = "kx";

/// The value of a key; nullptr when there is none.
const std::string* FindKeepsake(const Keepsakes& keepsakes, std::string_view key);
/// The numbers of a key's value, when there are `count` of them.
std::optional<std::vector<double>> KeepsakeNumbers(const Keepsakes& keepsakes, std::string_view key,
                                                   size_t count);

/// All in one line, "key=value key=value", and back; pieces without '=' are passed over.
std::string JoinKeepsakes(const Keepsakes& keepsakes);
Keepsakes SplitKeepsakes(std::string_view line);

}  // namespace kxexchange
