// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "E57Grid.h"
#include "E57Header.h"
#include "E57Pages.h"
#include "E57Records.h"
#include "E57Spill.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange {

/// Reads E57 files (ASTM E2807, version 1).
///
/// A scan is an element of data3D: Cartesian or spherical coordinates, row and column indexes where it has a
/// grid, invalid states, intensity, colour, pose, dates, texts; images2D that name its GUID belong to it.
/// Records may come in any order: in column order they go straight through, otherwise they are sorted by
/// columns in a temporary file. Two records for one place: the first is kept. The header, the XML and every
/// page are checked before they are used; sizes and counts are claims.
class E57Source final : public ScanSource {
public:
    /// \throws SourceFormatException  header or XML cannot be read
    E57Source(std::unique_ptr<kxbase::IInFileStream> stream, std::string name, const SourceOptions& options);

    std::string FormatName() const override { return "E57"; }
    std::string Name() const override { return m_pages.Name(); }
    uint64_t ScanCount() override;
    ScanDescription OpenScan(uint64_t index) override;
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override;
    std::vector<std::string> Warnings() const override;
    uint64_t BytesRead() const override { return m_pages.BytesRead(); }
    uint64_t FileBytes() const override { return m_pages.FileBytes(); }

private:
    /// What stays known of an opened scan, so that a second pass does not survey and sort again.
    struct Open {
        uint64_t index = 0;
        E57Scan scan;
        E57Section section;
        E57Grid grid;
        std::unique_ptr<E57Spill> spill;
        uint64_t unusable = 0, atOrigin = 0;  // counted while sorting
    };
    void Close();
    void Prepare(uint64_t index);
    void Sort();
    Cell EmptyCell() const;
    void Place(std::vector<Cell>& cells, size_t at, const Cell& cell);
    uint64_t ReadPoints(std::vector<Cell>& cells);
    uint64_t ReadInOrder(uint64_t columns, std::vector<Cell>& cells);
    uint64_t ReadSorted(uint64_t columns, std::vector<Cell>& cells);

    std::unique_ptr<kxbase::IInFileStream> m_stream;
    E57PageReader m_pages;
    SourceOptions m_options;
    E57Document m_document;
    std::unique_ptr<Open> m_open;
    // of the pass
    std::unique_ptr<E57RecordReader> m_records;
    size_t m_batch = 0;  // records of the reader's batch, and those of it that are used up
    size_t m_used = 0;
    uint64_t m_nextColumn = 0;
    std::vector<Cell> m_group;  // cells of a sorted group
    uint64_t m_groupFirst = 0;
    uint64_t m_groupColumns = 0;
    std::vector<bool> m_taken;
    uint64_t m_collisions = 0;
};

}  // namespace kxexchange
