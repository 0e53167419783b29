// SPDX-License-Identifier: MIT
#include "kxexchange/GridLayout.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

#include "TextFormat.h"

namespace kxexchange {

namespace {

constexpr std::string_view kPrefix = "kxio-layout 1";
// Beyond these a layout is not believed; they leave room for sums.
constexpr uint64_t kMaxSide = uint64_t{1} << 32;
constexpr size_t kMaxSegments = 64;

struct Span {
    uint64_t first;
    uint64_t end;
};

Span GridRowsOf(const RowSegment& segment) {
    if (segment.descending) return {segment.gridRow + 1 - segment.count, segment.gridRow + 1};
    return {segment.gridRow, segment.gridRow + segment.count};
}

bool ReadWhole(std::string_view& text, uint64_t& value) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || value > kMaxSide) return false;
    text.remove_prefix(static_cast<size_t>(result.ptr - text.data()));
    return true;
}

bool ReadWholeAlone(std::string_view text, uint64_t& value) {
    return ReadWhole(text, value) && text.empty();
}

bool Take(std::string_view& text, std::string_view piece) {
    if (!text.starts_with(piece)) return false;
    text.remove_prefix(piece.size());
    return true;
}

// 0+1074@near:1073-
bool ReadSegment(std::string_view text, RowSegment& segment) {
    if (!ReadWhole(text, segment.firstRow) || !Take(text, "+") || !ReadWhole(text, segment.count) ||
        !Take(text, "@")) {
        return false;
    }
    segment.far = text.starts_with("far:");
    if (!Take(text, "far:") && !Take(text, "near:")) return false;
    if (!ReadWhole(text, segment.gridRow)) return false;
    segment.descending = text == "-";
    return text == "-" || text == "+";
}

bool ReadSegments(std::string_view text, std::vector<RowSegment>& segments) {
    while (true) {
        const size_t comma = text.find(',');
        if (segments.size() == kMaxSegments || !ReadSegment(text.substr(0, comma), segments.emplace_back())) {
            return false;
        }
        if (comma == std::string_view::npos) return true;
        text.remove_prefix(comma + 1);
    }
}

// none, unit, unit:32767, integer:0:0.0625, real:-12.5:0.001
bool ReadIntensity(std::string_view text, IntensityMapping& mapping) {
    using Kind = IntensityMapping::Kind;
    if (text == "none") {
        mapping = {};
        return true;
    }
    if (text == "unit") {
        mapping = {Kind::Unit, 0, 1.0 / 65535};
        return true;
    }
    if (Take(text, "unit:")) {
        const auto levels = SplitNumbers(text);
        if (!levels || levels->size() != 1 || !(levels->front() >= 1 && levels->front() < 65535))
            return false;
        mapping = {Kind::Unit, 0, 1.0 / 65535, static_cast<uint32_t>(levels->front())};
        return mapping.levels == levels->front();
    }
    if (Take(text, "integer:")) {
        mapping.kind = Kind::Integer;
    } else if (Take(text, "real:")) {
        mapping.kind = Kind::Real;
    } else {
        return false;
    }
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    const auto offset = SplitNumbers(text.substr(0, colon));
    const auto scale = SplitNumbers(text.substr(colon + 1));
    if (!offset || !scale || offset->size() != 1 || scale->size() != 1 || !(scale->front() > 0)) return false;
    mapping.offset = offset->front();
    mapping.scale = scale->front();
    return std::isfinite(mapping.offset + 65535 * mapping.scale);
}

std::string IntensityText(const IntensityMapping& mapping) {
    using Kind = IntensityMapping::Kind;
    switch (mapping.kind) {
        case Kind::None:
            return "none";
        case Kind::Unit:
            return mapping.levels != 0 ? "unit:" + std::to_string(mapping.levels) : "unit";
        case Kind::Integer:
            return "integer:" + ShortestText(mapping.offset) + ":" + ShortestText(mapping.scale);
        case Kind::Real:
            break;
    }
    return "real:" + ShortestText(mapping.offset) + ":" + ShortestText(mapping.scale);
}

}  // namespace

std::optional<std::vector<double>> SplitNumbers(std::string_view text) {
    std::vector<double> values;
    while (true) {
        const size_t comma = text.find(',');
        const std::string_view piece = text.substr(0, comma);
        double value = 0;
        const auto result = std::from_chars(piece.data(), piece.data() + piece.size(), value);
        constexpr double kLargest = std::numeric_limits<double>::max();
        if (result.ec != std::errc() || result.ptr != piece.data() + piece.size() ||
            !(value >= -kLargest && value <= kLargest)) {
            return std::nullopt;
        }
        values.push_back(value);
        if (comma == std::string_view::npos) return values;
        text.remove_prefix(comma + 1);
    }
}

bool GridLayout::RowsReversed() const {
    for (const RowSegment& segment : segments) {
        if (!segment.far) return segment.descending;
    }
    return false;
}

bool GridLayout::IsConsistent() const {
    if (columns == 0 || rows == 0 || columns > kMaxSide || rows > kMaxSide || farColumn > kMaxSide ||
        gridRows > kMaxSide || segments.size() > kMaxSegments) {
        return false;
    }
    uint64_t next = 0;
    bool anyFar = false;
    for (const RowSegment& segment : segments) {
        if (segment.firstRow != next || segment.count == 0 || segment.count > rows - next) return false;
        next += segment.count;
        anyFar = anyFar || segment.far;
        if (segment.gridRow >= gridRows) return false;
        if (segment.descending ? segment.count > segment.gridRow + 1
                               : segment.count > gridRows - segment.gridRow) {
            return false;
        }
    }
    if (next != rows || anyFar != Folded() || (Folded() && farColumn < columns)) return false;
    for (size_t i = 0; i < segments.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            const Span a = GridRowsOf(segments[i]), b = GridRowsOf(segments[j]);
            if (segments[i].far == segments[j].far && a.first < b.end && b.first < a.end) return false;
        }
    }
    return true;
}

std::string LayoutMessage::Format() const {
    std::string text(kPrefix);
    const auto add = [&](std::string_view key, const std::string& value) {
        text += ' ';
        text += key;
        text += '=';
        text += value;
    };
    add("columns", std::to_string(layout.columns));
    add("rows", std::to_string(layout.rows));
    add("order", layout.columnsReversed ? "reversed" : "forward");
    if (layout.Folded()) add("fold", std::to_string(layout.farColumn));
    add("gridrows", std::to_string(layout.gridRows));
    std::string segments;
    for (const RowSegment& segment : layout.segments) {
        if (!segments.empty()) segments += ',';
        segments += std::to_string(segment.firstRow) + '+' + std::to_string(segment.count) +
                    (segment.far ? "@far:" : "@near:") + std::to_string(segment.gridRow) +
                    (segment.descending ? '-' : '+');
    }
    add("segments", segments);
    add("intensity", IntensityText(intensity));
    if (emptyIntensity) add("empty", ShortestText(*emptyIntensity));
    if (directions) add("directions", "own");
    if (!source.empty()) add("source", source);
    for (const auto& [key, value] : keepsakes)
        add(key, value);
    return text;
}

std::optional<LayoutMessage> LayoutMessage::Parse(const std::string& text) {
    std::string_view rest = text;
    if (!Take(rest, kPrefix) || !Take(rest, " ")) return std::nullopt;
    LayoutMessage message;
    bool ordered = false;
    while (!rest.empty()) {
        const size_t blank = rest.find(' ');
        const std::string_view word = rest.substr(0, blank);
        rest = blank == std::string_view::npos ? std::string_view() : rest.substr(blank + 1);
        const size_t equals = word.find('=');
        if (equals == std::string_view::npos || equals == 0) return std::nullopt;
        const std::string_view key = word.substr(0, equals);
        const std::string_view value = word.substr(equals + 1);
        bool fine = true;
        if (key == "columns") {
            fine = ReadWholeAlone(value, message.layout.columns);
        } else if (key == "rows") {
            fine = ReadWholeAlone(value, message.layout.rows);
        } else if (key == "order") {
            ordered = fine = value == "forward" || value == "reversed";
            message.layout.columnsReversed = value == "reversed";
        } else if (key == "fold") {
            fine = ReadWholeAlone(value, message.layout.farColumn);
        } else if (key == "gridrows") {
            fine = ReadWholeAlone(value, message.layout.gridRows);
        } else if (key == "segments") {
            message.layout.segments.clear();
            fine = ReadSegments(value, message.layout.segments);
        } else if (key == "intensity") {
            fine = ReadIntensity(value, message.intensity);
        } else if (key == "empty") {
            const auto number = SplitNumbers(value);
            fine = number && number->size() == 1;
            if (fine) message.emptyIntensity = number->front();
        } else if (key == "directions") {
            fine = message.directions = value == "own";
        } else if (key == "source") {
            message.source = value;
        } else {
            message.keepsakes.emplace_back(key, value);
        }
        if (!fine) return std::nullopt;
    }
    if (!ordered || !message.layout.IsConsistent()) return std::nullopt;
    return message;
}

}  // namespace kxexchange
