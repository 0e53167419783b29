// SPDX-License-Identifier: MIT
#include "PtxSink.h"

#include <cmath>

#include "TextFormat.h"

namespace kxexchange {

namespace {

// What stands for "no intensity", since the format demands one.
constexpr double kNoIntensity = 0.5;

std::string Line(std::span<const double> values, const char* end = "\n") {
    std::string line;
    for (const double value : values) {
        if (!line.empty()) line += ' ';
        line += ShortestText(value);
    }
    return line + end;
}

// A keepsake of so many numbers, if there is one.
std::optional<std::vector<double>> Keepsake(const ScanDescription& description, std::string_view key,
                                            size_t count) {
    for (const auto& [name, text] : description.keepsakes) {
        if (name != key) continue;
        auto values = SplitNumbers(text);
        if (values && values->size() == count) return values;
    }
    return std::nullopt;
}

}  // namespace

FormatCapabilities PtxSink::Capabilities() {
    FormatCapabilities can;
    can.grid = can.noReturns = can.pose = can.intensity = can.color = can.severalScans = Fate::Kept;
    return can;
}

void PtxSink::BeginScan(const ScanDescription& description) {
    const std::span<const double> matrix(description.pose.Values(),
                                         kxbase::RegistrationInformation::ValueCount);
    m_bytes.Append(std::to_string(description.columns) + "\n" + std::to_string(description.rows) + "\n");
    const auto position = Keepsake(description, "position", 3);
    m_bytes.Append(Line(position ? std::span<const double>(*position) : matrix.subspan(9, 3)));
    const auto axes = Keepsake(description, "axes", 9);
    const std::span<const double> axisValues = axes ? std::span<const double>(*axes) : matrix.first(9);
    for (size_t i = 0; i < 3; ++i)
        m_bytes.Append(Line(axisValues.subspan(3 * i, 3)));
    for (size_t i = 0; i < 4; ++i)
        m_bytes.Append(Line(matrix.subspan(3 * i, 3), i == 3 ? " 1\n" : " 0\n"));
    m_intensity = description.intensity.present;
    m_color = description.color.present;
    m_style = TextStyleFor(description, m_options);
}

// A return that rounds to the origin would come back as no return: its last digit says that it is one.
char* PtxSink::AppendCoordinates(char* out, const Cell& cell) const {
    const double least =
        m_style.coordinateDecimals < 0 ? 0 : 0.5 * std::pow(10.0, -m_style.coordinateDecimals);
    double x = cell.x;
    if (least > 0 && !(std::abs(x) >= least || std::abs(cell.y) >= least || std::abs(cell.z) >= least)) {
        x = std::copysign(2 * least, x);
    }
    out = AppendNumber(out, x, m_style.coordinateDecimals);
    *out++ = ' ';
    out = AppendNumber(out, cell.y, m_style.coordinateDecimals);
    *out++ = ' ';
    return AppendNumber(out, cell.z, m_style.coordinateDecimals);
}

void PtxSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    static_assert(ByteSink::kReserve >= kMaxCellBytes);
    for (const Cell& cell : cells) {
        char* out = m_bytes.Reserve();
        const double intensity = m_intensity ? cell.intensity : kNoIntensity;
        if (cell.valid) {
            out = AppendCoordinates(out, cell);
            *out++ = ' ';
            out = AppendNumber(out, intensity, m_style.intensityDecimals);
            ++m_points;
        } else {
            out = std::copy_n("0 0 0 ", 6, out);
            out = AppendShortest(out, intensity);
        }
        if (m_color) {
            for (const uint16_t channel : {cell.red, cell.green, cell.blue}) {
                *out++ = ' ';
                out = std::to_chars(out, out + 5, channel).ptr;
            }
        }
        *out++ = '\n';
        m_bytes.Claim(out);
    }
}

}  // namespace kxexchange
