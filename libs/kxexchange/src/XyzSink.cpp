// SPDX-License-Identifier: MIT
#include "XyzSink.h"

#include "TextFormat.h"

namespace kxexchange {

FormatCapabilities XyzSink::Capabilities() {
    FormatCapabilities can;
    can.pose = can.severalScans = Fate::Converted;
    can.intensity = can.color = Fate::Kept;
    return can;
}

void XyzSink::BeginScan(const ScanDescription& description) {
    m_intensity = description.intensity.present;
    m_color = description.color.present;
    m_style = TextStyleFor(description, m_options);
}

void XyzSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
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
            out = AppendNumber(out, cell.intensity, m_style.intensityDecimals);
        }
        if (m_color) {
            for (const uint16_t channel : {cell.red, cell.green, cell.blue}) {
                *out++ = ' ';
                out = std::to_chars(out, out + 5, channel).ptr;
            }
        }
        *out++ = '\n';
        m_bytes.Claim(out);
        ++m_points;
    }
}

}  // namespace kxexchange
