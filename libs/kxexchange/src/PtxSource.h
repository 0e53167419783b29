// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "TextBuffer.h"
#include "TextNumbers.h"
#include "kxbase/IInFileStream.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// Reads PTX text, plain or gzip-compressed.
///
/// A scan is ten lines of header (columns; rows; scanner position; three axes; a 4 x 4 matrix for row
/// vectors, world = local x matrix, so that its rows are the axes and the translation), then a line for
/// each cell, column after column: x y z intensity, and red green blue where the scan has colour. Cells
/// without a return say 0 0 0. Several scans may follow each other.
///
/// Accepted beside the plain form: CRLF, tabs, blanks anywhere between and behind values, a leading '+',
/// exponents, empty lines in front of and behind a scan, no line end behind the last line, a byte order
/// mark. Refused with the line and the byte: anything else. A blank line between cells is refused too: a
/// cell would have lost its place.
class PtxSource final : public ScanSource {
public:
    /// The header's numbers are claims: these are the greatest believed. Memory never follows them, only
    /// the lines that are really there.
    static constexpr uint64_t kMaxSide = 0x7fffffff;
    static constexpr uint64_t kMaxCells = uint64_t{1} << 40;
    /// Metres; beyond it a coordinate is taken for damage.
    static constexpr double kMaxCoordinate = 1e12;

    PtxSource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
              const SourceOptions& options = {});

    std::string FormatName() const override { return "PTX"; }
    std::string Name() const override { return m_name; }
    uint64_t ScanCount() override;
    ScanDescription OpenScan(uint64_t index) override;
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override;
    uint64_t BytesRead() const override { return m_text.BytesTaken(); }
    uint64_t FileBytes() const override { return m_fileBytes; }

private:
    struct Place {
        uint64_t offset;
        uint64_t line;
    };

    bool SkipBlankLines();
    bool FindScan(uint64_t index);
    ScanDescription ReadHeader();
    uint64_t ReadCount(const char* field);
    void ReadNumbers(const char* field, double* out, size_t count);
    void ReadMatrix(std::array<double, 12>& values);
    bool PeekColor();
    double Number(const char*& at, const char* field);
    void EndLine(const char*& at, const char* expected);
    void RequireLine(const char* field, const char* expected);
    [[noreturn]] void Fail(const char* at, const std::string& field, const std::string& expected) const;

    std::unique_ptr<kxbase::IInFileStream> m_stream;
    std::string m_name;
    int m_threads;
    uint64_t m_fileBytes;
    TextBuffer m_text;
    std::vector<Place> m_starts;  // where each known scan's header begins
    bool m_allKnown = false;      // m_starts holds every scan of the file
    uint64_t m_columns = 0;
    uint64_t m_rows = 0;
    uint64_t m_nextColumn = 0;
    bool m_color = false;
};

}  // namespace kxexchange
