// SPDX-License-Identifier: MIT
#include "kxio/MainFileHeader.h"

#include "kxbase/ByteWriter.h"

namespace kxio {

MainFileHeader::MainFileHeader() = default;
MainFileHeader::MainFileHeader(const MainFileHeader&) = default;
MainFileHeader::MainFileHeader(MainFileHeader&&) noexcept = default;
MainFileHeader& MainFileHeader::operator=(const MainFileHeader&) = default;
MainFileHeader& MainFileHeader::operator=(MainFileHeader&&) noexcept = default;
MainFileHeader::~MainFileHeader() = default;

uint64_t MainFileHeader::GetMagic() const {
    return Magic;
}
uint32_t MainFileHeader::GetCurrentVersion() const {
    return CurrentVersion;
}
const char* MainFileHeader::GetRecordName() const {
    return "MainFileHeader";
}
uint32_t MainFileHeader::DataSize(uint32_t /*version*/) const {
    return PayloadSize;
}

void MainFileHeader::_Read(const unsigned char* payload) {
    RequireVersion(MinimumVersion, "Unsupported MainFileHeader version");
    kxbase::ByteReader in = PayloadReader(payload);
    in.RequireElements(PayloadSize, 1, "positions");
    Decode210(in);
}

void MainFileHeader::Read210(const unsigned char* payload) {
    kxbase::ByteReader in({payload, PayloadSize}, 0, GetRecordName());
    Decode210(in);
}

void MainFileHeader::Decode210(kxbase::ByteReader& in) {
    scanHeaderPosition = in.U64("scan header position");
    firstComponentHeaderPosition = in.U64("first component header position");
    firstChunkPosition = in.U64("first chunk position");
    firstExtendedHeaderPosition = in.U64("first extended header position");
    chunkDataEndPosition = in.U64("chunk data end position");
    thumbnailHeaderPosition = in.U64("thumbnail header position");
    lookupTablePosition = in.U64("lookup table position");
    previewLookupTablePosition = in.U64("preview lookup table position");
    boundingInformationPosition = in.U64("bounding information position");
    writerRevision = in.U32("writer revision");
}

void MainFileHeader::_Write(unsigned char* payload, uint32_t size) {
    kxbase::ByteWriter out({payload, size});
    out.U64(scanHeaderPosition);
    out.U64(firstComponentHeaderPosition);
    out.U64(firstChunkPosition);
    out.U64(firstExtendedHeaderPosition);
    out.U64(chunkDataEndPosition);
    out.U64(thumbnailHeaderPosition);
    out.U64(lookupTablePosition);
    out.U64(previewLookupTablePosition);
    out.U64(boundingInformationPosition);
    out.U32(writerRevision);
}

}  // namespace kxio
