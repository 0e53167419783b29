// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/IOHeader.h"
#include "kxio/Export.h"

namespace kxio {

/// The record at offset 0 of every file: it points to all the others.
///
/// Payload, 76 bytes, little-endian, the same for every version from 210 on:
///
///     @0   u64  scan header position
///     @8   u64  first component header position     0 in files written today
///     @16  u64  first chunk position                92
///     @24  u64  first extended header position      0: no tail records
///     @32  u64  chunk data end position             the scan header position
///     @40  u64  thumbnail header position
///     @48  u64  lookup table position
///     @56  u64  preview lookup table position       0: no previews
///     @64  u64  bounding information position       0: no limits
///     @72  u32  writer revision                     240
///
/// Positions count from the start of the file; 0 means that the record is absent.
/// A value type; one object serves one thread at a time.
class KXIO_EXPORT MainFileHeader : public kxbase::IOHeader {
public:
    static constexpr uint64_t Magic = 0xab797edb9b73de5eULL;
    static constexpr uint32_t CurrentVersion = 210;
    static constexpr uint32_t MinimumVersion = 210;
    static constexpr uint32_t PayloadSize = 76;
    /// Size of the whole record; the first chunk lies right behind it.
    static constexpr uint32_t RecordSize = FrameSize + PayloadSize;
    /// The writer revision that this library stamps. Previews of files below it have sampling ratios
    /// that cannot be trusted.
    static constexpr uint32_t CurrentWriterRevision = 240;

    uint64_t scanHeaderPosition = 0;            ///< of the `ScanHeader`
    uint64_t firstComponentHeaderPosition = 0;  ///< of the first `ComponentHeader`
    uint64_t firstChunkPosition = 0;            ///< of the first `DataChunkHeader`
    uint64_t firstExtendedHeaderPosition = 0;   ///< of the first `ExtendedHeader`
    uint64_t chunkDataEndPosition = 0;          ///< behind the last chunk
    uint64_t thumbnailHeaderPosition = 0;       ///< of the `ThumbnailHeader`
    uint64_t lookupTablePosition = 0;           ///< of the `LookupTableHeader` of the patches
    uint64_t previewLookupTablePosition = 0;    ///< of the `LookupTableHeader` of the previews
    uint64_t boundingInformationPosition = 0;   ///< of the `MinMaxHeader`
    uint32_t writerRevision = 0;                ///< of the program that wrote the file

    /// All positions and the writer revision 0.
    MainFileHeader();
    MainFileHeader(const MainFileHeader&);
    MainFileHeader(MainFileHeader&&) noexcept;
    MainFileHeader& operator=(const MainFileHeader&);
    MainFileHeader& operator=(MainFileHeader&&) noexcept;
    ~MainFileHeader() override;

    uint64_t GetMagic() const override;
    uint32_t DataSize(uint32_t version) const override;
    uint32_t GetCurrentVersion() const override;
    /// \throws kxbase::KXHeaderReadingException "Unsupported MainFileHeader version" below 210
    void _Read(const unsigned char* payload) override;
    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

    /// Decodes the version-210 payload without looking at the version.
    /// \param payload  at least 76 bytes
    void Read210(const unsigned char* payload);

private:
    void Decode210(kxbase::ByteReader& in);
};

}  // namespace kxio
