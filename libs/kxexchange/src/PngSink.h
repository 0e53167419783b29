// SPDX-License-Identifier: MIT
#pragma once

#include <limits>
#include <memory>

#include "CellPlanes.h"
#include "RowStore.h"
#include "kxbase/IOutFileStream.h"
#include "kxexchange/IntensityMapping.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// Writes one plane of one scan as a PNG, the scan's row r and column c at pixel (r, c). Planes: "range"
/// (default), "azimuth", "elevation", "x", "y", "z", "intensity", "classification", "valid", and "color".
///
/// - range: 16-bit grey, multiples of 1 mm (2, 5, 10, ... where the scan reaches beyond 65.535 m); 0 is no
/// return
/// - intensity: 8-bit grey where all values are whole and within 0 to 255, otherwise 16-bit through an
///   IntensityMapping; classification and valid (0, 255): 8-bit grey
/// - the rest: 16-bit grey, linear from the least to the greatest value as 1 to 65535; 0 is no value
/// - color: RGB of 8 or 16 bits
///
/// The mapping stands in a text chunk with the keyword "kxio": plane=range unit=m offset=0 scale=0.001; value
/// = offset + pixel x scale.
class PngSink final : public ScanSink {
public:
    PngSink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_stream(stream), m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override;
    void Finish() override {}
    uint64_t BytesWritten() const override { return m_written; }
    uint64_t PointsWritten() const override { return m_points; }
    void AddLosses(LossReport& losses) const override;

private:
    struct Pixels {
        int bits = 16;
        int channels = 1;
        double offset = 0;
        double scale = 1;
        unsigned least = 1;  // of a value; 0 is left for no value
    };
    Pixels ChoosePixels() const;
    void WritePicture(const Pixels& pixels);

    kxbase::IOutFileStream& m_stream;
    SinkOptions m_options;
    std::unique_ptr<RowStore> m_rows;
    ScanDescription m_description;
    std::string m_plane;
    bool m_color = false;
    PlaneKind m_kind = PlaneKind::Range;
    double m_least = std::numeric_limits<double>::infinity();
    double m_greatest = -std::numeric_limits<double>::infinity();
    IntensitySurvey m_intensities;
    bool m_bytes = true;  // whole and within 0 to 255
    Pixels m_pixels;
    uint64_t m_written = 0;
    uint64_t m_points = 0;
};

}  // namespace kxexchange
