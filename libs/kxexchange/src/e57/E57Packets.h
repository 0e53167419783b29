// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "E57Field.h"
#include "E57Pages.h"

namespace kxexchange {

// The binary section of a CompressedVector, little-endian, offsets and lengths of content:
//   @0  u8  section id          1
//   @1  7 bytes                 0
//   @8  u64 section length      with this header, bytes of content
//   @16 u64 data offset         physical, first data packet
//   @24 u64 index offset        physical, root index packet; 0 when there is none
// Behind it packets, each a multiple of 4 bytes, at most 65536:
//   data:    @0 u8 1, @1 u8 flags (bit 0: the compressor restarted), @2 u16 length - 1, @4 u16 streams,
//            @6 u16 length of each stream, then the streams' bytes, then padding
//   index:   @0 u8 0, @1 u8 flags, @2 u16 length - 1, @4 u16 entries, @6 u8 level, @7 9 bytes 0,
//            then per entry u64 first record, u64 physical offset of its packet
//   ignored: @0 u8 2, @1 u8 0, @2 u16 length - 1
constexpr uint64_t kE57SectionHeaderBytes = 32;
constexpr unsigned char kE57SectionId = 1;
constexpr uint64_t kE57MaxPacketBytes = 65536;
constexpr uint64_t kE57DataHeaderBytes = 6;
constexpr uint64_t kE57IndexHeaderBytes = 16;
constexpr uint64_t kE57IndexEntryBytes = 16;
enum class E57PacketType : unsigned char { Index = 0, Data = 1, Ignored = 2 };

/// Where the packets of a CompressedVector lie.
struct E57Section {
    std::string where;       ///< "points of scan 1", for messages
    uint64_t firstData = 0;  ///< logical
    uint64_t end = 0;        ///< logical
    uint64_t records = 0;
    size_t streams = 0;
};

/// Reads and checks the section header. A section that cannot hold so many records of these fields is
/// refused, so that the count can be relied on afterwards.
/// \throws SourceFormatException
E57Section ReadE57Section(E57PageReader& pages, const E57Node& vector, const std::vector<E57Field>& fields,
                          const std::string& where);

/// Reads the values of one field, record after record. Each field goes through the packets on its own, so
/// that it does not matter how far the streams of a packet have come, and memory is one stream of a packet.
class E57FieldReader {
public:
    /// `pages`, `section` and `field` must outlive the reader. `stream`: number of the field in the
    /// prototype.
    E57FieldReader(E57PageReader& pages, const E57Section& section, const E57Field& field, size_t stream);

    /// The next whole numbers of an Integer or ScaledInteger.
    /// \throws SourceFormatException  the packets end before, are malformed, or a number is above the
    ///                                field's maximum
    void ReadWhole(std::span<int64_t> out);
    /// The next values; whole numbers scaled.
    /// \throws SourceFormatException
    void ReadReal(std::span<double> out);
    /// Back to the first record.
    void Rewind();

private:
    uint64_t Available() const;
    void NextPacket();
    void Unpack(std::span<uint64_t> out);
    void ReadOffsets(std::span<uint64_t> out);
    [[noreturn]] void Fail(uint64_t logical, const std::string& detail) const;

    E57PageReader& m_pages;
    const E57Section& m_section;
    const E57Field& m_field;
    E57Scaling m_scaling;
    size_t m_stream;
    unsigned m_width;
    uint64_t m_nextPacket;
    uint64_t m_done = 0;                 // records
    std::vector<unsigned char> m_bytes;  // with kUnpackMargin more behind m_bits
    uint64_t m_bit = 0;                  // next bit of m_bytes
    uint64_t m_bits = 0;                 // bits of m_bytes that are there
    std::vector<unsigned char> m_header;
};

}  // namespace kxexchange
