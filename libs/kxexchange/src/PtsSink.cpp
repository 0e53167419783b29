// SPDX-License-Identifier: MIT
#include "PtsSink.h"

#include <algorithm>
#include <cmath>

#include "TextFormat.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr double kLeast = -2048;
constexpr double kGreatest = 2047;
constexpr size_t kCountDigits = 20;

std::string CountLine(uint64_t count) {
    std::string line = std::to_string(count);
    line.resize(kCountDigits, ' ');
    return line + "\n";
}

}  // namespace

FormatCapabilities PtsSink::Capabilities() {
    FormatCapabilities can;
    can.pose = Fate::Converted;
    can.intensity = Fate::Converted;
    can.color = can.severalScans = Fate::Kept;
    return can;
}

void PtsSink::BeginScan(const ScanDescription& description) {
    m_countOffset = m_bytes.BytesWritten();
    m_bytes.Append(CountLine(0));
    m_scanPoints = 0;
    m_intensity = description.intensity.present;
    m_color = description.color.present;
    m_style = TextStyleFor(description, m_options);
    const FieldDescription& field = description.intensity;
    m_scaled = false;
    if (!m_intensity || !field.minimum || !field.maximum || !(*field.maximum > *field.minimum)) return;
    const bool whole = field.numbers == NumberKind::Integer || field.precision == 1.0;
    if (whole && *field.minimum >= kLeast && *field.maximum <= kGreatest) return;
    m_scaled = true;
    m_least = *field.minimum;
    m_factor = (kGreatest - kLeast) / (*field.maximum - *field.minimum);
}

double PtsSink::Stored(double intensity) const {
    if (!m_scaled) return intensity;
    return std::clamp(std::round((intensity - m_least) * m_factor) + kLeast, kLeast, kGreatest);
}

void PtsSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    static_assert(ByteSink::kReserve >= kMaxCellBytes);
    for (const Cell& cell : cells) {
        if (!cell.valid) continue;
        char* out = m_bytes.Reserve();
        out = AppendNumber(out, cell.x, m_style.coordinateDecimals);
        *out++ = ' ';
        out = AppendNumber(out, cell.y, m_style.coordinateDecimals);
        *out++ = ' ';
        out = AppendNumber(out, cell.z, m_style.coordinateDecimals);
        if (m_intensity) {
            *out++ = ' ';
            out = m_scaled ? AppendFixed(out, Stored(cell.intensity), 0)
                           : AppendNumber(out, cell.intensity, m_style.intensityDecimals);
        }
        if (m_color) {
            for (const uint16_t channel : {cell.red, cell.green, cell.blue}) {
                *out++ = ' ';
                out = std::to_chars(out, out + 5, channel).ptr;
            }
        }
        *out++ = '\n';
        m_bytes.Claim(out);
        ++m_scanPoints;
    }
}

void PtsSink::EndScan() {
    m_bytes.Flush();
    const std::string line = CountLine(m_scanPoints);
    kxbase::IOutFileStream& stream = m_bytes.Stream();
    const uint64_t end = m_bytes.BytesWritten();
    if (!stream.Seek(m_countOffset)) throw kxbase::KXWritingException("Cannot write file");
    stream.Write(line.data(), line.size());
    if (!stream.Seek(end)) throw kxbase::KXWritingException("Cannot write file");
    m_points += m_scanPoints;
}

void PtsSink::AddLosses(LossReport& losses) const {
    if (!m_intensity) return;
    if (!m_scaled) {
        losses.Add({"intensity", Fate::Kept, {}, {}});
        return;
    }
    losses.Add({"intensity", Fate::Converted, "to whole numbers of -2048 to 2047",
                "intensity = " + ShortestText(m_least) + " + (value + 2048) / " + ShortestText(m_factor)});
}

}  // namespace kxexchange
