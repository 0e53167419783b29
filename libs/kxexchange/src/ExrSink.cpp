// SPDX-License-Identifier: MIT
#include "ExrSink.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfOutputFile.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <string>

#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr uint64_t kMostSide = 0x3fffffff;

// The library's stream over ours.
class ExrStream final : public Imf::OStream {
public:
    explicit ExrStream(kxbase::IOutFileStream& stream) : Imf::OStream("scan.exr"), m_stream(stream) {}

    void write(const char bytes[], int count) override {
        m_failed = true;  // unless the next line comes back
        m_stream.Write(bytes, static_cast<uint64_t>(count));
        m_failed = false;
        m_end = std::max(m_end, m_stream.Tell());
    }
    uint64_t tellp() override { return m_stream.Tell(); }
    void seekp(uint64_t position) override {
        if (!m_stream.Seek(position)) throw kxbase::KXWritingException("Cannot write file");
    }
    uint64_t End() const { return m_end; }
    /// The last write failed. The library swallows that where it completes its tables.
    bool Failed() const { return m_failed; }

private:
    kxbase::IOutFileStream& m_stream;
    uint64_t m_end = 0;
    bool m_failed = false;
};

const char* ChannelOf(PlaneKind plane) {
    switch (plane) {
        case PlaneKind::Red:
            return "R";
        case PlaneKind::Green:
            return "G";
        case PlaneKind::Blue:
            return "B";
        default:
            return NameOf(plane).data();
    }
}

bool IsColor(PlaneKind plane) {
    return plane == PlaneKind::Red || plane == PlaneKind::Green || plane == PlaneKind::Blue;
}

}  // namespace

FormatCapabilities ExrSink::Capabilities() {
    FormatCapabilities can;
    can.grid = can.noReturns = Fate::Kept;
    can.cartesian = Fate::Converted;
    can.coordinateBits = 24;
    can.intensity = can.classes = Fate::Kept;
    can.intensityBits = 24;
    can.intensityMarks = Fate::Kept;
    can.color = Fate::Converted;
    can.colorBits = 16;
    return can;
}

void ExrSink::BeginScan(const ScanDescription& description) {
    if (!m_planes.empty()) {
        kxbase::ErrorContext context;
        context.detail = "OpenEXR holds one scan";
        throw kxbase::KXWritingException("Cannot write a second scan into the file", context);
    }
    RequireGrid(description, "OpenEXR");
    if (description.columns > kMostSide || description.rows > kMostSide)
        throw kxbase::KXBadInputException("Scan is too large for a picture");
    m_planes = PlanesOf(description);
    m_columns = description.columns;
    m_height = description.rows;
    m_colorFactor = description.colorBits == 16 ? 1.0 / 65535 : 1.0 / 255;
    m_rows = std::make_unique<RowStore>(m_columns, m_height, m_planes.size() * sizeof(float),
                                        m_options.temporaryFolder);
}

void ExrSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    const auto rows = static_cast<size_t>(m_height);
    std::vector<unsigned char> column(rows * m_planes.size() * sizeof(float));
    for (; cells.size() >= rows; cells = cells.subspan(rows)) {
        unsigned char* out = column.data();
        for (const Cell& cell : cells.first(rows)) {
            m_points += cell.valid ? 1 : 0;
            for (const PlaneKind plane : m_planes) {
                const auto value =
                    static_cast<float>(PlaneValue(cell, plane) * (IsColor(plane) ? m_colorFactor : 1.0));
                std::memcpy(out, &value, sizeof value);
                out += sizeof value;
            }
        }
        m_rows->AddColumn(column);
    }
}

void ExrSink::EndScan() {
    try {
        Imf::Header header(static_cast<int>(m_columns), static_cast<int>(m_height));
        header.compression() = Imf::ZIP_COMPRESSION;
        for (const PlaneKind plane : m_planes)
            header.channels().insert(ChannelOf(plane), Imf::Channel(Imf::FLOAT));
        ExrStream stream(m_stream);
        {
            Imf::OutputFile file(stream, header, 0);
            std::vector<unsigned char> row;
            m_rows->ReadRow(0, row);
            Imf::FrameBuffer buffer;
            // Every row lies in the same memory: a stride of 0 from line to line.
            for (size_t i = 0; i < m_planes.size(); ++i) {
                buffer.insert(ChannelOf(m_planes[i]),
                              Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(row.data()) + i * sizeof(float),
                                         m_planes.size() * sizeof(float), 0));
            }
            file.setFrameBuffer(buffer);
            for (uint64_t i = 0; i < m_height; ++i) {
                m_rows->ReadRow(i, row);  // of the same size: stays in its place
                file.writePixels(1);
            }
        }
        if (stream.Failed()) throw kxbase::KXWritingException("Cannot write file");
        m_written = stream.End();
    } catch (const kxbase::KXException&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        kxbase::ErrorContext context;
        context.detail = e.what();
        throw kxbase::KXWritingException("Cannot write picture", context);
    }
    m_rows.reset();
}

}  // namespace kxexchange
