// SPDX-License-Identifier: MIT
#include "PtxSource.h"

#include <algorithm>
#include <cmath>

#include "CellLines.h"
#include "TextFormat.h"
#include "kxexchange/Errors.h"

namespace kxexchange {

namespace {

// Cells handed over at once, but for a single longer column: 10 MB.
constexpr uint64_t kBlockCells = uint64_t{1} << 18;

// A piece of the text for a message: up to the next blank, printable, not long.
std::string Quote(const char* at) {
    constexpr size_t kMaxShown = 40;
    if (*at == '\n') return "the end of the line";
    std::string shown = "'";
    size_t length = 0;
    for (; !EndsNumber(at[length]); ++length) {
        if (length == kMaxShown) return shown + "...'";
        const auto c = static_cast<unsigned char>(at[length]);
        if (c >= ' ' && c < 0x7f) {
            shown += at[length];
        } else {
            constexpr const char* kHex = "0123456789abcdef";
            shown += {'\\', 'x', kHex[c >> 4], kHex[c & 15]};
        }
    }
    return shown + "'";
}

void SkipBlanks(const char*& at) {
    while (IsBlank(*at))
        ++at;
}

// One line: x y z intensity, with colour red green blue behind it.
template <bool HasColor>
bool ParseCell(const char*& line, Cell& cell, LineFault& fault) {
    static constexpr const char* kExpected =
        HasColor ? "7 values: x y z intensity red green blue" : "4 values: x y z intensity";
    const char* at = line;
    const auto fail = [&](const char* place, const char* field, std::string expected) {
        fault = {place, field, std::move(expected)};
        return false;
    };
    const auto number = [&](const char* field, double& value) {
        SkipBlanks(at);
        const NumberStatus status = ParseNumber(at, value);
        if (status == NumberStatus::Ok) [[likely]]
            return true;
        if (*at == '\n') return fail(at, field, kExpected);
        return fail(at, field,
                    status == NumberStatus::TooLarge ? "a number that fits double precision" : "a number");
    };
    const auto coordinate = [&](const char* field, double& value) {
        SkipBlanks(at);
        const char* const token = at;
        if (!number(field, value)) return false;
        if (std::abs(value) <= PtxSource::kMaxCoordinate) [[likely]]
            return true;
        return fail(token, field, "metres, at most 1e12");
    };
    cell = Cell();
    if (!coordinate("x", cell.x) || !coordinate("y", cell.y) || !coordinate("z", cell.z) ||
        !number("intensity", cell.intensity)) {
        return false;
    }
    if constexpr (HasColor) {
        const auto channel = [&](const char* field, uint16_t& value) {
            SkipBlanks(at);
            uint64_t whole = 0;
            if (!ParseWhole(at, 255, whole)) [[unlikely]] {
                return fail(at, field, *at == '\n' ? kExpected : "a whole number from 0 to 255");
            }
            value = static_cast<uint16_t>(whole);
            return true;
        };
        if (!channel("red", cell.red) || !channel("green", cell.green) || !channel("blue", cell.blue)) {
            return false;
        }
    }
    cell.valid = cell.x != 0 || cell.y != 0 || cell.z != 0;
    SkipBlanks(at);
    if (*at != '\n') [[unlikely]]
        return fail(at, "cell", std::string("no more than ") + kExpected);
    line = at + 1;
    return true;
}

}  // namespace

PtxSource::PtxSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
                     const SourceOptions& options)
    : m_stream(std::move(stream)),
      m_name(std::move(name)),
      m_threads(options.threads),
      m_fileBytes(m_stream->GetSize()),
      m_text(MakeByteFeed(*m_stream, m_name, options.threads != 1), m_name) {}

void PtxSource::Fail(const char* at, const std::string& field, const std::string& expected) const {
    kxbase::ErrorContext context;
    context.file = m_name;
    context.record = "line " + std::to_string(m_text.Line());
    context.field = field;
    context.offset = at ? m_text.Offset(at) : m_text.Offset();
    context.detail =
        "found " + (at ? Quote(at) : std::string("the end of the text")) + ", expected " + expected;
    throw SourceFormatException("PTX text cannot be read", context);
}

bool PtxSource::SkipBlankLines() {
    while (m_text.HasLine()) {
        const char* at = m_text.At();
        SkipBlanks(at);
        if (*at != '\n') return true;
        m_text.Advance(at + 1);
    }
    return false;
}

void PtxSource::RequireLine(const char* field, const char* expected) {
    if (!m_text.HasLine()) Fail(nullptr, field, expected);
}

void PtxSource::EndLine(const char*& at, const char* expected) {
    SkipBlanks(at);
    if (*at != '\n') Fail(at, {}, expected);
    m_text.Advance(at + 1);
}

double PtxSource::Number(const char*& at, const char* field) {
    SkipBlanks(at);
    double value = 0;
    switch (ParseNumber(at, value)) {
        case NumberStatus::Ok:
            break;
        case NumberStatus::NotANumber:
            Fail(at, field, "a number");
        case NumberStatus::TooLarge:
            Fail(at, field, "a number that fits double precision");
    }
    return value;
}

uint64_t PtxSource::ReadCount(const char* field) {
    RequireLine(field, "a line with a count");
    const char* at = m_text.At();
    SkipBlanks(at);
    const char* const token = at;
    uint64_t count = 0;
    if (!ParseWhole(at, kMaxSide, count) || count == 0) {
        Fail(token, field, "a whole number from 1 to " + std::to_string(kMaxSide));
    }
    EndLine(at, "nothing more in this line");
    return count;
}

void PtxSource::ReadNumbers(const char* field, double* out, size_t count) {
    const std::string line = "a line of " + std::to_string(count) + " numbers";
    RequireLine(field, line.c_str());
    const char* at = m_text.At();
    for (size_t i = 0; i < count; ++i)
        out[i] = Number(at, field);
    EndLine(at, line.c_str());
}

void PtxSource::ReadMatrix(std::array<double, 12>& values) {
    static constexpr const char* kFields[] = {"matrix row 1", "matrix row 2", "matrix row 3", "matrix row 4"};
    for (size_t row = 0; row < 4; ++row) {
        RequireLine(kFields[row], "a line of 4 numbers");
        const char* at = m_text.At();
        for (size_t column = 0; column < 3; ++column)
            values[row * 3 + column] = Number(at, kFields[row]);
        SkipBlanks(at);
        const char* const last = at;
        if (Number(at, kFields[row]) != (row == 3 ? 1.0 : 0.0)) {
            Fail(last, kFields[row], row == 3 ? "1 in the fourth column" : "0 in the fourth column");
        }
        EndLine(at, "a line of 4 numbers");
    }
}

// Whether the cells carry colour shows in the first of them.
bool PtxSource::PeekColor() {
    RequireLine("cell", "the first cell");
    const char* at = m_text.At();
    size_t values = 0;
    for (SkipBlanks(at); *at != '\n'; SkipBlanks(at)) {
        while (!EndsNumber(*at))
            ++at;
        ++values;
    }
    if (values != 4 && values != 7) {
        at = m_text.At();
        SkipBlanks(at);
        kxbase::ErrorContext context;
        context.file = m_name;
        context.record = "line " + std::to_string(m_text.Line());
        context.field = "cell";
        context.offset = m_text.Offset(at);
        context.detail = "found " + std::to_string(values) +
                         " values, expected x y z intensity or x y z intensity red green blue";
        throw SourceFormatException("PTX text cannot be read", context);
    }
    return values == 7;
}

ScanDescription PtxSource::ReadHeader() {
    const uint64_t columns = ReadCount("columns");
    const uint64_t rowsOffset = m_text.Offset();
    const uint64_t rowsLine = m_text.Line();
    const uint64_t rows = ReadCount("rows");
    if (columns > kMaxCells / rows) {
        kxbase::ErrorContext context;
        context.file = m_name;
        context.record = "line " + std::to_string(rowsLine);
        context.field = "rows";
        context.offset = rowsOffset;
        context.detail = "found " + std::to_string(columns) + " columns x " + std::to_string(rows) +
                         " rows, expected at most " + std::to_string(kMaxCells) + " cells";
        throw SourceFormatException("PTX text cannot be read", context);
    }
    std::array<double, 3> position{};
    std::array<double, 9> axes{};
    std::array<double, 12> matrix{};
    ReadNumbers("scanner position", position.data(), 3);
    ReadNumbers("scanner axis x", axes.data(), 3);
    ReadNumbers("scanner axis y", axes.data() + 3, 3);
    ReadNumbers("scanner axis z", axes.data() + 6, 3);
    ReadMatrix(matrix);

    ScanDescription description;
    description.columns = columns;
    description.rows = rows;
    description.points = columns * rows;
    description.pose = kxbase::RegistrationInformation::FromValues(matrix.data());
    description.coordinates.present = description.intensity.present = true;
    description.coordinates.unit = "m";
    description.coordinates.numbers = description.intensity.numbers = NumberKind::Text;
    if (!std::equal(position.begin(), position.end(), matrix.begin() + 9)) {
        description.keepsakes.emplace_back("position", JoinNumbers(position));
    }
    if (!std::equal(axes.begin(), axes.end(), matrix.begin())) {
        description.keepsakes.emplace_back("axes", JoinNumbers(axes));
    }
    return description;
}

// Goes to the header of scan `index`, walking over unknown scans in front of it.
bool PtxSource::FindScan(uint64_t index) {
    if (index < m_starts.size()) {
        const Place place = m_starts[static_cast<size_t>(index)];
        if (place.line != m_text.Line() || place.offset != m_text.Offset())
            m_text.GoTo(place.offset, place.line);
        return true;
    }
    if (m_allKnown) return false;
    if (m_starts.empty()) {
        m_text.GoTo(0, 1);
        if (m_text.HasLine()) {
            const char* at = m_text.At();
            if (at[0] == '\xef' && at[1] == '\xbb' && at[2] == '\xbf') m_text.GoTo(3, 1);
        }
    } else {
        const Place place = m_starts.back();
        m_text.GoTo(place.offset, place.line);
    }
    while (true) {
        if (!m_starts.empty()) {
            const ScanDescription known = ReadHeader();
            const uint64_t cells = known.columns * known.rows;
            const uint64_t passed = m_text.SkipLines(cells);
            if (passed != cells) {
                Fail(nullptr, "cell",
                     "a cell (column " + std::to_string(passed / known.rows + 1) + " of " +
                         std::to_string(known.columns) + ", row " + std::to_string(passed % known.rows + 1) +
                         " of " + std::to_string(known.rows) + ")");
            }
        }
        if (!SkipBlankLines()) {
            m_allKnown = true;
            if (m_starts.empty()) Fail(nullptr, "columns", "a scan");
            return false;
        }
        m_starts.push_back({m_text.Offset(), m_text.Line()});
        if (index < m_starts.size()) return true;
    }
}

uint64_t PtxSource::ScanCount() {
    m_columns = m_rows = 0;
    if (!m_allKnown) FindScan(~uint64_t{0});
    return m_starts.size();
}

ScanDescription PtxSource::OpenScan(uint64_t index) {
    m_columns = m_rows = m_nextColumn = 0;
    if (!FindScan(index)) {
        kxbase::ErrorContext context;
        context.file = m_name;
        context.detail = "asked for scan " + std::to_string(index + 1) + ", the file holds " +
                         std::to_string(m_starts.size());
        throw kxbase::KXIndexOutOfBoundsException("No such scan in the file", context);
    }
    ScanDescription description = ReadHeader();
    m_color = PeekColor();
    description.color.present = m_color;
    if (m_color) {
        description.color.minimum = 0;
        description.color.maximum = 255;
        description.color.precision = 1;
        description.color.numbers = NumberKind::Integer;
    }
    m_columns = description.columns;
    m_rows = description.rows;
    return description;
}

uint64_t PtxSource::ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) {
    const uint64_t left = m_columns - m_nextColumn;
    if (left == 0 || maxColumns == 0) {
        cells.clear();
        return 0;
    }
    const uint64_t columns = std::min({left, maxColumns, std::max<uint64_t>(1, kBlockCells / m_rows)});
    const uint64_t wanted = columns * m_rows;
    LineFault fault;
    const auto filled = ReadCellLines(
        m_text, m_threads, wanted, cells, 0,
        PlainOrEachLine({true, m_color, true}, m_color ? ParseCell<true> : ParseCell<false>), fault);
    if (fault.at) Fail(fault.at, fault.field, fault.expected);
    if (filled != wanted) {
        Fail(nullptr, "cell",
             "a cell (column " + std::to_string(m_nextColumn + filled / m_rows + 1) + " of " +
                 std::to_string(m_columns) + ", row " + std::to_string(filled % m_rows + 1) + " of " +
                 std::to_string(m_rows) + ")");
    }
    cells.resize(filled);
    m_nextColumn += columns;
    return columns;
}

}  // namespace kxexchange
