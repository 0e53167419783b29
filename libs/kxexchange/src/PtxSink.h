// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "ByteSink.h"
#include "GzipOut.h"
#include "TextStyle.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// Writes PTX text: every cell, column after column; cells without a return as zeros with their intensity.
/// The pose goes into the matrix, with as many digits as its doubles have; scanner position and axes come
/// from the keepsakes "position" and "axes", else from the matrix.
class PtxSink final : public ScanSink {
public:
    PtxSink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_gzip(options.gzip ? std::make_unique<GzipOut>(stream, options.compressionLevel, options.threads)
                              : nullptr),
          m_bytes(m_gzip ? *m_gzip : stream),
          m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override {}
    void Finish() override {
        m_bytes.Flush();
        if (m_gzip) m_gzip->Close();
    }
    uint64_t BytesWritten() const override { return m_gzip ? m_gzip->Packed() : m_bytes.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }

private:
    char* AppendCoordinates(char* out, const Cell& cell) const;

    std::unique_ptr<GzipOut> m_gzip;
    ByteSink m_bytes;
    SinkOptions m_options;
    TextStyle m_style;
    bool m_intensity = false;
    bool m_color = false;
    uint64_t m_points = 0;
};

}  // namespace kxexchange
