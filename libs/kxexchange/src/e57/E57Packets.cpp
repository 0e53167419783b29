// SPDX-License-Identifier: MIT
#include "E57Packets.h"

#include <algorithm>
#include <bit>

#include "E57Bits.h"
#include "E57Error.h"
#include "kxbase/ByteReader.h"

namespace kxexchange {

namespace {

// Numbers unpacked at a time; they stay in the first cache.
constexpr size_t kPiece = 512;
constexpr uint64_t kRestarted = 1;
// Records of no bits at all that are believed: nothing of the file stands for them.
constexpr uint64_t kMaxConstantRecords = 1 << 20;

}  // namespace

E57Section ReadE57Section(E57PageReader& pages, const E57Node& vector, const std::vector<E57Field>& fields,
                          const std::string& where) {
    E57Section section;
    section.where = where;
    section.records = vector.count;
    section.streams = fields.size();
    if (vector.count == 0) return section;
    const auto fail = [&](const char* field, uint64_t offset, const std::string& detail) {
        FailE57({pages.Name(), where, field, offset, detail});
    };
    const auto start = E57Logical(vector.fileOffset);
    const uint64_t all = pages.LogicalBytes();
    if (!start || *start >= all) {
        fail("fileOffset", vector.fileOffset, "expected a place inside the file that is no checksum");
    }
    std::array<unsigned char, kE57SectionHeaderBytes> bytes{};
    pages.Read(*start, bytes, where);
    kxbase::ByteReader in(bytes, vector.fileOffset, where);
    const unsigned id = in.U8("section id");
    in.Skip(7, "reserved");
    const uint64_t length = in.U64("section length");
    const uint64_t dataOffset = in.U64("data offset");
    if (id != kE57SectionId) {
        fail("section id", vector.fileOffset, "found " + std::to_string(id) + ", expected 1");
    }
    if (length < kE57SectionHeaderBytes || length > all - *start) {
        fail("section length", vector.fileOffset + 8,
             "found " + std::to_string(length) + ", the file has " + std::to_string(all - *start) +
                 " bytes of content from there");
    }
    section.end = *start + length;
    const auto data = E57Logical(dataOffset);
    if (!data || *data < *start + kE57SectionHeaderBytes || *data > section.end) {
        fail("data offset", vector.fileOffset + 16,
             "found " + std::to_string(dataOffset) + ", expected a place inside the section");
    }
    section.firstData = *data;
    uint64_t bitsPerRecord = 0;
    for (const E57Field& field : fields)
        bitsPerRecord += field.Bits();
    const uint64_t holds =
        bitsPerRecord != 0 ? (section.end - *data) * 8 / bitsPerRecord : kMaxConstantRecords;
    if (vector.count > holds) {
        fail("recordCount", vector.fileOffset,
             "found " + std::to_string(vector.count) + " records, the section can hold at most " +
                 std::to_string(holds));
    }
    return section;
}

E57FieldReader::E57FieldReader(E57PageReader& pages, const E57Section& section, const E57Field& field,
                               size_t stream)
    : m_pages(pages),
      m_section(section),
      m_field(field),
      m_scaling(field),
      m_stream(stream),
      m_width(field.Bits()),
      m_nextPacket(section.firstData) {}

void E57FieldReader::Rewind() {
    m_nextPacket = m_section.firstData;
    m_done = m_bit = m_bits = 0;
}

void E57FieldReader::Fail(uint64_t logical, const std::string& detail) const {
    FailE57({m_pages.Name(), m_section.where, m_field.name, E57Physical(logical), detail});
}

// Whole values at hand.
uint64_t E57FieldReader::Available() const {
    return (m_bits - m_bit) / m_width;
}

// Appends this field's bytes of the next data packet.
void E57FieldReader::NextPacket() {
    while (true) {
        if (m_nextPacket + 4 > m_section.end) {
            Fail(std::min(m_nextPacket, m_section.end), "the packets end after " + std::to_string(m_done) +
                                                            " of " + std::to_string(m_section.records) +
                                                            " records");
        }
        const uint64_t packet = m_nextPacket;
        m_header.resize(kE57DataHeaderBytes + 2 * m_section.streams);
        const size_t readable =
            static_cast<size_t>(std::min<uint64_t>(m_header.size(), m_section.end - packet));
        const std::span<unsigned char> header = std::span(m_header).first(readable);
        m_pages.Read(packet, header, m_section.where);
        kxbase::ByteReader in(header, E57Physical(packet), m_section.where);
        const unsigned type = in.U8("packet type");
        const unsigned flags = in.U8("packet flags");
        const uint64_t length = uint64_t{in.U16("packet length")} + 1;
        if (length > m_section.end - packet || length < 4) {
            Fail(packet, "found a packet of " + std::to_string(length) + " bytes, the section has " +
                             std::to_string(m_section.end - packet) + " left");
        }
        m_nextPacket += length;
        if (type == static_cast<unsigned>(E57PacketType::Index) ||
            type == static_cast<unsigned>(E57PacketType::Ignored)) {
            continue;
        }
        if (type != static_cast<unsigned>(E57PacketType::Data)) {
            Fail(packet, "found a packet of type " + std::to_string(type) + ", expected 0, 1 or 2");
        }
        if (length < m_header.size()) {
            Fail(packet, "found a data packet of " + std::to_string(length) + " bytes, its header needs " +
                             std::to_string(m_header.size()));
        }
        const unsigned streams = in.U16("stream count");
        if (streams != m_section.streams) {
            Fail(packet + 4, "found " + std::to_string(streams) + " streams, expected " +
                                 std::to_string(m_section.streams));
        }
        uint64_t before = 0, own = 0, total = 0;
        for (size_t i = 0; i < m_section.streams; ++i) {
            const uint64_t bytes = in.U16("stream length");
            if (i < m_stream) before += bytes;
            if (i == m_stream) own = bytes;
            total += bytes;
        }
        if (total > length - m_header.size()) {
            Fail(packet + 6, "the streams are " + std::to_string(total) + " bytes, the packet holds " +
                                 std::to_string(length - m_header.size()));
        }
        if ((flags & kRestarted) != 0) m_bit = m_bits;
        if (own == 0) continue;
        // What is left of the value that the packet's end cut goes to the front.
        const uint64_t firstByte = m_bit / 8, left = m_bits / 8 - firstByte;
        std::copy_n(m_bytes.begin() + static_cast<ptrdiff_t>(firstByte), left, m_bytes.begin());
        m_bit -= firstByte * 8;
        m_bytes.resize(std::max<size_t>(m_bytes.size(), left + own + kUnpackMargin));
        m_pages.Read(packet + m_header.size() + before,
                     std::span(m_bytes).subspan(static_cast<size_t>(left), static_cast<size_t>(own)),
                     m_section.where);
        m_bits = (left + own) * 8;
        return;
    }
}

void E57FieldReader::Unpack(std::span<uint64_t> out) {
    while (!out.empty()) {
        while (Available() == 0)
            NextPacket();
        const auto count = static_cast<size_t>(std::min<uint64_t>(out.size(), Available()));
        UnpackBits(m_bytes.data(), m_bit, m_width, out.first(count));
        m_bit += count * m_width;
        m_done += count;
        out = out.subspan(count);
    }
}

// Whole numbers as distances from the minimum.
void E57FieldReader::ReadOffsets(std::span<uint64_t> out) {
    if (m_width == 0) {
        std::fill(out.begin(), out.end(), 0);
        m_done += out.size();
        return;
    }
    const uint64_t first = m_done;
    Unpack(out);
    const uint64_t span = m_field.Span();
    if (span == ~uint64_t{0} >> (64 - m_width)) return;
    uint64_t greatest = 0;
    for (const uint64_t value : out)
        greatest = std::max(greatest, value);
    if (greatest <= span) return;
    const auto bad = std::find_if(out.begin(), out.end(), [&](uint64_t value) { return value > span; });
    Fail(m_nextPacket, "record " + std::to_string(first + static_cast<uint64_t>(bad - out.begin())) +
                           " holds a number above the maximum of " + std::to_string(m_field.maximum));
}

void E57FieldReader::ReadWhole(std::span<int64_t> out) {
    std::array<uint64_t, kPiece> piece;
    const auto minimum = static_cast<uint64_t>(m_field.minimum);
    while (!out.empty()) {
        const std::span values(piece.data(), std::min(out.size(), kPiece));
        ReadOffsets(values);
        for (size_t i = 0; i < values.size(); ++i)
            out[i] = static_cast<int64_t>(values[i] + minimum);
        out = out.subspan(values.size());
    }
}

void E57FieldReader::ReadReal(std::span<double> out) {
    std::array<uint64_t, kPiece> piece;
    const auto minimum = static_cast<uint64_t>(m_field.minimum);
    while (!out.empty()) {
        const std::span values(piece.data(), std::min(out.size(), kPiece));
        switch (m_field.kind) {
            case E57Field::Kind::Single:
                Unpack(values);
                for (size_t i = 0; i < values.size(); ++i)
                    out[i] = static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(values[i])));
                break;
            case E57Field::Kind::Double:
                Unpack(values);
                for (size_t i = 0; i < values.size(); ++i)
                    out[i] = std::bit_cast<double>(values[i]);
                break;
            case E57Field::Kind::String:
                Fail(m_section.firstData, "found texts, expected numbers");
            default:
                ReadOffsets(values);
                for (size_t i = 0; i < values.size(); ++i)
                    out[i] = m_scaling.Value(static_cast<int64_t>(values[i] + minimum));
        }
        out = out.subspan(values.size());
    }
}

}  // namespace kxexchange
