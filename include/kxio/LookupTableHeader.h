// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "kxbase/ComponentType.h"
#include "kxbase/IOHeader.h"
#include "kxio/Export.h"

namespace kxio {

/// Where one chunk lies. A position or byte count of 0 marks a patch that is not in the file.
struct LookupEntry {
    uint64_t position = 0;   ///< of the chunk's bytes, right behind their chunk record
    uint32_t byteCount = 0;  ///< of the chunk's bytes
    uint32_t index = 0;      ///< linear patch index; not stored, the entry's place tells it
    bool operator==(const LookupEntry&) const = default;
};

/// Per component the entries of its patches, in the order of the linear patch index. In a table of
/// previews each component has one entry, with index 0.
using LookupTable = std::map<kxbase::ComponentType, std::vector<LookupEntry>>;

/// Maps every component's patches (or previews) to their chunks.
///
/// Payload, little-endian:
///
///     @0   u32  number of components C
///     then C times, components ascending:
///          u32  component
///          u32  number of entries N
///          then N times:
///               u64  position of the chunk's bytes
///               u32  byte count
///
/// The record works on a table that it does not own and that must outlive its reads and writes. Without one
/// its payload is empty on writing and passed over on reading.
/// One object serves one thread at a time.
class KXIO_EXPORT LookupTableHeader : public kxbase::IOHeader {
public:
    static constexpr uint64_t Magic = 0xa76e52dba1ebd435ULL;
    static constexpr uint32_t CurrentVersion = 200;
    static constexpr uint32_t MinimumVersion = 200;
    static constexpr uint32_t EntryBytes = 12;  ///< of one entry in the file
    /// The largest entry count of one component that the frame's 32-bit payload size can express.
    static constexpr uint32_t MaximumEntryCount = 357913940;

    /// Without a table.
    LookupTableHeader();
    /// \param table  borrowed; may be null
    explicit LookupTableHeader(LookupTable* table);
    LookupTableHeader(const LookupTableHeader&);
    LookupTableHeader(LookupTableHeader&&) noexcept;
    LookupTableHeader& operator=(const LookupTableHeader&);
    LookupTableHeader& operator=(LookupTableHeader&&) noexcept;
    ~LookupTableHeader() override;

    /// The table it works on; null without one.
    LookupTable* GetTable() const { return m_table; }
    /// Another table to work on, or null.
    void SetTable(LookupTable* table) { m_table = table; }

    /// The next reads refuse a table of more components.
    /// \param limit  its name, for `GetReadProblem()`; a literal
    void LimitComponents(uint64_t most, const char* limit) {
        m_mostComponents = most;
        m_limitName = limit;
    }

    uint64_t GetMagic() const override;
    /// \throws kxbase::KXWritingException "Record too large" above 2^32 - 17 bytes
    uint32_t DataSize(uint32_t version) const override;
    uint32_t GetCurrentVersion() const override;
    /// Puts each component of the record into the table; entry i gets index i. A component that is listed
    /// twice has its later entries. Components of the table that the record does not list stay.
    /// \throws kxbase::KXHeaderReadingException "Unsupported LookupTableHeader version" below 200
    void _Read(const unsigned char* payload) override;
    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

private:
    LookupTable* m_table = nullptr;
    uint64_t m_mostComponents = UINT64_MAX;
    const char* m_limitName = "";
};

}  // namespace kxio
