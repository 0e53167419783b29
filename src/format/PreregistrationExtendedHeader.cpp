// SPDX-License-Identifier: MIT
#include "kxio/PreregistrationExtendedHeader.h"

#include "format/RegistrationBytes.h"
#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"

namespace kxio {

PreregistrationExtendedHeader::PreregistrationExtendedHeader()
    : PreregistrationExtendedHeader(0.0, kxbase::UUID(), kxbase::RegistrationInformation()) {}
PreregistrationExtendedHeader::PreregistrationExtendedHeader(
    double value, const kxbase::UUID& uuid, const kxbase::RegistrationInformation& registration)
    : ExtendedHeader(Type), m_value(value), m_uuid(uuid), m_registration(registration) {
    SetData(Encoded());
}
PreregistrationExtendedHeader::PreregistrationExtendedHeader(const ExtendedHeader& record)
    : ExtendedHeader(Type, record) {
    PreregistrationExtendedHeader::DecodeData();
}

const char* PreregistrationExtendedHeader::GetRecordName() const {
    return "PreregistrationExtendedHeader";
}

void PreregistrationExtendedHeader::DecodeData() {
    m_value = 0.0;
    m_uuid = kxbase::UUID();
    m_registration = kxbase::RegistrationInformation();
    if (GetDataBufferSize() >= ByteSize) {
        kxbase::ByteReader in = PartReader(Data(), FixedSize);
        m_value = in.F64("value");
        m_uuid = kxbase::UUID::FromBytes(in.Take(16, "UUID").data());
        m_registration = DecodeRegistration(in);
    }
    SetData(Encoded());
}

void PreregistrationExtendedHeader::_Write(unsigned char* payload, uint32_t size) {
    FillData(Encoded());
    ExtendedHeader::_Write(payload, size);
}

std::vector<unsigned char> PreregistrationExtendedHeader::Encoded() const {
    std::vector<unsigned char> bytes(ByteSize);
    kxbase::ByteWriter out(bytes);
    out.F64(m_value);
    out.Bytes(m_uuid.ToBytes());
    EncodeRegistration(m_registration, out);
    return bytes;
}

}  // namespace kxio
