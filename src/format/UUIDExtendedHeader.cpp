// SPDX-License-Identifier: MIT
#include "kxio/UUIDExtendedHeader.h"

#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"

namespace kxio {

UUIDExtendedHeader::UUIDExtendedHeader() : UUIDExtendedHeader(kxbase::UUID(), kxbase::UUID()) {}
UUIDExtendedHeader::UUIDExtendedHeader(const kxbase::UUID& scan, const kxbase::UUID& parent)
    : ExtendedHeader(Type), m_scan(scan), m_parent(parent) {
    SetData(Encoded());
}
UUIDExtendedHeader::UUIDExtendedHeader(const ExtendedHeader& record) : ExtendedHeader(Type, record) {
    UUIDExtendedHeader::DecodeData();
}

const char* UUIDExtendedHeader::GetRecordName() const {
    return "UUIDExtendedHeader";
}

void UUIDExtendedHeader::DecodeData() {
    m_scan = m_parent = kxbase::UUID();
    if (GetDataBufferSize() >= ByteSize) {
        kxbase::ByteReader in = PartReader(Data(), FixedSize);
        m_scan = kxbase::UUID::FromBytes(in.Take(16, "scan UUID").data());
        m_parent = kxbase::UUID::FromBytes(in.Take(16, "parent UUID").data());
    }
    SetData(Encoded());
}

void UUIDExtendedHeader::_Write(unsigned char* payload, uint32_t size) {
    FillData(Encoded());
    ExtendedHeader::_Write(payload, size);
}

std::vector<unsigned char> UUIDExtendedHeader::Encoded() const {
    std::vector<unsigned char> bytes(ByteSize);
    kxbase::ByteWriter out(bytes);
    out.Bytes(m_scan.ToBytes());
    out.Bytes(m_parent.ToBytes());
    return bytes;
}

}  // namespace kxio
