// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "ByteSink.h"
#include "ScanSinks.h"

namespace kxexchange {

/// Writes binary little-endian PLY: one vertex per point with x y z (float or double), and where the scan
/// has them intensity (float) and red green blue (uchar). The number of points is known at the end only:
/// the header, whose length does not depend on it, is then written again.
class PlySink final : public ScanSink {
public:
    PlySink(kxbase::IOutFileStream& stream, const SinkStyle& style) : m_bytes(stream), m_style(style) {}

    void Begin(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void Finish() override;
    uint64_t BytesWritten() const override { return m_bytes.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }

private:
    std::string Header() const;

    ByteSink m_bytes;
    SinkStyle m_style;
    bool m_intensity = false;
    bool m_color = false;
    uint64_t m_points = 0;
};

}  // namespace kxexchange
