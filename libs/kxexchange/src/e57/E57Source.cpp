// SPDX-License-Identifier: MIT
#include "E57Source.h"

#include <algorithm>

#include "E57Error.h"
#include "E57Images.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

// Cells handed over at once, but for a single longer column: 10 MB.
constexpr uint64_t kBlockCells = uint64_t{1} << 18;
constexpr size_t kPointsPerRead = size_t{1} << 16;

}  // namespace

E57Source::E57Source(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
                     const SourceOptions& options)
    : m_stream(std::move(stream)), m_pages(*m_stream, std::move(name)), m_options(options) {
    const E57Header header = ReadE57Header(m_pages, *m_stream);
    if (header.xmlLength > kE57MaxXmlBytes) {
        FailE57({m_pages.Name(), "header", "XML length", 32,
                 "found " + std::to_string(header.xmlLength) + " bytes, expected at most " +
                     std::to_string(kE57MaxXmlBytes)});
    }
    std::string xml(static_cast<size_t>(header.xmlLength), '\0');
    m_pages.Read(*E57Logical(header.xmlOffset), {reinterpret_cast<unsigned char*>(xml.data()), xml.size()},
                 "XML");
    m_document = ParseE57Xml(xml, m_pages.Name());
}

uint64_t E57Source::ScanCount() {
    Close();
    return E57Children(m_document, "data3D").size();
}

// Ends the pass; what was learnt of the scan stays.
void E57Source::Close() {
    m_records.reset();
    m_batch = m_used = 0;
    m_nextColumn = m_groupFirst = m_groupColumns = 0;
    m_collisions = 0;
}

void E57Source::Prepare(uint64_t index) {
    if (m_open && m_open->index == index) return;
    m_open.reset();
    auto open = std::make_unique<Open>();
    open->index = index;
    open->scan = DescribeE57Scan(m_document, static_cast<size_t>(index), m_pages.Name());
    open->section = ReadE57Section(m_pages, *open->scan.points, open->scan.fields, open->scan.where);
    if (open->scan.roles.Indexed()) open->grid = SurveyE57Grid(m_pages, open->section, open->scan);
    ScanDescription& description = open->scan.description;
    description.columns = open->grid.columns;
    description.rows = open->grid.rows;
    if (description.HasGrid()) {
        description.points = description.columns * description.rows;
        const E57IndexBounds& bounds = open->grid.bounds;
        if (bounds.firstRow != 0) {
            description.keepsakes.emplace_back("e57-first-row", std::to_string(bounds.firstRow));
        }
        if (bounds.firstColumn != 0) {
            description.keepsakes.emplace_back("e57-first-column", std::to_string(bounds.firstColumn));
        }
    }
    description.images = DescribeE57Images(m_document, m_pages, open->scan.guid,
                                           E57Children(m_document, "data3D").size() == 1, description.unheld);
    m_open = std::move(open);
}

ScanDescription E57Source::OpenScan(uint64_t index) {
    Close();
    const uint64_t count = E57Children(m_document, "data3D").size();
    if (index >= count) {
        kxbase::ErrorContext context;
        context.file = m_pages.Name();
        context.detail =
            "asked for scan " + std::to_string(index + 1) + ", the file holds " + std::to_string(count);
        throw kxbase::KXIndexOutOfBoundsException("No such scan in the file", context);
    }
    Prepare(index);
    m_records = std::make_unique<E57RecordReader>(m_pages, m_open->section, m_open->scan);
    return m_open->scan.description;
}

Cell E57Source::EmptyCell() const {
    Cell cell;
    cell.intensity = m_open->scan.emptyIntensity.value_or(0);
    return cell;
}

// Puts a record into its place, unless there is one already.
void E57Source::Place(std::vector<Cell>& cells, size_t at, const Cell& cell) {
    if (m_taken[at]) {
        ++m_collisions;
        return;
    }
    m_taken[at] = true;
    cells[at] = cell;
}

uint64_t E57Source::ReadPoints(std::vector<Cell>& cells) {
    cells.clear();
    while (cells.size() < kPointsPerRead) {
        const size_t count = m_records->Next();
        if (count == 0) break;
        const auto batch = m_records->Cells();
        cells.insert(cells.end(), batch.begin(), batch.end());
    }
    return cells.empty() ? 0 : 1;
}

uint64_t E57Source::ReadInOrder(uint64_t columns, std::vector<Cell>& cells) {
    const E57Grid& grid = m_open->grid;
    const auto count = static_cast<size_t>(columns * grid.rows);
    cells.assign(count, EmptyCell());
    m_taken.assign(count, false);
    while (true) {
        if (m_used == m_batch) {
            m_batch = m_records->Next();
            m_used = 0;
            if (m_batch == 0) break;
        }
        const auto rows = m_records->Rows(), indexes = m_records->Columns();
        const auto batch = m_records->Cells();
        for (; m_used < m_batch; ++m_used) {
            const uint64_t column = static_cast<uint64_t>(indexes[m_used]) -
                                    static_cast<uint64_t>(grid.bounds.firstColumn) - m_nextColumn;
            if (column >= columns) break;
            const uint64_t row =
                static_cast<uint64_t>(rows[m_used]) - static_cast<uint64_t>(grid.bounds.firstRow);
            Place(cells, static_cast<size_t>(column * grid.rows + row), batch[m_used]);
        }
        if (m_used < m_batch) break;
    }
    return columns;
}

// All records into the temporary file, once.
void E57Source::Sort() {
    const E57Grid& grid = m_open->grid;
    auto spill = std::make_unique<E57Spill>(m_options.temporaryFolder, grid.groupRecords);
    while (const size_t count = m_records->Next()) {
        const auto rows = m_records->Rows(), columns = m_records->Columns();
        const auto batch = m_records->Cells();
        for (size_t i = 0; i < count; ++i) {
            const uint64_t column =
                static_cast<uint64_t>(columns[i]) - static_cast<uint64_t>(grid.bounds.firstColumn);
            const uint64_t row = static_cast<uint64_t>(rows[i]) - static_cast<uint64_t>(grid.bounds.firstRow);
            const uint64_t group = column / grid.columnsPerGroup;
            const uint64_t place = (column - group * grid.columnsPerGroup) * grid.rows + row;
            spill->Add(static_cast<size_t>(group), static_cast<uint32_t>(place), batch[i]);
        }
    }
    spill->Close();
    m_open->unusable = m_records->Unusable();
    m_open->atOrigin = m_records->AtOrigin();
    m_open->spill = std::move(spill);
}

uint64_t E57Source::ReadSorted(uint64_t columns, std::vector<Cell>& cells) {
    const E57Grid& grid = m_open->grid;
    if (!m_open->spill) Sort();
    if (m_nextColumn >= m_groupFirst + m_groupColumns) {
        const uint64_t group = m_nextColumn / grid.columnsPerGroup;
        m_groupFirst = group * grid.columnsPerGroup;
        m_groupColumns = std::min(grid.columnsPerGroup, grid.columns - m_groupFirst);
        const auto count = static_cast<size_t>(m_groupColumns * grid.rows);
        m_group.assign(count, EmptyCell());
        m_taken.assign(count, false);
        m_open->spill->ForEach(static_cast<size_t>(group),
                               [&](uint32_t place, const Cell& cell) { Place(m_group, place, cell); });
    }
    columns = std::min(columns, m_groupFirst + m_groupColumns - m_nextColumn);
    const auto first = m_group.begin() + static_cast<ptrdiff_t>((m_nextColumn - m_groupFirst) * grid.rows);
    cells.assign(first, first + static_cast<ptrdiff_t>(columns * grid.rows));
    return columns;
}

uint64_t E57Source::ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) {
    if (!m_records) {
        cells.clear();
        return 0;
    }
    const E57Grid& grid = m_open->grid;
    if (!m_open->scan.description.HasGrid()) return ReadPoints(cells);
    const uint64_t left = grid.columns - m_nextColumn;
    if (left == 0 || maxColumns == 0) {
        cells.clear();
        return 0;
    }
    const uint64_t wanted = std::min({left, maxColumns, std::max<uint64_t>(1, kBlockCells / grid.rows)});
    const uint64_t columns = grid.columnsInOrder ? ReadInOrder(wanted, cells) : ReadSorted(wanted, cells);
    m_nextColumn += columns;
    return columns;
}

std::vector<std::string> E57Source::Warnings() const {
    if (!m_open || !m_records) return {};
    std::vector<std::string> warnings = m_open->scan.warnings;
    const auto say = [&](uint64_t count, const char* text) {
        if (count != 0) warnings.push_back(std::to_string(count) + " " + text);
    };
    const bool sorted = m_open->spill != nullptr;
    say(m_collisions, "records name a place of the grid that an earlier one has; the first of each is kept");
    say(sorted ? m_open->unusable : m_records->Unusable(),
        "records have coordinates that are no numbers; they are cells without a return");
    say(sorted ? m_open->atOrigin : m_records->AtOrigin(),
        "records lie at the instrument itself; they are cells without a return");
    if (m_open->grid.widened) {
        warnings.push_back(
            "Records lie outside the index bounds of the file; the grid is as large as they need");
    }
    return warnings;
}

}  // namespace kxexchange
