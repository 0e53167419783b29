// SPDX-License-Identifier: MIT
#include "PlySink.h"

#include <bit>

#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

// Beyond it, single precision no longer keeps a tenth of a millimetre.
constexpr double kSinglePrecisionMetres = 1000;

template <class Bits>
char* AppendBits(char* out, Bits bits) {
    for (size_t i = 0; i < sizeof bits; ++i)
        *out++ = static_cast<char>(bits >> (8 * i) & 0xff);
    return out;
}

char* AppendFloat(char* out, double value) {
    return AppendBits(out, std::bit_cast<uint32_t>(static_cast<float>(value)));
}
char* AppendDouble(char* out, double value) {
    return AppendBits(out, std::bit_cast<uint64_t>(value));
}

}  // namespace

std::string PlySink::Header() const {
    const std::string type = m_doubles ? "double" : "float";
    const std::string count = std::to_string(m_points);
    // The comment takes up what the number leaves.
    constexpr size_t kCountDigits = 20;
    std::string header = "ply\nformat binary_little_endian 1.0\ncomment written by kxio" +
                         std::string(kCountDigits - count.size(), '.') + "\nelement vertex " + count + "\n";
    for (const char* axis : {"x", "y", "z"})
        header += "property " + type + " " + axis + "\n";
    if (m_intensity) header += "property float intensity\n";
    if (m_color) {
        for (const char* channel : {"red", "green", "blue"}) {
            header += std::string("property uchar ") + channel + "\n";
        }
    }
    return header + "end_header\n";
}

FormatCapabilities PlySink::Capabilities() {
    FormatCapabilities can;
    can.pose = Fate::Converted;
    can.intensity = can.color = Fate::Kept;
    can.intensityBits = 24;
    return can;
}

void PlySink::BeginScan(const ScanDescription& description) {
    m_intensity = description.intensity.present;
    m_color = description.color.present;
    m_doubles = m_options.coordinates == NumberKind::Double ||
                (m_options.coordinates == NumberKind::Unknown &&
                 description.coordinates.maximum.value_or(0) > kSinglePrecisionMetres);
    m_bytes.Append(Header());
}

void PlySink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    for (const Cell& cell : cells) {
        if (!cell.valid) continue;
        char* out = m_bytes.Reserve();
        for (const double coordinate : {cell.x, cell.y, cell.z}) {
            out = m_doubles ? AppendDouble(out, coordinate) : AppendFloat(out, coordinate);
        }
        if (m_intensity) out = AppendFloat(out, cell.intensity);
        if (m_color) {
            for (const uint16_t channel : {cell.red, cell.green, cell.blue})
                *out++ = static_cast<char>(static_cast<uint8_t>(channel));
        }
        m_bytes.Claim(out);
        ++m_points;
    }
}

void PlySink::Finish() {
    m_bytes.Flush();
    const std::string header = Header();
    if (!m_bytes.Stream().Seek(0)) throw kxbase::KXWritingException("Cannot write file");
    m_bytes.Stream().Write(header.data(), header.size());
}

}  // namespace kxexchange
