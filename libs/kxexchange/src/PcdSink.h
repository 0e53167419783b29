// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "ByteSink.h"
#include "RowStore.h"
#include "kxexchange/ScanSink.h"

namespace kxexchange {

/// Writes PCD 0.7, binary: fields x y z (single precision, or double when asked for or when a coordinate may
/// exceed 1,000 m), intensity (single precision), rgb (packed), label, as the scan has them. A scan with a
/// grid becomes an organised cloud of WIDTH columns and HEIGHT rows, a cell without a return NaN; other scans
/// one row. VIEWPOINT is the pose. One scan per file.
class PcdSink final : public ScanSink {
public:
    PcdSink(kxbase::IOutFileStream& stream, const SinkOptions& options)
        : m_bytes(stream), m_options(options) {}

    static FormatCapabilities Capabilities();

    void BeginScan(const ScanDescription& description) override;
    void WriteColumns(std::span<const Cell> cells, uint64_t columns) override;
    void EndScan() override;
    void Finish() override;
    uint64_t BytesWritten() const override { return m_bytes.BytesWritten(); }
    uint64_t PointsWritten() const override { return m_points; }
    void AddLosses(LossReport& losses) const override;

private:
    std::string Header() const;
    unsigned char* Encode(const Cell& cell, unsigned char* out) const;

    ByteSink m_bytes;
    SinkOptions m_options;
    std::unique_ptr<RowStore> m_rows;
    kxbase::RegistrationInformation m_pose;
    bool m_begun = false;
    bool m_grid = false;
    bool m_doubles = false;
    bool m_intensity = false;
    bool m_color = false;
    bool m_classes = false;
    size_t m_recordBytes = 0;
    uint64_t m_columns = 0;
    uint64_t m_height = 1;
    uint64_t m_points = 0;
};

}  // namespace kxexchange
