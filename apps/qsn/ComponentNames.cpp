// SPDX-License-Identifier: MIT
#include "ComponentNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "Errors.h"
#include "Numbers.h"

namespace qsn {

using kxbase::ComponentType;

namespace {

struct ComponentName {
    ComponentType component;
    const char* name;
};

constexpr ComponentName kNames[] = {
    {kxbase::Range, "range"},
    {kxbase::VerticalAngle, "vertical"},
    {kxbase::HorizontalAngle, "horizontal"},
    {kxbase::Luminance8, "intensity8"},
    {kxbase::Luminance16, "intensity16"},
    {kxbase::Color, "color"},
    {kxbase::Class, "class"},
    {kxbase::Segment, "segment"},
};

constexpr std::pair<const char*, ComponentType> kOtherNames[] = {
    {"intensity", kxbase::Luminance16},
    {"colour", kxbase::Color},
};

std::string LowerCase(std::string text) {
    // ASCII only: the names are, and the locale must not matter.
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

const ComponentName* FindName(ComponentType component) {
    const auto found = std::find_if(std::begin(kNames), std::end(kNames),
                                    [&](const ComponentName& n) { return n.component == component; });
    return found == std::end(kNames) ? nullptr : found;
}

}  // namespace

ComponentType ParseComponent(const std::string& text) {
    const std::string wanted = LowerCase(text);
    for (const ComponentName& row : kNames) {
        if (wanted == row.name || wanted == LowerCase(kxbase::ComponentToString(row.component)))
            return row.component;
    }
    for (const auto& [name, component] : kOtherNames) {
        if (wanted == name) return component;
    }
    constexpr std::string_view kPrefix = "component";
    const bool prefixed = wanted.starts_with(kPrefix);
    if (const auto number = ParseCount(prefixed ? wanted.substr(kPrefix.size()) : wanted);
        number && *number > 0)
        return static_cast<ComponentType>(*number);
    throw UsageError(fmt::format(
        "'{}' is no component: range, vertical, horizontal, intensity8, intensity16, color, class, "
        "segment or a number from 1",
        text));
}

std::string ComponentShortName(ComponentType component) {
    if (const ComponentName* row = FindName(component)) return row->name;
    return fmt::format("component{}", static_cast<uint32_t>(component));
}

}  // namespace qsn
