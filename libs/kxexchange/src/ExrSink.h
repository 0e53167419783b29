// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "CellPlanes.h"
#include "RowStore.h"
#include "kxbase/IOutFileStream.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// Writes all planes of one scan as an OpenEXR picture of 32-bit channels: range, azimuth, elevation,
/// intensity, R G B (shares of 1), classification, valid, as the scan has them; the scan's row r and column c
/// at pixel (c, r).
class ExrSink final : public ScanSink {
public:
    ExrSink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_stream(stream), m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override;
    void Finish() override {}
    uint64_t BytesWritten() const override { return m_written; }
    uint64_t PointsWritten() const override { return m_points; }

private:
    kxbase::IOutFileStream& m_stream;
    SinkOptions m_options;
    std::unique_ptr<RowStore> m_rows;
    std::vector<PlaneKind> m_planes;
    uint64_t m_columns = 0;
    uint64_t m_height = 0;
    double m_colorFactor = 1;
    uint64_t m_written = 0;
    uint64_t m_points = 0;
};

}  // namespace kxexchange
