// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "ByteSink.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// Writes binary little-endian PLY: one vertex per point with x y z (float or double), and where the scan
/// has them intensity (float) and red green blue (uchar). The number of points is known at the end only:
/// the header, whose length does not depend on it, is then written again.
class PlySink final : public ScanSink {
public:
    PlySink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_bytes(stream), m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override {}
    void Finish() override;
    uint64_t BytesWritten() const override { return m_bytes.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }

private:
    std::string Header() const;

    ByteSink m_bytes;
    SinkOptions m_options;
    bool m_doubles = false;
    bool m_intensity = false;
    bool m_color = false;
    uint64_t m_points = 0;
};

}  // namespace kxexchange
