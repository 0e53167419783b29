// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "GridGather.h"
#include "PlyHeader.h"
#include "PointBytes.h"
#include "TextBuffer.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// Reads PLY: ASCII, binary little-endian and big-endian.
///
/// The element "vertex" holds the points: x y z, and intensity, colour and classification where properties of
/// the usual names are there. It is a grid when there is an element "range_grid" (one list of no or one
/// vertex index per cell, row by row) of as many entries as the obj_info lines num_cols and num_rows say;
/// otherwise a scan without grid, whose vertices without finite coordinates are left out. Other elements in
/// front of the vertices are passed over, those behind are not looked at.
///
/// Memory: a block of vertices; with a grid also one bit per cell when the grid names the vertices in order,
/// four bytes per cell and vertex otherwise, and what GridGather takes.
class PlySource final : public ScanSource {
public:
    PlySource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
              const SourceOptions& options = {});

    std::string FormatName() const override { return "PLY"; }
    std::string Name() const override { return m_name; }
    uint64_t ScanCount() override;
    ScanDescription OpenScan(uint64_t index) override;
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override;
    std::vector<std::string> Warnings() const override { return m_warnings; }
    uint64_t BytesRead() const override;
    uint64_t FileBytes() const override { return m_fileBytes; }

private:
    void ReadHeader();
    void FindVertices();
    const PlyHeader::Element* RangeGrid() const;
    void PassOver(const PlyHeader::Element& element);
    void ReadGrid(const PlyHeader::Element& element);
    void GatherGrid();
    void BeginVertices();
    size_t ReadVertices(std::vector<Cell>& cells);
    template <class Visit>
    void VisitLists(const PlyHeader::Element& element, const Visit& visit);
    bool Ascii() const { return m_header.encoding == PlyHeader::Encoding::Ascii; }
    [[noreturn]] void Fail(const std::string& record, uint64_t offset, const std::string& detail) const;

    std::unique_ptr<kxbase::IInFileStream> m_stream;
    std::string m_name;
    SourceOptions m_options;
    uint64_t m_fileBytes;
    std::unique_ptr<TextBuffer> m_text;  // of an ASCII file
    PointBytes m_bytes;
    PlyHeader m_header;
    bool m_headerRead = false;
    PointRecord m_record;
    uint64_t m_vertexCount = 0;
    uint64_t m_vertexOffset = 0;  // of the file
    uint64_t m_vertexLine = 0;
    uint64_t m_position = 0;  // of the walk over elements, binary
    uint64_t m_walked = 0;    // bytes read by it
    uint64_t m_columns = 0;
    uint64_t m_rows = 0;
    std::vector<bool> m_filled;      // of the grid's cells, row by row, while vertices come in their order
    std::vector<uint32_t> m_cellOf;  // otherwise: of each vertex, its cell + 1; 0: none
    bool m_inOrder = true;
    std::unique_ptr<GridGather> m_gather;
    uint64_t m_verticesLeft = 0;
    bool m_open = false;
    std::vector<std::string> m_warnings;
};

}  // namespace kxexchange
