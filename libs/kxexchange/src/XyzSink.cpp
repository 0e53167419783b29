// SPDX-License-Identifier: MIT
#include "XyzSink.h"

#include "TextFormat.h"

namespace kxexchange {

void XyzSink::Begin(const ScanDescription& description) {
    m_intensity = description.intensity.present;
    m_color = description.color.present;
}

void XyzSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    static_assert(ByteSink::kReserve >= kMaxCellBytes);
    for (const Cell& cell : cells) {
        if (!cell.valid) continue;
        char* out = m_bytes.Reserve();
        out = AppendFixed(out, cell.x, m_style.coordinateDecimals);
        *out++ = ' ';
        out = AppendFixed(out, cell.y, m_style.coordinateDecimals);
        *out++ = ' ';
        out = AppendFixed(out, cell.z, m_style.coordinateDecimals);
        if (m_intensity) {
            *out++ = ' ';
            out = m_style.intensityDecimals < 0 ? AppendShortest(out, cell.intensity)
                                                : AppendFixed(out, cell.intensity, m_style.intensityDecimals);
        }
        if (m_color) {
            for (const uint8_t channel : {cell.red, cell.green, cell.blue}) {
                *out++ = ' ';
                out = std::to_chars(out, out + 3, channel).ptr;
            }
        }
        *out++ = '\n';
        m_bytes.Claim(out);
        ++m_points;
    }
}

}  // namespace kxexchange
