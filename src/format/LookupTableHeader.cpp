// SPDX-License-Identifier: MIT
#include "kxio/LookupTableHeader.h"

#include <utility>

#include "format/RecordSize.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/Sizes.h"

namespace kxio {

namespace {

constexpr uint64_t kEntrySize = LookupTableHeader::EntryBytes;
constexpr uint64_t kComponentSize = 8;

}  // namespace

LookupTableHeader::LookupTableHeader() = default;
LookupTableHeader::LookupTableHeader(LookupTable* table) : m_table(table) {}
LookupTableHeader::LookupTableHeader(const LookupTableHeader&) = default;
LookupTableHeader::LookupTableHeader(LookupTableHeader&&) noexcept = default;
LookupTableHeader& LookupTableHeader::operator=(const LookupTableHeader&) = default;
LookupTableHeader& LookupTableHeader::operator=(LookupTableHeader&&) noexcept = default;
LookupTableHeader::~LookupTableHeader() = default;

uint64_t LookupTableHeader::GetMagic() const {
    return Magic;
}
uint32_t LookupTableHeader::GetCurrentVersion() const {
    return CurrentVersion;
}
const char* LookupTableHeader::GetRecordName() const {
    return "LookupTableHeader";
}
uint32_t LookupTableHeader::DataSize(uint32_t /*version*/) const {
    if (m_table == nullptr) return 0;
    uint64_t size = 4;
    for (const auto& [component, entries] : *m_table)
        size = kxbase::SizeSum(size, kComponentSize, kxbase::SizeProduct(kEntrySize, entries.size()));
    return CheckedPayloadSize(size, GetRecordName());
}

void LookupTableHeader::_Read(const unsigned char* payload) {
    RequireVersion(MinimumVersion, "Unsupported LookupTableHeader version");
    kxbase::ByteReader in = PayloadReader(payload);
    LookupTable table;
    const uint32_t componentCount = in.U32("number of components");
    in.RequireElements(componentCount, kComponentSize, "number of components");
    if (componentCount > m_mostComponents) {
        throw kxbase::ByteRangeException("Record ends too early",
                                         {{},
                                          GetRecordName(),
                                          "number of components",
                                          {},
                                          kxbase::OverLimit(m_limitName, componentCount, m_mostComponents)});
    }
    for (uint32_t c = 0; c < componentCount; ++c) {
        const auto component = static_cast<kxbase::ComponentType>(in.U32("component"));
        const uint32_t entryCount = in.U32("number of entries");
        in.RequireElements(entryCount, kEntrySize, "number of entries");
        if (m_table == nullptr) {
            in.Skip(kxbase::SizeProduct(kEntrySize, entryCount), "entries");
            continue;
        }
        std::vector<LookupEntry> entries(entryCount);
        for (uint32_t i = 0; i < entryCount; ++i) {
            entries[i].position = in.U64("position");
            entries[i].byteCount = in.U32("byte count");
            entries[i].index = i;
        }
        table.insert_or_assign(component, std::move(entries));
    }
    if (m_table == nullptr) return;
    for (auto& [component, entries] : table)
        m_table->insert_or_assign(component, std::move(entries));
}

void LookupTableHeader::_Write(unsigned char* payload, uint32_t size) {
    if (m_table == nullptr) return;
    kxbase::ByteWriter out({payload, size});
    out.U32(static_cast<uint32_t>(m_table->size()));
    for (const auto& [component, entries] : *m_table) {
        out.U32(component);
        out.U32(static_cast<uint32_t>(entries.size()));
        for (const LookupEntry& entry : entries) {
            out.U64(entry.position);
            out.U32(entry.byteCount);
        }
    }
}

}  // namespace kxio
