// SPDX-License-Identifier: MIT
#include "kxio/ExtendedHeader.h"

#include <algorithm>
#include <utility>

#include "format/RecordSize.h"
#include "kxbase/ByteWriter.h"

namespace kxio {

ExtendedHeader::ExtendedHeader(uint64_t type) : m_type(type) {}
ExtendedHeader::ExtendedHeader(uint64_t type, const ExtendedHeader& record) : ExtendedHeader(record) {
    m_type = type;
}
ExtendedHeader::ExtendedHeader(uint64_t type, ExtendedHeader&& record) : ExtendedHeader(std::move(record)) {
    m_type = type;
}
ExtendedHeader::ExtendedHeader(const ExtendedHeader&) = default;
ExtendedHeader::ExtendedHeader(ExtendedHeader&&) noexcept = default;
ExtendedHeader& ExtendedHeader::operator=(const ExtendedHeader&) = default;
ExtendedHeader& ExtendedHeader::operator=(ExtendedHeader&&) noexcept = default;
ExtendedHeader::~ExtendedHeader() = default;

uint64_t ExtendedHeader::GetMagic() const {
    return Magic;
}
uint32_t ExtendedHeader::GetCurrentVersion() const {
    return CurrentVersion;
}
const char* ExtendedHeader::GetRecordName() const {
    return "ExtendedHeader";
}
uint32_t ExtendedHeader::DataSize(uint32_t /*version*/) const {
    return CheckedPayloadSize(uint64_t{FixedSize} + m_data.size(), GetRecordName());
}

void ExtendedHeader::_Read(const unsigned char* payload) {
    kxbase::ByteReader in = PayloadReader(payload);
    const uint64_t link = in.U64("link");
    const uint64_t type = in.U64("type tag");
    const uint32_t length = in.U32("data length");
    const auto data = in.Take(length, "data");
    m_data.assign(data.begin(), data.end());
    m_link = link;
    m_type = type;
    DecodeData();
}

void ExtendedHeader::_Write(unsigned char* payload, uint32_t size) {
    kxbase::ByteWriter out({payload, size});
    out.U64(m_link);
    out.U64(m_type);
    out.U32(GetDataBufferSize());
    out.Bytes(m_data);
}

void ExtendedHeader::SetDataBufferSize(uint32_t size) {
    m_data.resize(size);
}

void ExtendedHeader::DecodeData() {}

void ExtendedHeader::SetData(std::vector<unsigned char> bytes) {
    // Refused here, so that the length always fits its 32 bits.
    CheckedPayloadSize(uint64_t{FixedSize} + bytes.size(), GetRecordName());
    m_data = std::move(bytes);
}

void ExtendedHeader::FillData(std::span<const unsigned char> bytes) {
    const size_t count = std::min(bytes.size(), m_data.size());
    std::copy_n(bytes.begin(), count, m_data.begin());
    std::fill(m_data.begin() + static_cast<std::ptrdiff_t>(count), m_data.end(),
              static_cast<unsigned char>(0));
}

}  // namespace kxio
