// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "GridCells.h"
#include "kxbase/IInFileStream.h"
#include "kxexchange/FormatCapabilities.h"
#include "kxexchange/ScanSource.h"
#include "kxio/QSNScanReader.h"

namespace kxexchange {

/// Reads a .qsn file as any other scan: in the order of the grid it came from, spherical unless asked
/// otherwise, with everything that its messages keep of its origin.
class QsnSource final : public ScanSource {
public:
    /// \throws what opening the file throws
    QsnSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name, const SourceOptions& options);
    /// Over an open reader, which must outlive it.
    QsnSource(const kxio::QSNScanReader& reader, std::string name, const SourceOptions& options);

    std::string FormatName() const override { return "QSN"; }
    std::string Name() const override { return m_name; }
    uint64_t ScanCount() override { return 1; }
    /// \throws kxbase::KXBadInputException             the scan has no grid
    /// \throws kxbase::KXComponentNotInFileException  it has no range or angles
    ScanDescription OpenScan(uint64_t index) override;
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override;
    std::vector<std::string> Warnings() const override;
    uint64_t BytesRead() const override;
    uint64_t FileBytes() const override;

    /// How its intensities came to be; for reports.
    const IntensityMapping& Intensity() const { return m_intensity; }
    /// What a file of this format holds.
    static FormatCapabilities Capabilities();

private:
    void RequireScan() const;
    LayoutMessage FindLayout();
    void Describe(LayoutMessage& message, ScanDescription& description) const;
    void DescribeIntensity(const LayoutMessage& message, ScanDescription& description) const;

    std::unique_ptr<kxbase::IInFileStream> m_stream;
    std::unique_ptr<kxio::QSNScanReader> m_owned;
    const kxio::QSNScanReader& m_reader;
    std::string m_name;
    SourceOptions m_options;
    std::vector<std::string> m_warnings;
    IntensityMapping m_intensity;
    std::unique_ptr<GridCells> m_grid;
    uint64_t m_columns = 0, m_columnsRead = 0;
    uint64_t m_bytesBefore = 0;  // of finished passes
};

}  // namespace kxexchange
