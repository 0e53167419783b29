// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/ComponentType.h"
#include "kxbase/IOHeader.h"
#include "kxio/Export.h"

namespace kxio {

/// Frames one compressed patch of one component; `byteCount` bytes of chunk data follow the record.
///
/// Payload, 16 bytes, little-endian:
///
///     @0   u32  byte count of the chunk data behind the record
///     @4   u32  component
///     @8   u32  patch row       0xFFFFFFFF in a component's shared chunk of empty patches
///     @12  u32  patch column    0xFFFFFFFF likewise
///
/// The next record begins `HeaderSize() + byteCount` bytes behind this one.
/// One object serves one thread at a time.
class KXIO_EXPORT DataChunkHeader : public kxbase::IOHeader {
public:
    static constexpr uint64_t Magic = 0x982157cf2cfe1ec6ULL;
    static constexpr uint32_t CurrentVersion = 200;
    static constexpr uint32_t MinimumVersion = 200;
    static constexpr uint32_t PayloadSize = 16;
    /// Patch row and column of the shared empty chunk.
    static constexpr uint32_t SharedEmptyPosition = 0xffffffffU;

    uint32_t byteCount = 0;             ///< bytes of chunk data behind the record
    kxbase::ComponentType component{};  ///< what the chunk holds
    uint32_t patchRow = 0;              ///< of the grid, or `SharedEmptyPosition`
    uint32_t patchColumn = 0;           ///< of the grid, or `SharedEmptyPosition`

    /// All fields zero.
    DataChunkHeader();
    /// From its four fields.
    DataChunkHeader(uint32_t byteCount, kxbase::ComponentType component, uint32_t patchRow,
                    uint32_t patchColumn);
    DataChunkHeader(const DataChunkHeader&);
    DataChunkHeader(DataChunkHeader&&) noexcept;
    DataChunkHeader& operator=(const DataChunkHeader&);
    DataChunkHeader& operator=(DataChunkHeader&&) noexcept;
    ~DataChunkHeader() override;

    uint64_t GetMagic() const override;
    uint32_t DataSize(uint32_t version) const override;
    uint32_t GetCurrentVersion() const override;
    /// \throws kxbase::KXHeaderReadingException "Unsupported Chunk version" below 200
    void _Read(const unsigned char* payload) override;
    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

    /// True for the chunk that all empty patches of a component share; either mark is enough.
    bool IsSharedEmpty() const {
        return patchRow == SharedEmptyPosition || patchColumn == SharedEmptyPosition;
    }
};

}  // namespace kxio
