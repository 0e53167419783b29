// SPDX-License-Identifier: MIT
#include "PointTextSource.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "TextNumbers.h"
#include "kxexchange/Errors.h"

namespace kxexchange {

namespace {

constexpr uint64_t kPointsPerRead = uint64_t{1} << 18;
constexpr double kMaxCoordinate = 1e12;
constexpr uint64_t kMostPoints = uint64_t{1} << 40;

const char* SkipBlanks(const char* at) {
    while (IsBlank(*at))
        ++at;
    return at;
}

// x y z, then intensity and colour as the number of values says.
template <bool HasIntensity, bool HasColor>
bool ParsePoint(const char*& line, Cell& cell, LineFault& fault) {
    static constexpr int kValues = 3 + (HasIntensity ? 1 : 0) + (HasColor ? 3 : 0);
    const char* at = line;
    cell = Cell();
    const auto fail = [&](const char* place, const char* field, std::string expected) {
        fault = {place, field, *place == '\n' ? std::to_string(kValues) + " values" : std::move(expected)};
        return false;
    };
    const auto number = [&](const char* field, double& value, double most) {
        at = SkipBlanks(at);
        const char* const token = at;
        if (ParseNumber(at, value) != NumberStatus::Ok) return fail(token, field, "a number");
        if (!(std::abs(value) <= most)) return fail(token, field, "metres, at most 1e12");
        return true;
    };
    if (!number("x", cell.x, kMaxCoordinate) || !number("y", cell.y, kMaxCoordinate) ||
        !number("z", cell.z, kMaxCoordinate)) {
        return false;
    }
    if constexpr (HasIntensity) {
        if (!number("intensity", cell.intensity, std::numeric_limits<double>::max())) return false;
    }
    if constexpr (HasColor) {
        for (uint16_t Cell::*channel : {&Cell::red, &Cell::green, &Cell::blue}) {
            at = SkipBlanks(at);
            uint64_t whole = 0;
            if (!ParseWhole(at, 255, whole)) return fail(at, "colour", "a whole number from 0 to 255");
            cell.*channel = static_cast<uint16_t>(whole);
        }
    }
    cell.valid = true;
    at = SkipBlanks(at);
    if (*at != '\n') {
        fault = {at, "point", "no more than " + std::to_string(kValues) + " values"};
        return false;
    }
    line = at + 1;
    return true;
}

LinesParser ParserFor(size_t values) {
    switch (values) {
        case 3:
            return PlainOrEachLine({}, ParsePoint<false, false>);
        case 4:
            return PlainOrEachLine({true, false}, ParsePoint<true, false>);
        case 6:
            return PlainOrEachLine({false, true}, ParsePoint<false, true>);
        default:
            return PlainOrEachLine({true, true}, ParsePoint<true, true>);
    }
}

}  // namespace

PointTextSource::PointTextSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
                                 const SourceOptions& options, bool counted)
    : m_stream(std::move(stream)),
      m_name(std::move(name)),
      m_threads(options.threads),
      m_counted(counted),
      m_fileBytes(m_stream->GetSize()),
      m_text(MakeByteFeed(*m_stream, m_name, options.threads != 1), m_name) {}

void PointTextSource::Fail(const char* at, const std::string& field, const std::string& expected) const {
    kxbase::ErrorContext context;
    context.file = m_name;
    context.record = "line " + std::to_string(m_text.Line());
    context.field = field;
    context.offset = at ? m_text.Offset(at) : m_text.Offset();
    context.detail =
        std::string(at ? "found something else" : "found the end of the text") + ", expected " + expected;
    throw SourceFormatException(FormatName() + " text cannot be read", context);
}

bool PointTextSource::SkipBlankLines() {
    while (m_text.HasLine()) {
        const char* at = SkipBlanks(m_text.At());
        const bool remark = !m_counted && (*at == '#' || (at[0] == '/' && at[1] == '/'));
        if (*at != '\n' && !remark) return true;
        m_text.Advance(std::find(at, m_text.LinesEnd(), '\n') + 1);
    }
    return false;
}

uint64_t PointTextSource::ReadCount() {
    if (!m_text.HasLine()) Fail(nullptr, "count", "a line with the number of points");
    const char* at = SkipBlanks(m_text.At());
    const char* const token = at;
    uint64_t count = 0;
    const bool whole = ParseWhole(at, kMostPoints, count);
    at = SkipBlanks(at);
    if (!whole || *at != '\n') Fail(token, "count", "a line with the number of points");
    m_text.Advance(at + 1);
    return count;
}

// Goes to the first line of scan `index`, walking over unknown ones in front of it.
bool PointTextSource::FindScan(uint64_t index) {
    if (index < m_starts.size()) {
        const Place place = m_starts[static_cast<size_t>(index)];
        m_text.GoTo(place.offset, place.line);
        return true;
    }
    if (m_allKnown) return false;
    const bool first = m_starts.empty();
    const Place place = first ? Place{0, 1} : m_starts.back();
    m_text.GoTo(place.offset, place.line);
    if (first && m_text.HasLine()) {
        const char* at = m_text.At();
        if (at[0] == '\xef' && at[1] == '\xbb' && at[2] == '\xbf') m_text.GoTo(3, 1);
    }
    while (true) {
        if (!m_starts.empty()) {
            const uint64_t count = ReadCount();
            const uint64_t passed = m_text.SkipLines(count);
            if (passed != count) {
                Fail(nullptr, "point", std::to_string(count - passed) + " more points");
            }
        }
        if (!SkipBlankLines() || (!m_counted && !m_starts.empty())) {
            m_allKnown = true;
            if (m_starts.empty())
                Fail(nullptr, "", m_counted ? "a line with the number of points" : "a point");
            return false;
        }
        m_starts.push_back({m_text.Offset(), m_text.Line()});
        m_allKnown = !m_counted;
        if (index < m_starts.size()) return true;
        if (m_allKnown) return false;
    }
}

uint64_t PointTextSource::ScanCount() {
    m_left = 0;
    if (!m_allKnown) FindScan(~uint64_t{0});
    return m_starts.size();
}

// Which values the points carry shows in the first of them.
size_t PointTextSource::ValuesInLine() const {
    const char* at = m_text.At();
    size_t values = 0;
    for (at = SkipBlanks(at); *at != '\n'; at = SkipBlanks(at)) {
        while (!EndsNumber(*at))
            ++at;
        ++values;
    }
    if (values != 3 && values != 4 && values != 6 && values != 7) {
        Fail(m_text.At(), "point",
             "3, 4, 6 or 7 values (x y z, intensity, red green blue) instead of " + std::to_string(values));
    }
    return values;
}

ScanDescription PointTextSource::OpenScan(uint64_t index) {
    m_left = 0;
    if (!FindScan(index)) {
        kxbase::ErrorContext context;
        context.file = m_name;
        context.detail = "asked for scan " + std::to_string(index + 1) + ", the file holds " +
                         std::to_string(m_starts.size());
        throw kxbase::KXIndexOutOfBoundsException("No such scan in the file", context);
    }
    ScanDescription description;
    uint64_t count = ~uint64_t{0};
    m_values = 3;
    if (m_counted) count = description.points = ReadCount();
    if (count != 0) {
        if (!m_text.HasLine()) Fail(nullptr, "point", "the first point");
        m_values = ValuesInLine();
    }
    m_left = count;
    description.coordinates.present = true;
    description.coordinates.unit = "m";
    description.coordinates.numbers = NumberKind::Text;
    description.intensity.present = m_values == 4 || m_values == 7;
    if (description.intensity.present) description.intensity.numbers = NumberKind::Text;
    description.color.present = m_values >= 6;
    if (description.color.present) {
        description.color.minimum = 0;
        description.color.maximum = 255;
        description.color.precision = 1;
        description.color.numbers = NumberKind::Integer;
    }
    return description;
}

uint64_t PointTextSource::ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) {
    cells.clear();
    if (m_left == 0 || maxColumns == 0) return 0;
    const uint64_t wanted = std::min(m_left, kPointsPerRead);
    LineFault fault;
    const size_t read = ReadCellLines(m_text, m_threads, wanted, cells, 0, ParserFor(m_values), fault);
    cells.resize(read);
    if (fault.at) {
        // Lines of nothing may stand behind an XYZ's last point.
        const bool blank = *SkipBlanks(m_text.At()) == '\n';
        if (m_counted || !blank || SkipBlankLines())
            Fail(m_counted || !blank ? fault.at : m_text.At(), fault.field, fault.expected);
    }
    if (read < wanted && m_counted) Fail(nullptr, "point", std::to_string(m_left - read) + " more points");
    m_left = read < wanted ? 0 : m_left - read;
    return read == 0 ? 0 : 1;
}

}  // namespace kxexchange
