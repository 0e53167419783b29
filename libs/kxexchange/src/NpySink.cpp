// SPDX-License-Identifier: MIT
#include "NpySink.h"

#include <zlib.h>

#include <algorithm>
#include <new>

#include "RecordBytes.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr size_t kArrayAlignment = 64;
constexpr size_t kSpoolBytes = size_t{1} << 20;

[[noreturn]] void RefuseSecondScan(const char* format) {
    kxbase::ErrorContext context;
    context.detail = std::string(format) + " holds one scan";
    throw kxbase::KXWritingException("Cannot write a second scan into the file", context);
}

template <class Bits>
void Append(std::string& out, Bits value) {
    unsigned char bytes[sizeof value];
    PutBits(bytes, value);
    out.append(reinterpret_cast<const char*>(bytes), sizeof value);
}

FormatCapabilities PlaneCapabilities() {
    FormatCapabilities can;
    can.grid = can.noReturns = Fate::Kept;
    can.cartesian = Fate::Converted;
    can.coordinateBits = 24;
    can.intensity = can.intensityMarks = can.color = can.classes = Fate::Kept;
    can.colorBits = 16;
    return can;
}

}  // namespace

NpyArray::NpyArray(PlaneKind plane, const ScanDescription& description)
    : m_plane(plane), m_columns(description.columns), m_rows(description.rows) {
    switch (plane) {
        case PlaneKind::Intensity:
            m_type = "<f8";
            m_bytes = 8;
            break;
        case PlaneKind::Red:
        case PlaneKind::Green:
        case PlaneKind::Blue:
            m_type = description.colorBits == 16 ? "<u2" : "|u1";
            m_bytes = description.colorBits == 16 ? 2 : 1;
            break;
        case PlaneKind::Classification:
        case PlaneKind::Valid:
            m_type = "|u1";
            m_bytes = 1;
            break;
        default:
            m_type = "<f4";
            m_bytes = 4;
            break;
    }
}

std::string NpyArray::Header() const {
    std::string text = std::string("{'descr': '") + m_type + "', 'fortran_order': True, 'shape': (" +
                       std::to_string(m_rows) + ", " + std::to_string(m_columns) + "), }";
    std::string header("\x93NUMPY\x01\x00", 8);
    const size_t used = header.size() + 2 + text.size() + 1;
    text.append((kArrayAlignment - used % kArrayAlignment) % kArrayAlignment, ' ');
    text += '\n';
    Append(header, static_cast<uint16_t>(text.size()));
    return header + text;
}

unsigned char* NpyArray::Put(const Cell& cell, unsigned char* out) const {
    const double value = PlaneValue(cell, m_plane);
    switch (m_bytes) {
        case 8:
            return PutDouble(out, value);
        case 4:
            return PutFloat(out, value);
        case 2:
            return PutBits(out, static_cast<uint16_t>(value));
        default:
            return PutBits(out, static_cast<uint8_t>(value));
    }
}

FormatCapabilities NpySink::Capabilities() {
    return PlaneCapabilities();
}

void NpySink::BeginScan(const ScanDescription& description) {
    if (m_array) RefuseSecondScan("NPY");
    RequireGrid(description, "NPY");
    m_array = std::make_unique<NpyArray>(
        FindPlane(m_options.plane.empty() ? "range" : m_options.plane, description), description);
    m_bytes.Append(m_array->Header());
}

void NpySink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    unsigned char value[8];
    for (const Cell& cell : cells) {
        const unsigned char* const end = m_array->Put(cell, value);
        m_bytes.Append({reinterpret_cast<const char*>(value), static_cast<size_t>(end - value)});
        m_points += cell.valid ? 1 : 0;
    }
}

// One plane says nothing of the others.
void NpySink::AddLosses(LossReport& losses) const {
    const PlaneKind plane = m_array->Plane();
    const std::string only = "the file holds the plane " + std::string(NameOf(plane)) + " only";
    losses.Add({"coordinates", Fate::Lost, only, {}});
    const auto lose = [&](const char* field) {
        if (losses.Find(field)) losses.Add({field, Fate::Lost, only, {}});
    };
    lose("colour");
    if (plane != PlaneKind::Intensity) lose("intensity");
    if (plane != PlaneKind::Classification) lose("classes");
}

FormatCapabilities NpzSink::Capabilities() {
    return PlaneCapabilities();
}

void NpzSink::BeginScan(const ScanDescription& description) {
    if (!m_planes.empty() || !m_members.empty()) RefuseSecondScan("NPZ");
    RequireGrid(description, "NPZ");
    for (const PlaneKind plane : PlanesOf(description)) {
        m_planes.push_back(
            {NpyArray(plane, description), std::make_unique<Spool>(m_options.temporaryFolder)});
        const std::string header = m_planes.back().array.Header();
        m_planes.back().values->Append(
            {reinterpret_cast<const unsigned char*>(header.data()), header.size()});
    }
}

void NpzSink::WriteColumns(std::span<const Cell> cells, uint64_t /*columns*/) {
    std::vector<unsigned char> values(cells.size() * 8);
    for (Plane& plane : m_planes) {
        unsigned char* out = values.data();
        for (const Cell& cell : cells)
            out = plane.array.Put(cell, out);
        plane.values->Append({values.data(), static_cast<size_t>(out - values.data())});
    }
    m_points += static_cast<uint64_t>(
        std::count_if(cells.begin(), cells.end(), [](const Cell& cell) { return cell.valid; }));
}

// Sizes go into a 64-bit extra field throughout, so that no plane is too large.
std::string NpzSink::LocalHeader(const Member& member) const {
    std::string out;
    Append<uint32_t>(out, 0x04034b50);
    Append<uint16_t>(out, 45);
    Append<uint16_t>(out, 0);
    Append<uint16_t>(out, 8);       // deflate
    Append<uint16_t>(out, 0);       // time
    Append<uint16_t>(out, 0x0021);  // 1980-01-01: the same scan makes the same file
    Append<uint32_t>(out, member.crc);
    Append<uint32_t>(out, 0xffffffff);
    Append<uint32_t>(out, 0xffffffff);
    Append<uint16_t>(out, static_cast<uint16_t>(member.name.size()));
    Append<uint16_t>(out, 20);
    out += member.name;
    Append<uint16_t>(out, 1);
    Append<uint16_t>(out, 16);
    Append<uint64_t>(out, member.bytes);
    Append<uint64_t>(out, member.packed);
    return out;
}

void NpzSink::WriteMember(Plane& plane) {
    Member member;
    member.name = std::string(NameOf(plane.array.Plane())) + ".npy";
    member.offset = m_bytes.BytesWritten();
    m_bytes.Append(LocalHeader(member));
    z_stream deflater{};
    constexpr int kRawWindow = -15, kMemoryLevel = 8;
    const int level =
        m_options.compressionLevel < 0 ? Z_DEFAULT_COMPRESSION : std::min(m_options.compressionLevel, 9);
    if (deflateInit2(&deflater, level, Z_DEFLATED, kRawWindow, kMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::bad_alloc();
    struct End {
        z_stream* stream;
        ~End() { deflateEnd(stream); }
    } const end{&deflater};
    std::vector<unsigned char> in(kSpoolBytes), out(kSpoolBytes);
    const uint64_t total = plane.values->Size();
    uLong crc = crc32(0, nullptr, 0);
    while (member.bytes < total) {
        const auto piece = static_cast<size_t>(std::min<uint64_t>(in.size(), total - member.bytes));
        plane.values->Read(member.bytes, in.data(), piece);
        crc = crc32(crc, in.data(), static_cast<uInt>(piece));
        member.bytes += piece;
        deflater.next_in = in.data();
        deflater.avail_in = static_cast<uInt>(piece);
        const int flush = member.bytes == total ? Z_FINISH : Z_NO_FLUSH;
        do {
            deflater.next_out = out.data();
            deflater.avail_out = static_cast<uInt>(out.size());
            deflate(&deflater, flush);
            const size_t made = out.size() - deflater.avail_out;
            m_bytes.Append({reinterpret_cast<const char*>(out.data()), made});
            member.packed += made;
        } while (deflater.avail_out == 0);
    }
    member.crc = static_cast<uint32_t>(crc);
    m_bytes.Flush();
    const std::string header = LocalHeader(member);
    kxbase::IOutFileStream& stream = m_bytes.Stream();
    if (!stream.Seek(member.offset)) throw kxbase::KXWritingException("Cannot write file");
    stream.Write(header.data(), header.size());
    if (!stream.Seek(m_bytes.BytesWritten())) throw kxbase::KXWritingException("Cannot write file");
    m_members.push_back(std::move(member));
}

void NpzSink::EndScan() {
    for (Plane& plane : m_planes) {
        WriteMember(plane);
        plane.values.reset();
    }
    m_planes.clear();
}

void NpzSink::Finish() {
    const uint64_t directory = m_bytes.BytesWritten();
    std::string out;
    for (const Member& member : m_members) {
        Append<uint32_t>(out, 0x02014b50);
        Append<uint16_t>(out, 45);
        Append<uint16_t>(out, 45);
        Append<uint16_t>(out, 0);
        Append<uint16_t>(out, 8);
        Append<uint16_t>(out, 0);
        Append<uint16_t>(out, 0x0021);
        Append<uint32_t>(out, member.crc);
        Append<uint32_t>(out, 0xffffffff);
        Append<uint32_t>(out, 0xffffffff);
        Append<uint16_t>(out, static_cast<uint16_t>(member.name.size()));
        Append<uint16_t>(out, 28);
        Append<uint16_t>(out, 0);
        Append<uint16_t>(out, 0);
        Append<uint16_t>(out, 0);
        Append<uint32_t>(out, 0);
        Append<uint32_t>(out, 0xffffffff);
        out += member.name;
        Append<uint16_t>(out, 1);
        Append<uint16_t>(out, 24);
        Append<uint64_t>(out, member.bytes);
        Append<uint64_t>(out, member.packed);
        Append<uint64_t>(out, member.offset);
    }
    const uint64_t directoryBytes = out.size();
    const uint64_t end = directory + directoryBytes;
    Append<uint32_t>(out, 0x06064b50);
    Append<uint64_t>(out, 44);
    Append<uint16_t>(out, 45);
    Append<uint16_t>(out, 45);
    Append<uint32_t>(out, 0);
    Append<uint32_t>(out, 0);
    Append<uint64_t>(out, m_members.size());
    Append<uint64_t>(out, m_members.size());
    Append<uint64_t>(out, directoryBytes);
    Append<uint64_t>(out, directory);
    Append<uint32_t>(out, 0x07064b50);
    Append<uint32_t>(out, 0);
    Append<uint64_t>(out, end);
    Append<uint32_t>(out, 1);
    Append<uint32_t>(out, 0x06054b50);
    Append<uint16_t>(out, 0);
    Append<uint16_t>(out, 0);
    Append<uint16_t>(out, static_cast<uint16_t>(m_members.size()));
    Append<uint16_t>(out, static_cast<uint16_t>(m_members.size()));
    Append<uint32_t>(out, 0xffffffff);
    Append<uint32_t>(out, 0xffffffff);
    Append<uint16_t>(out, 0);
    m_bytes.Append(out);
    m_bytes.Flush();
}

}  // namespace kxexchange
