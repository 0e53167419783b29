// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "ByteSink.h"
#include "kxexchange/IntensityMapping.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// Writes LAS 1.4: point format 7 (with colour) when the first scan has colour, otherwise 6.
///
/// Coordinates are whole multiples of 0.1 mm from an offset at the first scan's place, up to 214 km away.
/// Intensities become 16 bits by IntensityMapping: after their declared
/// range, else after the values of the scan's first columns; AddLosses says how to get them back. Scans
/// become points of the source ID 1, 2, and so on. Every point is the only return of its pulse; GPS times are
/// 0.
class LasSink final : public ScanSink {
public:
    LasSink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_bytes(stream), m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    /// \throws kxbase::KXWritingException  a coordinate does not fit the scale
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override {}
    void Finish() override;
    uint64_t BytesWritten() const override { return m_bytes.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }
    void AddLosses(LossReport& losses) const override;

    static constexpr size_t kHeaderBytes = 375;

private:
    std::array<unsigned char, kHeaderBytes> Header() const;
    void LearnIntensity(std::span<const Cell> cells);

    ByteSink m_bytes;
    SinkOptions m_options;
    uint16_t m_scans = 0;
    bool m_withColor = false;  // point format 7
    bool m_color = false;      // of the scan
    unsigned m_colorFactor = 257;
    bool m_intensity = false;
    bool m_classes = false;
    std::optional<IntensityMapping> m_mapping;
    static constexpr double kScale = 1e-4;
    std::array<double, 3> m_offset{};
    std::array<double, 3> m_least{};
    std::array<double, 3> m_greatest{};
    uint64_t m_points = 0;
    uint64_t m_clamped = 0;
    bool m_colorLost = false;
};

}  // namespace kxexchange
