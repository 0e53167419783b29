// SPDX-License-Identifier: MIT
#include "kxio/ComponentHeader.h"

#include "kxbase/ByteWriter.h"

namespace kxio {

ComponentHeader::ComponentHeader() = default;
ComponentHeader::ComponentHeader(const ComponentHeader&) = default;
ComponentHeader::ComponentHeader(ComponentHeader&&) noexcept = default;
ComponentHeader& ComponentHeader::operator=(const ComponentHeader&) = default;
ComponentHeader& ComponentHeader::operator=(ComponentHeader&&) noexcept = default;
ComponentHeader::~ComponentHeader() = default;

uint64_t ComponentHeader::GetMagic() const {
    return Magic;
}
uint32_t ComponentHeader::GetCurrentVersion() const {
    return CurrentVersion;
}
const char* ComponentHeader::GetRecordName() const {
    return "ComponentHeader";
}
uint32_t ComponentHeader::DataSize(uint32_t /*version*/) const {
    return PayloadSize;
}

void ComponentHeader::_Read(const unsigned char* payload) {
    RequireVersion(MinimumVersion, "Unsupported ComponentHeader version");
    kxbase::ByteReader in = PayloadReader(payload);
    in.RequireElements(PayloadSize, 1, "component");
    component = static_cast<kxbase::ComponentType>(in.U32("component"));
    codecIdentifier = in.U64("codec identifier");
    value = in.F64("value");
}

void ComponentHeader::_Write(unsigned char* payload, uint32_t size) {
    kxbase::ByteWriter out({payload, size});
    out.U32(component);
    out.U64(codecIdentifier);
    out.F64(value);
}

}  // namespace kxio
