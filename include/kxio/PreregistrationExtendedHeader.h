// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/RegistrationInformation.h"
#include "kxbase/UUID.h"
#include "kxio/ExtendedHeader.h"

namespace kxio {

/// The registration that the scan had before it was registered for good.
///
/// Data, 120 bytes, little-endian:
///
///     @0   f64        a value of unknown meaning, kept as it is
///     @8   16 bytes   UUID, in the order of its text
///     @24  f64 x12    registration: X axis, Y axis, Z axis, translation
///
/// Data that is too short yields 0, the zero identifier and the identity.
/// One object serves one thread at a time.
class KXIO_EXPORT PreregistrationExtendedHeader : public ExtendedHeader {
public:
    static constexpr uint64_t Type = 0x940a8701d02f837bULL;
    static constexpr uint32_t ByteSize = 120;  ///< of the data

    /// Value 0, zero identifier, identity.
    PreregistrationExtendedHeader();
    /// From its three parts.
    PreregistrationExtendedHeader(double value, const kxbase::UUID& uuid,
                                  const kxbase::RegistrationInformation& registration);
    /// Decodes the data of a record just read, whatever its type tag.
    explicit PreregistrationExtendedHeader(const ExtendedHeader& record);

    void _Write(unsigned char* payload, uint32_t size) override;
    const char* GetRecordName() const override;

    /// The value of unknown meaning.
    double GetValue() const { return m_value; }
    /// The identifier.
    const kxbase::UUID& GetUUID() const { return m_uuid; }
    /// The earlier registration.
    const kxbase::RegistrationInformation& GetRegistration() const { return m_registration; }

protected:
    void DecodeData() override;

private:
    std::vector<unsigned char> Encoded() const;

    double m_value = 0.0;
    kxbase::UUID m_uuid;
    kxbase::RegistrationInformation m_registration;
};

}  // namespace kxio
