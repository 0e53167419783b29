// SPDX-License-Identifier: MIT
#include "LasSink.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <string>

#include "RecordBytes.h"
#include "TextFormat.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr uint16_t kBytesOfFormat6 = 30;
constexpr uint16_t kBytesOfFormat7 = 36;
constexpr double kGreatestStored = 2147483000.0;

void PutText(kxbase::ByteWriter& writer, std::string text, size_t bytes) {
    text.resize(bytes, '\0');
    writer.Bytes({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

}  // namespace

FormatCapabilities LasSink::Capabilities() {
    FormatCapabilities can;
    can.pose = Fate::Converted;
    can.coordinateBits = 31;
    can.intensity = Fate::Converted;
    can.intensityBits = 16;
    can.color = can.classes = Fate::Kept;
    can.colorBits = 16;
    can.severalScans = Fate::Converted;
    return can;
}

void LasSink::BeginScan(const ScanDescription& description) {
    if (m_scans == std::numeric_limits<uint16_t>::max())
        throw kxbase::KXWritingException("Cannot write more than 65535 scans into the file");
    m_color = description.color.present;
    m_colorFactor = description.colorBits == 16 ? 1 : 257;
    m_intensity = description.intensity.present;
    m_classes = description.classification.present;
    if (m_scans++ == 0) {
        m_withColor = m_color;
        // Whole metres, so that offsets read well and add without rounding.
        const double* pose = description.pose.Values();
        for (size_t axis = 0; axis < 3; ++axis)
            m_offset[axis] = std::abs(pose[9 + axis]) < 1e9 ? std::round(pose[9 + axis]) : 0;
        m_bytes.Append(std::string(kHeaderBytes, '\0'));
    }
    m_colorLost = m_colorLost || (m_color && !m_withColor);
    m_mapping.reset();
    m_clamped = 0;
    const FieldDescription& field = description.intensity;
    if (m_intensity && field.minimum && field.maximum) {
        IntensitySurvey survey;
        survey.Add(*field.minimum);
        survey.Add(*field.maximum);
        // Bounds that are whole say little about what lies between them.
        if (field.numbers != NumberKind::Integer)
            survey.Add(0.5 * *field.minimum + 0.5 * *field.maximum + 1e-3);
        m_mapping = survey.Mapping();
        if (*field.minimum >= 0 && *field.maximum <= 1)
            m_mapping = IntensityMapping{IntensityMapping::Kind::Unit, 0, 1.0 / 65535};
    }
}

void LasSink::LearnIntensity(std::span<const Cell> cells) {
    IntensitySurvey survey;
    bool any = false;
    for (const Cell& cell : cells) {
        if (!cell.valid || cell.intensityInvalid) continue;
        survey.Add(cell.intensity);
        any = true;
    }
    if (any) m_mapping = survey.Mapping();
}

void LasSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    if (m_intensity && !m_mapping) LearnIntensity(cells);
    if (m_points == 0) {
        // Without an announced place the first point tells where the scan lies.
        const auto first =
            std::find_if(cells.begin(), cells.end(), [](const Cell& cell) { return cell.valid; });
        if (first == cells.end()) return;
        const std::array<double, 3> place{first->x, first->y, first->z};
        for (size_t axis = 0; axis < 3; ++axis) {
            if (std::abs(place[axis] - m_offset[axis]) > 1e5 && std::abs(place[axis]) < 1e12)
                m_offset[axis] = std::round(place[axis]);
        }
        m_least.fill(std::numeric_limits<double>::infinity());
        m_greatest.fill(-std::numeric_limits<double>::infinity());
    }
    unsigned char record[kBytesOfFormat7];
    for (const Cell& cell : cells) {
        if (!cell.valid) continue;
        unsigned char* out = record;
        const std::array<double, 3> place{cell.x, cell.y, cell.z};
        for (size_t axis = 0; axis < 3; ++axis) {
            const double stored = std::round((place[axis] - m_offset[axis]) / kScale);
            if (!(std::abs(stored) <= kGreatestStored)) {
                kxbase::ErrorContext context;
                context.detail = "a coordinate of " + ShortestText(place[axis]) +
                                 " m does not fit a scale of " + ShortestText(kScale) + " m";
                throw kxbase::KXWritingException("Cannot write point", context);
            }
            out = PutBits(out, static_cast<uint32_t>(static_cast<int32_t>(stored)));
            const double value = stored * kScale + m_offset[axis];
            m_least[axis] = std::min(m_least[axis], value);
            m_greatest[axis] = std::max(m_greatest[axis], value);
        }
        uint16_t intensity = 0;
        if (m_intensity && m_mapping && !cell.intensityInvalid) {
            intensity = m_mapping->Store(cell.intensity);
            m_clamped += std::abs(m_mapping->Restore(intensity) - cell.intensity) >
                                 m_mapping->Bound() * (1 + 1e-9) + 1e-12 * std::abs(cell.intensity)
                             ? 1
                             : 0;
        }
        out = PutBits(out, intensity);
        out = PutBits<uint8_t>(out, 0x11);  // return 1 of 1
        out = PutBits<uint8_t>(out, 0);
        out = PutBits<uint8_t>(out, m_classes ? cell.classification : uint8_t{0});
        out = PutBits<uint8_t>(out, 0);
        out = PutBits<uint16_t>(out, 0);
        out = PutBits<uint16_t>(out, m_scans);
        out = PutBits<uint64_t>(out, 0);
        if (m_withColor) {
            for (const uint16_t channel : {cell.red, cell.green, cell.blue})
                out = PutBits(out, static_cast<uint16_t>(m_color ? channel * m_colorFactor : 0u));
        }
        m_bytes.Append({reinterpret_cast<const char*>(record), static_cast<size_t>(out - record)});
        ++m_points;
    }
}

std::array<unsigned char, LasSink::kHeaderBytes> LasSink::Header() const {
    std::array<unsigned char, kHeaderBytes> header{};
    kxbase::ByteWriter writer(header);
    PutText(writer, "LASF", 4);
    writer.U16(0);     // file source ID
    writer.U16(0x10);  // coordinate system as WKT: demanded by formats 6 and 7
    writer.Zeros(16);  // project ID
    writer.U8(1);
    writer.U8(4);
    PutText(writer, "OTHER", 32);
    PutText(writer, "kxio", 32);
    using namespace std::chrono;
    const auto today = floor<days>(system_clock::now());
    const year_month_day date(today);
    writer.U16(static_cast<uint16_t>((today - sys_days(date.year() / January / 1)).count() + 1));
    writer.U16(static_cast<uint16_t>(static_cast<int>(date.year())));
    writer.U16(kHeaderBytes);
    writer.U32(kHeaderBytes);
    writer.U32(0);  // variable length records
    writer.U8(m_withColor ? 7 : 6);
    writer.U16(m_withColor ? kBytesOfFormat7 : kBytesOfFormat6);
    writer.U32(0);  // legacy counts
    writer.Zeros(20);
    for (int axis = 0; axis < 3; ++axis)
        writer.F64(kScale);
    for (const double offset : m_offset)
        writer.F64(offset);
    for (size_t axis = 0; axis < 3; ++axis) {
        writer.F64(m_points == 0 ? 0.0 : m_greatest[axis]);
        writer.F64(m_points == 0 ? 0.0 : m_least[axis]);
    }
    writer.U64(0);  // waveform data
    writer.U64(0);  // extended variable length records
    writer.U32(0);
    writer.U64(m_points);
    writer.U64(m_points);  // first returns
    writer.Zeros(14 * 8);
    return header;
}

void LasSink::Finish() {
    if (m_scans == 0) m_bytes.Append(std::string(kHeaderBytes, '\0'));
    m_bytes.Flush();
    const auto header = Header();
    if (!m_bytes.Stream().Seek(0)) throw kxbase::KXWritingException("Cannot write file");
    m_bytes.Stream().Write(header.data(), header.size());
}

void LasSink::AddLosses(LossReport& losses) const {
    losses.Add({"coordinates", Fate::Converted, "to whole multiples of " + ShortestText(kScale) + " m", {}});
    if (m_colorLost && m_color) losses.Add({"colour", Fate::Lost, "the file's first scan has none", {}});
    if (!m_intensity || !m_mapping || m_mapping->kind == IntensityMapping::Kind::None) return;
    std::string detail = "to 16 bits";
    if (m_clamped != 0)
        detail += "; " + std::to_string(m_clamped) + " values lie outside and became the nearest";
    losses.Add(
        {"intensity", Fate::Converted, detail,
         "intensity = " + ShortestText(m_mapping->offset) + " + value x " + ShortestText(m_mapping->scale)});
}

}  // namespace kxexchange
