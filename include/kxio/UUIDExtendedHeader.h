// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/UUID.h"
#include "kxio/ExtendedHeader.h"

namespace kxio {

/// The identifiers of the scan and of the scan that it was made from.
///
/// Data, 32 bytes:
///
///     @0   16 bytes  scan UUID, in the order of its text
///     @16  16 bytes  parent UUID
///
/// Data that is too short yields zero identifiers.
/// One object serves one thread at a time.
class KXIO_EXPORT UUIDExtendedHeader : public ExtendedHeader {
public:
    static constexpr uint64_t Type = 0x84968181ef2d2134ULL;
    static constexpr uint32_t ByteSize = 32;  ///< of the data

    /// Both identifiers zero.
    UUIDExtendedHeader();
    /// From both identifiers.
    UUIDExtendedHeader(const kxbase::UUID& scan, const kxbase::UUID& parent);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit UUIDExtendedHeader(const ExtendedHeader& record);

    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

    const kxbase::UUID& GetScanUUID() const { return m_scan; }      ///< of the scan
    const kxbase::UUID& GetParentUUID() const { return m_parent; }  ///< of its source; zero without one

protected:
    void DecodeData() override;

private:
    std::vector<unsigned char> Encoded() const;

    kxbase::UUID m_scan;
    kxbase::UUID m_parent;
};

}  // namespace kxio
