// SPDX-License-Identifier: MIT
#include "format/LongLookupTable.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "kxbase/ByteReader.h"
#include "kxbase/IInFileStream.h"
#include "kxbase/Sizes.h"

namespace kxio {

namespace {

constexpr uint64_t kComponentBytes = 8;
constexpr uint64_t kPieceEntries = 4096;

// The payload from front to back.
class Payload {
public:
    Payload(kxbase::IInFileStream& in, uint64_t position, uint64_t bytes)
        : m_in(in), m_position(position), m_left(bytes) {
        m_in.Seek(position);
    }

    // The next bytes. \throws ByteRangeException  there are fewer
    kxbase::ByteReader Next(uint64_t bytes, const char* field) {
        m_bytes.resize(std::min(bytes, m_left));
        m_bytes.resize(m_in.Read(m_bytes.data(), m_bytes.size()));
        kxbase::ByteReader reader(m_bytes, m_position, "LookupTableHeader");
        reader.RequireElements(bytes, 1, field);
        m_position += bytes;
        m_left -= bytes;
        return reader;
    }
    uint64_t Left() const { return m_left; }
    uint64_t Position() const { return m_position; }

private:
    kxbase::IInFileStream& m_in;
    uint64_t m_position;
    uint64_t m_left;
    std::vector<unsigned char> m_bytes;
};

[[noreturn]] void Refuse(uint64_t position, const char* field, std::string detail) {
    throw kxbase::ByteRangeException("Record ends too early",
                                     {{}, "LookupTableHeader", field, position, std::move(detail)});
}

std::vector<LookupEntry> ReadEntries(Payload& payload, uint32_t count) {
    std::vector<LookupEntry> entries(count);
    for (uint64_t first = 0; first < count; first += kPieceEntries) {
        const uint64_t end = std::min<uint64_t>(count, first + kPieceEntries);
        kxbase::ByteReader in =
            payload.Next(kxbase::SizeProduct(end - first, LookupTableHeader::EntryBytes), "entries");
        for (uint64_t i = first; i < end; ++i) {
            entries[i].position = in.U64("position");
            entries[i].byteCount = in.U32("byte count");
            entries[i].index = static_cast<uint32_t>(i);
        }
    }
    return entries;
}

}  // namespace

bool ReadLongLookupTable(kxbase::IInFileStream& in, uint64_t payloadPosition, uint64_t payloadBytes,
                         uint64_t mostComponents, LookupTable& table, kxbase::ErrorContext& problem) {
    try {
        Payload payload(in, payloadPosition, payloadBytes);
        LookupTable read;
        const uint32_t components = payload.Next(4, "number of components").U32("number of components");
        if (components > mostComponents) {
            Refuse(payload.Position(), "number of components",
                   kxbase::OverLimit("components", components, mostComponents));
        }
        for (uint32_t c = 0; c < components; ++c) {
            kxbase::ByteReader head = payload.Next(kComponentBytes, "component");
            const auto component = static_cast<kxbase::ComponentType>(head.U32("component"));
            const uint32_t count = head.U32("number of entries");
            if (kxbase::SizeProduct(count, LookupTableHeader::EntryBytes) > payload.Left()) {
                Refuse(payload.Position(), "number of entries",
                       std::to_string(count) + " entries of 12 bytes announced, " +
                           std::to_string(payload.Left()) + " bytes left");
            }
            read.erase(component);  // a component that is listed twice has its later entries
            read.emplace(component, ReadEntries(payload, count));
        }
        for (auto& [component, entries] : read)
            table.insert_or_assign(component, std::move(entries));
        return true;
    } catch (const kxbase::ByteRangeException& e) {
        problem = e.Context();
        return false;
    }
}

}  // namespace kxio
