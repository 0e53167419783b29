// SPDX-License-Identifier: MIT
#include "PlySource.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "TextNumbers.h"
#include "kxexchange/Errors.h"

namespace kxexchange {

namespace {

constexpr uint64_t kPointsPerRead = uint64_t{1} << 18;
constexpr uint64_t kNoVertex = ~uint64_t{0};

/// Bytes of a stream from a place on, for walking over items of unknown length.
class ByteWalk {
public:
    ByteWalk(kxbase::IInFileStream& stream, uint64_t position, uint64_t fileBytes)
        : m_stream(stream), m_position(position), m_fileBytes(fileBytes) {}

    /// The next bytes; null when the file ends before them.
    const unsigned char* Take(size_t bytes) {
        if (m_block.size() - m_used < bytes) {
            constexpr uint64_t kBlockBytes = uint64_t{1} << 16;
            m_block.resize(static_cast<size_t>(std::min(kBlockBytes, m_fileBytes - m_position)));
            m_stream.Seek(m_position);
            m_block.resize(static_cast<size_t>(m_stream.Read(m_block.data(), m_block.size())));
            m_used = 0;
            if (m_block.size() < bytes) return nullptr;
        }
        const unsigned char* at = m_block.data() + m_used;
        m_used += bytes;
        m_position += bytes;
        return at;
    }
    bool Skip(uint64_t bytes) {
        if (bytes > m_fileBytes - m_position) return false;
        if (bytes <= m_block.size() - m_used) {
            m_used += static_cast<size_t>(bytes);
        } else {
            m_block.clear();
            m_used = 0;
        }
        m_position += bytes;
        return true;
    }
    uint64_t Position() const { return m_position; }

private:
    kxbase::IInFileStream& m_stream;
    uint64_t m_position;
    uint64_t m_fileBytes;
    std::vector<unsigned char> m_block;
    size_t m_used = 0;
};

// A whole number of an integer type; negative ones become the greatest.
uint64_t WholeNumber(const unsigned char* bytes, ValueType type, bool bigEndian) {
    const size_t size = SizeOf(type);
    uint64_t bits = 0;
    for (size_t i = 0; i < size; ++i)
        bits |= uint64_t{bytes[i]} << (8 * (bigEndian ? size - 1 - i : i));
    const bool isSigned = type == ValueType::I8 || type == ValueType::I16 || type == ValueType::I32;
    if (isSigned && (bits >> (8 * size - 1) & 1) != 0) return ~uint64_t{0};
    return bits;
}

bool IsInteger(ValueType type) {
    return type != ValueType::F32 && type != ValueType::F64;
}

}  // namespace

PlySource::PlySource(std::unique_ptr<kxbase::IInFileStream> stream, std::string name,
                     const SourceOptions& options)
    : m_stream(std::move(stream)),
      m_name(std::move(name)),
      m_options(options),
      m_fileBytes(m_stream->GetSize()),
      m_bytes(*m_stream, m_name, "PLY") {}

void PlySource::Fail(const std::string& record, uint64_t offset, const std::string& detail) const {
    kxbase::ErrorContext context;
    context.file = m_name;
    context.record = record;
    context.offset = offset;
    context.detail = detail;
    throw SourceFormatException("PLY file cannot be read", context);
}

uint64_t PlySource::BytesRead() const {
    return m_walked + m_bytes.BytesTaken() + (m_text ? m_text->BytesTaken() : 0);
}

uint64_t PlySource::ScanCount() {
    m_open = false;
    ReadHeader();
    return 1;
}

void PlySource::ReadHeader() {
    if (m_headerRead) return;
    std::string text(static_cast<size_t>(std::min(m_fileBytes, PlyHeader::kMaxBytes)), '\0');
    m_stream->Seek(0);
    text.resize(static_cast<size_t>(m_stream->Read(text.data(), text.size())));
    m_header = PlyHeader::Parse(text, m_name);
    m_walked += m_header.bytes;
    if (Ascii()) m_text = std::make_unique<TextBuffer>(MakeByteFeed(*m_stream, m_name), m_name);
    FindVertices();
    m_headerRead = true;
}

// The element that makes a grid of the vertices; null when there is none that fits.
const PlyHeader::Element* PlySource::RangeGrid() const {
    const auto side = [&](const char* key) {
        uint64_t value = 0;
        const auto found = m_header.info.find(key);
        if (found == m_header.info.end()) return value;
        std::from_chars(found->second.data(), found->second.data() + found->second.size(), value);
        return value <= 0x7fffffff ? value : 0;
    };
    const uint64_t columns = side("num_cols"), rows = side("num_rows");
    for (const PlyHeader::Element& element : m_header.elements) {
        if (element.name == "range_grid" && element.properties.size() == 1 && element.HasLists() &&
            columns != 0 && rows != 0 && element.count == columns * rows &&
            IsInteger(element.properties[0].type) && IsInteger(*element.properties[0].listCount)) {
            return &element;
        }
    }
    return nullptr;
}

void PlySource::FindVertices() {
    const auto& elements = m_header.elements;
    const auto vertices =
        std::find_if(elements.begin(), elements.end(),
                     [](const PlyHeader::Element& element) { return element.name == "vertex"; });
    if (vertices == elements.end()) Fail("header", 0, "found no element vertex");
    if (vertices->HasLists()) Fail("header", 0, "found vertices with lists, which cannot be read");
    m_record = PointRecord();
    m_record.SetBigEndian(m_header.encoding == PlyHeader::Encoding::BigEndian);
    for (const PlyHeader::Property& property : vertices->properties)
        m_record.Add(property.name, property.type);
    m_record.Settle();
    if (!m_record.HasCoordinates()) Fail("header", 0, "found vertices without x, y and z");
    m_vertexCount = vertices->count;

    const PlyHeader::Element* const grid = RangeGrid();
    if (grid) {
        m_columns = std::strtoull(m_header.info["num_cols"].c_str(), nullptr, 10);
        m_rows = grid->count / m_columns;
    }
    m_position = m_header.bytes;
    if (Ascii()) m_text->GoTo(m_header.bytes, m_header.lines + 1);
    bool verticesSeen = false, gridSeen = grid == nullptr;
    for (auto element = elements.begin(); element != elements.end() && !(verticesSeen && gridSeen);
         ++element) {
        if (&*element == grid) {
            ReadGrid(*element);
            gridSeen = true;
            continue;
        }
        if (element == vertices) {
            verticesSeen = true;
            m_vertexOffset = Ascii() ? m_text->Offset() : m_position;
            m_vertexLine = Ascii() ? m_text->Line() : 0;
            // Claims are held against the file before anything follows them.
            const uint64_t least = Ascii() ? 2 * m_record.Fields().size() - 1 : m_record.Bytes();
            if (m_vertexCount > (m_fileBytes - m_vertexOffset) / least + 1) {
                Fail("header", m_vertexOffset,
                     "found " + std::to_string(m_fileBytes - m_vertexOffset) +
                         " bytes behind the header, expected " + std::to_string(m_vertexCount) + " vertices");
            }
            if (gridSeen) continue;  // nothing of interest comes behind them
        }
        PassOver(*element);
    }
}

void PlySource::PassOver(const PlyHeader::Element& element) {
    const std::string record = "element " + element.name;
    if (Ascii()) {
        if (m_text->SkipLines(element.count) != element.count)
            Fail(record, m_text->Offset(), "found the end of the text");
        return;
    }
    if (!element.HasLists()) {
        const uint64_t bytes = element.Bytes();
        if (bytes != 0 && element.count > (m_fileBytes - m_position) / bytes)
            Fail(record, m_position, "found the end of the file");
        m_position += element.count * bytes;
        return;
    }
    VisitLists(element, [](uint64_t, uint64_t) {});
}

// Walks over an element; `visit` is told the number of each item, and of a first property that is a list
// the first value, kNoVertex when the list is empty.
template <class Visit>
void PlySource::VisitLists(const PlyHeader::Element& element, const Visit& visit) {
    const std::string record = "element " + element.name;
    if (Ascii()) {
        for (uint64_t i = 0; i < element.count; ++i) {
            if (!m_text->HasLine()) Fail(record, m_text->Offset(), "found the end of the text");
            const char* at = m_text->At();
            const auto whole = [&](uint64_t most) {
                while (IsBlank(*at))
                    ++at;
                uint64_t value = 0;
                if (!ParseWhole(at, most, value))
                    Fail("line " + std::to_string(m_text->Line()), m_text->Offset(at),
                         "expected a whole number");
                return value;
            };
            const uint64_t count = whole(std::numeric_limits<uint32_t>::max());
            visit(i, count == 0 ? kNoVertex : whole(kNoVertex - 1));
            const char* const end = std::find(at, m_text->LinesEnd(), '\n');
            m_text->Advance(end + 1);
        }
        return;
    }
    ByteWalk walk(*m_stream, m_position, m_fileBytes);
    const bool bigEndian = m_header.encoding == PlyHeader::Encoding::BigEndian;
    for (uint64_t i = 0; i < element.count; ++i) {
        uint64_t first = kNoVertex;
        bool firstProperty = true;
        for (const PlyHeader::Property& property : element.properties) {
            uint64_t count = 1;
            if (property.listCount) {
                const unsigned char* const bytes = walk.Take(SizeOf(*property.listCount));
                if (!bytes) Fail(record, walk.Position(), "found the end of the file");
                count = WholeNumber(bytes, *property.listCount, bigEndian);
                if (count > std::numeric_limits<uint32_t>::max() || !IsInteger(*property.listCount))
                    Fail(record, walk.Position(), "found a list whose length is no whole number");
            }
            const size_t size = SizeOf(property.type);
            if (firstProperty && property.listCount && count > 0) {
                const unsigned char* const bytes = walk.Take(size);
                if (!bytes) Fail(record, walk.Position(), "found the end of the file");
                first = WholeNumber(bytes, property.type, bigEndian);
                --count;
            }
            firstProperty = false;
            if (!walk.Skip(count * size)) Fail(record, walk.Position(), "found the end of the file");
        }
        visit(i, first);
    }
    m_walked += walk.Position() - m_position;
    m_position = walk.Position();
}

void PlySource::ReadGrid(const PlyHeader::Element& element) {
    const uint64_t offset = Ascii() ? m_text->Offset() : m_position;
    // An entry takes a byte at least.
    if (element.count > m_fileBytes - offset || element.count >= std::numeric_limits<uint32_t>::max()) {
        Fail("element range_grid", offset,
             "found " + std::to_string(m_fileBytes - offset) + " bytes, expected " +
                 std::to_string(element.count) + " entries");
    }
    if (m_vertexCount > m_fileBytes) Fail("header", 0, "found more vertices than the file has bytes");
    m_filled.assign(static_cast<size_t>(element.count), false);
    m_cellOf.clear();
    m_inOrder = true;
    uint64_t next = 0, twice = 0;
    VisitLists(element, [&](uint64_t cell, uint64_t vertex) {
        if (vertex == kNoVertex) return;
        if (vertex >= m_vertexCount) {
            Fail("element range_grid", offset,
                 "entry " + std::to_string(cell + 1) + " names vertex " + std::to_string(vertex) + " of " +
                     std::to_string(m_vertexCount));
        }
        if (m_inOrder && vertex != next) {
            m_inOrder = false;
            m_cellOf.assign(static_cast<size_t>(m_vertexCount), 0);
            for (size_t i = 0, known = 0; i < cell; ++i) {
                if (m_filled[i]) m_cellOf[known++] = static_cast<uint32_t>(i + 1);
            }
        }
        if (m_inOrder) {
            m_filled[static_cast<size_t>(cell)] = true;
            ++next;
        } else {
            uint32_t& place = m_cellOf[static_cast<size_t>(vertex)];
            twice += place != 0 ? 1 : 0;
            place = static_cast<uint32_t>(cell + 1);
        }
    });
    if (!m_inOrder) m_filled = {};
    if (twice != 0)
        m_warnings.push_back(std::to_string(twice) +
                             " vertices stand in several cells of the grid; the last is kept");
}

void PlySource::BeginVertices() {
    m_verticesLeft = m_vertexCount;
    if (Ascii()) {
        m_text->GoTo(m_vertexOffset, m_vertexLine);
    } else {
        m_bytes.Begin(m_record, m_vertexOffset, m_vertexCount);
    }
}

size_t PlySource::ReadVertices(std::vector<Cell>& cells) {
    const uint64_t wanted = std::min(m_verticesLeft, kPointsPerRead);
    size_t read = 0;
    if (Ascii()) {
        LineFault fault;
        read = ReadCellLines(*m_text, m_options.threads, wanted, cells, 0,
                             EachLine([this](const char*& at, Cell& cell, LineFault& why) {
                                 return m_record.ParseLine(at, cell, why);
                             }),
                             fault);
        if (fault.at) {
            Fail("line " + std::to_string(m_text->Line()), m_text->Offset(fault.at),
                 fault.field + ": expected " + fault.expected);
        }
        if (read != wanted) {
            Fail("line " + std::to_string(m_text->Line()), m_text->Offset(),
                 "found the end of the text, expected " + std::to_string(m_verticesLeft - read) +
                     " more vertices");
        }
    } else if (wanted != 0) {
        read = m_bytes.Read(wanted, cells, 0);
    }
    cells.resize(read);
    m_verticesLeft -= read;
    return read;
}

void PlySource::GatherGrid() {
    auto gather = std::make_unique<GridGather>(m_columns, m_rows, m_options.temporaryFolder);
    BeginVertices();
    std::vector<Cell> cells;
    uint64_t vertex = 0, cell = 0, outside = 0, nowhere = 0;
    while (ReadVertices(cells) != 0) {
        for (const Cell& point : cells) {
            uint64_t place = kNoVertex;
            if (m_inOrder) {
                while (cell < m_filled.size() && !m_filled[static_cast<size_t>(cell)])
                    ++cell;
                if (cell < m_filled.size()) place = cell++;
            } else if (m_cellOf[static_cast<size_t>(vertex)] != 0) {
                place = m_cellOf[static_cast<size_t>(vertex)] - 1;
            }
            ++vertex;
            if (place == kNoVertex) {
                ++outside;
            } else {
                nowhere += IsNowhere(point) ? 1 : 0;
                gather->Put(place % m_columns, place / m_columns, IsNowhere(point) ? Cell() : point);
            }
        }
    }
    if (nowhere != 0) m_warnings.push_back(NowhereWarning(nowhere));
    if (outside != 0)
        m_warnings.push_back(std::to_string(outside) +
                             " vertices stand in no cell of the grid and are left out");
    m_gather = std::move(gather);
}

ScanDescription PlySource::OpenScan(uint64_t index) {
    m_open = false;
    ReadHeader();
    if (index != 0) {
        kxbase::ErrorContext context;
        context.file = m_name;
        context.detail = "asked for scan " + std::to_string(index + 1) + ", the file holds 1";
        throw kxbase::KXIndexOutOfBoundsException("No such scan in the file", context);
    }
    ScanDescription description;
    m_record.Describe(description);
    if (m_columns != 0) {
        if (!m_gather) GatherGrid();
        m_gather->Rewind();
        description.columns = m_columns;
        description.rows = m_rows;
        description.points = m_columns * m_rows;
    } else {
        BeginVertices();
        description.points = m_vertexCount;
    }
    m_open = true;
    return description;
}

uint64_t PlySource::ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) {
    cells.clear();
    if (!m_open || maxColumns == 0) return 0;
    if (m_gather) {
        const uint64_t most = std::max<uint64_t>(1, kPointsPerRead / m_rows);
        return m_gather->Read(std::min(maxColumns, most), cells);
    }
    while (ReadVertices(cells) != 0) {
        std::erase_if(cells, [](const Cell& cell) { return !cell.valid; });
        if (!cells.empty()) return 1;
    }
    return 0;
}

}  // namespace kxexchange
