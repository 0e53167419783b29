// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "E57Bits.h"
#include "E57Field.h"
#include "E57PageWriter.h"

namespace kxexchange {

/// Writes the binary section of a CompressedVector.
///
/// Every data packet but the last holds the same number of records, a multiple of 64, so that each stream of
/// each packet begins and ends with a whole record. Behind them one index packet, of at most 2048 entries.
/// Memory: one packet.
class E57VectorWriter {
public:
    E57VectorWriter(E57PageWriter& pages, std::vector<E57Field> fields);

    /// The value of field `field` of the present record: each field once, in any order, then EndRecord.
    /// A whole number must lie inside the field's limits.
    void PutWhole(size_t field, int64_t value) {
        m_packers[field].Put(static_cast<uint64_t>(value) - static_cast<uint64_t>(m_fields[field].minimum),
                             m_widths[field]);
    }
    void PutReal(size_t field, double value);
    /// \throws kxbase::KXWritingException
    void EndRecord() {
        if (++m_inPacket == m_perPacket) FlushPacket();
    }
    /// Ends the section. \return its element: type CompressedVector, with prototype, place and count; the
    /// name is left to the caller
    E57Node Finish();
    uint64_t Records() const { return m_records + m_inPacket; }
    const std::vector<E57Field>& Fields() const { return m_fields; }

private:
    struct Entry {
        uint64_t record;
        uint64_t offset;  // physical
    };
    void FlushPacket();
    void WriteIndex();

    E57PageWriter& m_pages;
    std::vector<E57Field> m_fields;
    std::vector<unsigned> m_widths;
    std::vector<BitPacker> m_packers;
    uint64_t m_perPacket;
    uint64_t m_inPacket = 0;
    uint64_t m_records = 0;  // in written packets
    uint64_t m_packets = 0;
    uint64_t m_start;  // logical
    uint64_t m_firstData = 0;
    std::vector<Entry> m_entries;
    uint64_t m_entryStep = 1;  // packets per entry
};

}  // namespace kxexchange
