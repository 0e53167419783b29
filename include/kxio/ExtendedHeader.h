// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "kxbase/IOHeader.h"
#include "kxio/Export.h"

namespace kxio {

/// A tail record of any kind; the type tag tells which. New kinds need no new file version.
///
/// Payload, 20 + L bytes, little-endian:
///
///     @0   u64  link         position of the next extended record; 0 in the last one and in appended ones
///     @8   u64  type tag     the kind
///     @16  u32  data length L
///     @20  L bytes, the kind's own
///
/// Readers walk the records back to back and never follow the link. A record of an unknown kind is passed
/// over. A reader reads this class, looks at `GetType()` and builds the kind from the record; a kind that is
/// built so, or read into, keeps what it understands of the data and is written as it would write itself.
/// One object serves one thread at a time.
class KXIO_EXPORT ExtendedHeader : public kxbase::IOHeader {
public:
    static constexpr uint64_t Magic = 0xa45065483053115fULL;
    static constexpr uint32_t CurrentVersion = 100;
    /// Payload bytes before the data.
    static constexpr uint32_t FixedSize = 20;

    /// A record of a kind without data.
    explicit ExtendedHeader(uint64_t type = 0);
    ExtendedHeader(const ExtendedHeader&);
    ExtendedHeader(ExtendedHeader&&) noexcept;
    ExtendedHeader& operator=(const ExtendedHeader&);
    ExtendedHeader& operator=(ExtendedHeader&&) noexcept;
    ~ExtendedHeader() override;

    uint64_t GetMagic() const override;
    /// \throws kxbase::KXWritingException "Record too large" above 2^32 - 17 bytes
    uint32_t DataSize(uint32_t version) const override;
    uint32_t GetCurrentVersion() const override;
    /// Takes link, type tag and data; any version is accepted.
    void _Read(const unsigned char* payload) override;
    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

    /// The type tag.
    uint64_t GetType() const { return m_type; }
    /// Position of the next extended record, as it is stored; nobody follows it.
    uint64_t GetLink() const { return m_link; }
    /// Replaces the link.
    void SetLink(uint64_t link) { m_link = link; }
    /// True when the link is 0.
    bool IsLastHeader() const { return m_link == 0; }

    /// The data: `GetDataBufferSize()` bytes.
    unsigned char* GetDataBuffer() { return m_data.data(); }
    /// The data, to be looked at.
    const unsigned char* GetDataBuffer() const { return m_data.data(); }
    /// The data length.
    uint32_t GetDataBufferSize() const { return static_cast<uint32_t>(m_data.size()); }
    /// Grows the data with zero bytes or cuts it; the data length follows.
    void SetDataBufferSize(uint32_t size);

protected:
    /// A kind made of a record just read: that record's link, version and data, this kind's type tag.
    ExtendedHeader(uint64_t type, const ExtendedHeader& record);
    /// The same, taking the record's data away.
    ExtendedHeader(uint64_t type, ExtendedHeader&& record);

    /// The data.
    std::span<const unsigned char> Data() const { return m_data; }
    /// Called when `_Read` has replaced the data: a kind decodes its own fields here.
    virtual void DecodeData();
    /// The data becomes `bytes`.
    void SetData(std::vector<unsigned char> bytes);
    /// Copies `bytes` into the data, whose length stays: what is left over becomes 0, what is too much is
    /// cut.
    void FillData(std::span<const unsigned char> bytes);

private:
    uint64_t m_link = 0;
    uint64_t m_type = 0;
    std::vector<unsigned char> m_data;
};

}  // namespace kxio
