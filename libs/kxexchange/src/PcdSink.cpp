// SPDX-License-Identifier: MIT
#include "PcdSink.h"

#include <limits>

#include "Quaternion.h"
#include "RecordBytes.h"
#include "TextFormat.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

// Beyond it, single precision no longer keeps a tenth of a millimetre.
constexpr double kSinglePrecisionMetres = 1000;
// A pose whose values are further from a rotation than this is none.
constexpr double kRotationError = 1e-6;

}  // namespace

FormatCapabilities PcdSink::Capabilities() {
    FormatCapabilities can;
    can.grid = can.noReturns = can.pose = can.intensity = can.color = can.classes = Fate::Kept;
    can.intensityBits = 24;
    can.intensityMarks = Fate::Kept;
    return can;
}

std::string PcdSink::Header() const {
    std::string fields = "FIELDS x y z", sizes = "SIZE", types = "TYPE", counts = "COUNT 1 1 1";
    for (int i = 0; i < 3; ++i) {
        sizes += m_doubles ? " 8" : " 4";
        types += " F";
    }
    const auto add = [&](const char* name, const char* size, const char* type) {
        fields += std::string(" ") + name;
        sizes += std::string(" ") + size;
        types += std::string(" ") + type;
        counts += " 1";
    };
    if (m_intensity) add("intensity", "4", "F");
    if (m_color) add("rgb", "4", "U");
    if (m_classes) add("label", "4", "U");
    const double* pose = m_pose.Values();
    const Quaternion q = QuaternionOf(m_pose);
    std::string viewpoint = "VIEWPOINT";
    for (const double value : {pose[9], pose[10], pose[11], q[0], q[1], q[2], q[3]})
        viewpoint += " " + ShortestText(value);
    // Counts that are known at the end only: blanks take up what they leave.
    const auto padded = [](const char* key, uint64_t count) {
        constexpr size_t kCountBytes = 28;
        std::string line = std::string(key) + " " + std::to_string(count);
        line.resize(kCountBytes, ' ');
        return line + "\n";
    };
    // What the quaternion cannot say to the last bit.
    std::string exact;
    if (!(PoseOf({pose[9], pose[10], pose[11]}, q) == m_pose)) {
        exact = "# kxio-pose 1";
        for (size_t i = 0; i < kxbase::RegistrationInformation::ValueCount; ++i)
            exact += " " + ShortestText(pose[i]);
        exact += "\n";
    }
    return "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n" + fields + "\n" + sizes + "\n" +
           types + "\n" + counts + "\n" + padded("WIDTH", m_columns) + padded("HEIGHT", m_height) +
           viewpoint + "\n" + exact + padded("POINTS", m_columns * m_height) + "DATA binary\n";
}

void PcdSink::BeginScan(const ScanDescription& description) {
    if (m_begun) {
        kxbase::ErrorContext context;
        context.detail = "PCD holds one scan";
        throw kxbase::KXWritingException("Cannot write a second scan into the file", context);
    }
    m_begun = true;
    m_pose = description.pose;
    m_intensity = description.intensity.present;
    m_color = description.color.present;
    m_classes = description.classification.present;
    m_doubles = m_options.coordinates == NumberKind::Double ||
                (m_options.coordinates == NumberKind::Unknown &&
                 description.coordinates.maximum.value_or(0) > kSinglePrecisionMetres);
    m_recordBytes =
        (m_doubles ? 24u : 12u) + 4 * ((m_intensity ? 1u : 0u) + (m_color ? 1u : 0u) + (m_classes ? 1u : 0u));
    m_grid = description.HasGrid();
    if (m_grid) {
        m_columns = description.columns;
        m_height = description.rows;
        m_rows = std::make_unique<RowStore>(m_columns, m_height, m_recordBytes, m_options.temporaryFolder);
    }
    m_bytes.Append(Header());
}

unsigned char* PcdSink::Encode(const Cell& cell, unsigned char* out) const {
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    for (const double coordinate : {cell.x, cell.y, cell.z}) {
        const double value = cell.valid ? coordinate : kNone;
        out = m_doubles ? PutDouble(out, value) : PutFloat(out, value);
    }
    if (m_intensity) out = PutFloat(out, cell.intensityInvalid ? kNone : cell.intensity);
    if (m_color) {
        out = PutBits<uint32_t>(
            out, static_cast<uint32_t>((cell.red & 255) << 16 | (cell.green & 255) << 8 | (cell.blue & 255)));
    }
    if (m_classes) out = PutBits<uint32_t>(out, cell.classification);
    return out;
}

void PcdSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    unsigned char record[64];
    if (!m_rows) {
        for (const Cell& cell : cells) {
            if (!cell.valid) continue;
            Encode(cell, record);
            m_bytes.Append({reinterpret_cast<const char*>(record), m_recordBytes});
            ++m_points;
            ++m_columns;
        }
        return;
    }
    const auto rows = static_cast<size_t>(m_height);
    std::vector<unsigned char> column(rows * m_recordBytes);
    for (; cells.size() >= rows; cells = cells.subspan(rows)) {
        unsigned char* out = column.data();
        for (const Cell& cell : cells.first(rows)) {
            out = Encode(cell, out);
            m_points += cell.valid ? 1 : 0;
        }
        m_rows->AddColumn(column);
    }
}

void PcdSink::EndScan() {
    if (!m_rows) return;
    std::vector<unsigned char> row;
    for (uint64_t i = 0; i < m_height; ++i) {
        m_rows->ReadRow(i, row);
        m_bytes.Append({reinterpret_cast<const char*>(row.data()), row.size()});
    }
    m_rows.reset();
}

void PcdSink::Finish() {
    m_bytes.Flush();
    const std::string header = Header();
    if (!m_bytes.Stream().Seek(0)) throw kxbase::KXWritingException("Cannot write file");
    m_bytes.Stream().Write(header.data(), header.size());
}

void PcdSink::AddLosses(LossReport& losses) const {
    if (m_grid && m_height == 1)
        losses.Add({"grid", Fate::Lost, "a cloud of one row counts as one without a grid", {}});
    if (RotationError(m_pose) > kRotationError) {
        losses.Add({"pose",
                    Fate::Converted,
                    "its matrix is no rotation, which VIEWPOINT cannot say; in full in a comment",
                    {}});
    }
}

}  // namespace kxexchange
