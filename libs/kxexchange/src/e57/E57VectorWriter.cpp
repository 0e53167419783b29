// SPDX-License-Identifier: MIT
#include "E57VectorWriter.h"

#include <algorithm>
#include <bit>

#include "E57Packets.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Exceptions.h"

namespace kxexchange {

namespace {

constexpr size_t kMaxEntries = 2048;
constexpr uint64_t kRecordStep = 64;
constexpr uint64_t kMaxRecords = 1 << 16;

// Records of these fields that fit a packet.
uint64_t RecordsPerPacket(const std::vector<unsigned>& widths) {
    const uint64_t header = kE57DataHeaderBytes + 2 * widths.size() + 3;  // with padding
    uint64_t bits = 0;
    for (const unsigned width : widths)
        bits += width;
    if (header >= kE57MaxPacketBytes || bits * kRecordStep / 8 > kE57MaxPacketBytes - header) {
        kxbase::ErrorContext context;
        context.detail = "the fields of a record need " + std::to_string(bits) + " bits";
        throw kxbase::KXBadInputException("Scan cannot be written", context);
    }
    if (bits == 0) return kMaxRecords;
    // No stream may be longer than its length field can say.
    const uint64_t widest = *std::max_element(widths.begin(), widths.end());
    const uint64_t fits = std::min((kE57MaxPacketBytes - header) * 8 / bits, uint64_t{65535} * 8 / widest);
    return std::min(kMaxRecords, fits / kRecordStep * kRecordStep);
}

}  // namespace

E57VectorWriter::E57VectorWriter(E57PageWriter& pages, std::vector<E57Field> fields)
    : m_pages(pages), m_fields(std::move(fields)), m_packers(m_fields.size()) {
    for (const E57Field& field : m_fields)
        m_widths.push_back(field.Bits());
    m_perPacket = RecordsPerPacket(m_widths);
    m_pages.Align(4);
    m_start = m_pages.Reserve(kE57SectionHeaderBytes);
}

void E57VectorWriter::PutReal(size_t field, double value) {
    if (m_fields[field].kind == E57Field::Kind::Single) {
        m_packers[field].Put(std::bit_cast<uint32_t>(static_cast<float>(value)), 32);
    } else {
        m_packers[field].Put(std::bit_cast<uint64_t>(value), 64);
    }
}

void E57VectorWriter::FlushPacket() {
    if (m_inPacket == 0) return;
    std::vector<unsigned char> packet(kE57DataHeaderBytes + 2 * m_fields.size());
    for (BitPacker& packer : m_packers) {
        const auto bytes = packer.Bytes();
        packet.insert(packet.end(), bytes.begin(), bytes.end());
    }
    packet.resize((packet.size() + 3) / 4 * 4);
    kxbase::ByteWriter out(packet);
    out.U8(static_cast<uint8_t>(E57PacketType::Data));
    out.U8(0);
    out.U16(static_cast<uint16_t>(packet.size() - 1));
    out.U16(static_cast<uint16_t>(m_fields.size()));
    for (BitPacker& packer : m_packers) {
        out.U16(static_cast<uint16_t>(packer.Bytes().size()));
        packer.Clear();
    }
    const uint64_t place = E57Physical(m_pages.Position());
    if (m_packets == 0) m_firstData = place;
    if (m_packets % m_entryStep == 0) {
        if (m_entries.size() == kMaxEntries) {
            // Twice as far apart from now on.
            for (size_t i = 0; i < kMaxEntries / 2; ++i)
                m_entries[i] = m_entries[2 * i];
            m_entries.resize(kMaxEntries / 2);
            m_entryStep *= 2;
        }
        if (m_packets % m_entryStep == 0) m_entries.push_back({m_records, place});
    }
    m_pages.Append(packet);
    m_records += m_inPacket;
    m_inPacket = 0;
    ++m_packets;
}

void E57VectorWriter::WriteIndex() {
    std::vector<unsigned char> packet(kE57IndexHeaderBytes + kE57IndexEntryBytes * m_entries.size());
    kxbase::ByteWriter out(packet);
    out.U8(static_cast<uint8_t>(E57PacketType::Index));
    out.U8(0);
    out.U16(static_cast<uint16_t>(packet.size() - 1));
    out.U16(static_cast<uint16_t>(m_entries.size()));
    out.U8(0);
    out.Zeros(9);
    for (const Entry& entry : m_entries) {
        out.U64(entry.record);
        out.U64(entry.offset);
    }
    m_pages.Append(packet);
}

E57Node E57VectorWriter::Finish() {
    FlushPacket();
    // Without records there are no packets, and both offsets stay 0.
    const uint64_t index = m_packets != 0 ? E57Physical(m_pages.Position()) : 0;
    if (m_packets != 0) WriteIndex();
    std::array<unsigned char, kE57SectionHeaderBytes> header{};
    kxbase::ByteWriter out(header);
    out.U8(kE57SectionId);
    out.Zeros(7);
    out.U64(m_pages.Position() - m_start);
    out.U64(m_firstData);
    out.U64(index);
    m_pages.Fill(m_start, header);

    E57Node node = E57Node::Structure("points");
    node.type = E57Node::Type::CompressedVector;
    node.fileOffset = E57Physical(m_start);
    node.count = m_records;
    node.Add(PrototypeOf(m_fields));
    node.Add(E57Node::Vector("codecs"));
    return node;
}

}  // namespace kxexchange
