// SPDX-License-Identifier: MIT
#include "FormatNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include "Errors.h"
#include "OutputFile.h"
#include "kxexchange/ScanSource.h"

namespace qsn {

namespace {

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower;
}

std::string Joined(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

std::vector<std::string> SourceList() {
    std::vector<std::string> names;
    for (const kxexchange::SourceFormat& format : kxexchange::SourceFormats())
        names.push_back(Lower(format.name));
    return names;
}

std::vector<std::string> SinkList() {
    std::vector<std::string> names{Lower(kQsnFormat)};
    for (const kxexchange::SinkFormat& format : kxexchange::SinkFormats())
        names.push_back(Lower(format.name));
    return names;
}

void RequireOneOf(const char* option, const std::string& name, const std::vector<std::string>& names) {
    if (name.empty() || std::find(names.begin(), names.end(), Lower(name)) != names.end()) return;
    throw UsageError(fmt::format("{} {}: no such format; expected one of {}", option, name, Joined(names)));
}

}  // namespace

std::string SourceNames() {
    return Joined(SourceList());
}

std::string SinkNames() {
    return Joined(SinkList());
}

std::string SinkEndings() {
    std::vector<std::string> endings;
    for (const kxexchange::SinkFormat& format : kxexchange::SinkFormats())
        endings.insert(endings.end(), format.endings.begin(), format.endings.end());
    return Joined(std::move(endings));
}

std::string InHelpLines(const std::string& text) {
    constexpr size_t kWidth = 46;
    std::istringstream words(text);
    std::string lines;
    size_t used = 0;
    for (std::string word; words >> word; used += word.size() + 1) {
        if (used != 0 && used + word.size() > kWidth) {
            lines += '\n';
            used = 0;
        }
        lines += (used == 0 ? "" : " ") + word;
    }
    return lines;
}

void RequireSourceFormat(const std::string& name) {
    RequireOneOf("--from", name, SourceList());
}

void RequireSinkFormat(const std::string& name) {
    RequireOneOf("--to", name, SinkList());
}

TargetFormat TargetFormatOf(const std::string& name, const std::string& path) {
    if (Lower(name) == Lower(kQsnFormat) || (name.empty() && HasEnding(path, ".qsn")))
        return {kQsnFormat, ".qsn", nullptr};
    const kxexchange::SinkFormat* const sink =
        name.empty() ? kxexchange::SinkFormatOf(ToPath(path)) : kxexchange::FindSinkFormat(name);
    if (!sink) throw UsageError(fmt::format("{}: unknown ending; expected .qsn, {}", path, SinkEndings()));
    return {std::string(sink->name), std::string(sink->endings.front()), sink};
}

void ApplyCoordinates(const std::string& text, kxexchange::ExportOptions& options) {
    using kxexchange::CoordinateKind;
    using kxexchange::NumberKind;
    if (text.empty()) return;
    if (text == "cartesian") {
        options.sink.coordinateKind = CoordinateKind::Cartesian;
    } else if (text == "spherical") {
        options.sink.coordinateKind = CoordinateKind::Spherical;
    } else if (text == "single") {
        options.sink.coordinates = NumberKind::Single;
    } else if (text == "double") {
        options.sink.coordinates = NumberKind::Double;
    } else {
        throw UsageError(
            fmt::format("--coordinates {}: expected cartesian, spherical, single or double", text));
    }
}

}  // namespace qsn
