// SPDX-License-Identifier: MIT
#include "kxio/DataChunkHeader.h"

#include "kxbase/ByteWriter.h"

namespace kxio {

DataChunkHeader::DataChunkHeader() = default;
DataChunkHeader::DataChunkHeader(uint32_t byteCountIn, kxbase::ComponentType componentIn, uint32_t patchRowIn,
                                 uint32_t patchColumnIn)
    : byteCount(byteCountIn), component(componentIn), patchRow(patchRowIn), patchColumn(patchColumnIn) {}
DataChunkHeader::DataChunkHeader(const DataChunkHeader&) = default;
DataChunkHeader::DataChunkHeader(DataChunkHeader&&) noexcept = default;
DataChunkHeader& DataChunkHeader::operator=(const DataChunkHeader&) = default;
DataChunkHeader& DataChunkHeader::operator=(DataChunkHeader&&) noexcept = default;
DataChunkHeader::~DataChunkHeader() = default;

uint64_t DataChunkHeader::GetMagic() const {
    return Magic;
}
uint32_t DataChunkHeader::GetCurrentVersion() const {
    return CurrentVersion;
}
const char* DataChunkHeader::GetRecordName() const {
    return "DataChunkHeader";
}
uint32_t DataChunkHeader::DataSize(uint32_t /*version*/) const {
    return PayloadSize;
}

void DataChunkHeader::_Read(const unsigned char* payload) {
    RequireVersion(MinimumVersion, "Unsupported Chunk version");
    kxbase::ByteReader in = PayloadReader(payload);
    in.RequireElements(PayloadSize, 1, "byte count");
    byteCount = in.U32("byte count");
    component = static_cast<kxbase::ComponentType>(in.U32("component"));
    patchRow = in.U32("patch row");
    patchColumn = in.U32("patch column");
}

void DataChunkHeader::_Write(unsigned char* payload, uint32_t size) {
    kxbase::ByteWriter out({payload, size});
    out.U32(byteCount);
    out.U32(component);
    out.U32(patchRow);
    out.U32(patchColumn);
}

}  // namespace kxio
