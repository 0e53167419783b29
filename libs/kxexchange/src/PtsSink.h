// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "ByteSink.h"
#include "TextStyle.h"
#include "kxexchange/IntensityMapping.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// Writes PTS text: per scan a line with the number of points, then x y z, intensity and red green blue where
/// the scan has them. Intensities of the format are whole numbers of -2048 to 2047: shares of 1 are spread
/// over them, whole numbers inside stay, other values are taken linearly from their declared range; without
/// one they are written as they are.
///
/// The count is known at the end of a scan only: its line is then written again, padded with blanks.
class PtsSink final : public ScanSink {
public:
    PtsSink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_bytes(stream), m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override;
    void Finish() override { m_bytes.Flush(); }
    uint64_t BytesWritten() const override { return m_bytes.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }
    void AddLosses(LossReport& losses) const override;

private:
    double Stored(double intensity) const;

    ByteSink m_bytes;
    SinkOptions m_options;
    TextStyle m_style;
    bool m_intensity = false;
    bool m_color = false;
    bool m_scaled = false;  // stored = round((intensity - m_least) x m_factor) - 2048
    double m_least = 0;
    double m_factor = 1;
    uint64_t m_countOffset = 0;
    uint64_t m_scanPoints = 0;
    uint64_t m_points = 0;
};

}  // namespace kxexchange
