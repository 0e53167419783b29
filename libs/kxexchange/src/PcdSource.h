// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "GridGather.h"
#include "PointBytes.h"
#include "Spool.h"
#include "TextBuffer.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// Reads PCD of version 0.7 (and the older ones that look the same): ascii, binary, binary_compressed.
///
/// Organised clouds (HEIGHT above 1) are grids of WIDTH columns and HEIGHT rows, stored row by row; points
/// without finite coordinates are cells without a return. In clouds of one row such points are left out.
/// VIEWPOINT is the pose: a translation and a unit quaternion, from the points' frame to the project's. The
/// comment `# kxio-pose 1` with its twelve numbers says the same to the last bit, and counts where both
/// agree.
///
/// Memory: a block of points and what GridGather takes; binary_compressed is unpacked into memory up to
/// 64 MiB, beyond into a temporary file.
class PcdSource final : public ScanSource {
public:
    PcdSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
              const SourceOptions& options = {});

    std::string FormatName() const override { return "PCD"; }
    std::string Name() const override { return m_name; }
    uint64_t ScanCount() override;
    ScanDescription OpenScan(uint64_t index) override;
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override;
    std::vector<std::string> Warnings() const override { return m_warnings; }
    uint64_t BytesRead() const override;
    uint64_t FileBytes() const override { return m_fileBytes; }

private:
    enum class Encoding { Ascii, Binary, Packed };

    void ReadHeader();
    void ReadViewpoint(const std::vector<std::string>& words, const std::vector<std::string>& exact);
    void CheckClaims() const;
    void Unpack();
    void BeginPoints();
    size_t ReadPoints(std::vector<Cell>& cells);
    void GatherGrid();
    [[noreturn]] void Fail(const std::string& record, uint64_t offset, const std::string& detail) const;

    std::unique_ptr<kxbase::IInFileStream> m_stream;
    std::string m_name;
    SourceOptions m_options;
    uint64_t m_fileBytes;
    std::unique_ptr<TextBuffer> m_text;
    PointBytes m_bytes;
    PointRecord m_record;
    Encoding m_encoding = Encoding::Ascii;
    bool m_headerRead = false;
    uint64_t m_dataOffset = 0;
    uint64_t m_dataLine = 0;
    uint64_t m_columns = 0;
    uint64_t m_rows = 0;
    uint64_t m_points = 0;
    kxbase::RegistrationInformation m_pose;
    std::unique_ptr<Spool> m_planes;  // unpacked: all values of the first field, then of the second
    std::unique_ptr<GridGather> m_gather;
    uint64_t m_nextPoint = 0;
    uint64_t m_taken = 0;
    bool m_open = false;
    std::vector<std::string> m_warnings;
};

}  // namespace kxexchange
