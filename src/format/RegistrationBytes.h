// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include "kxbase/ByteReader.h"
#include "kxbase/ByteWriter.h"
#include "kxbase/RegistrationInformation.h"

namespace kxio {

// The 96 bytes of a registration, the same wherever one is stored: 12 x f64, X axis, Y axis, Z axis,
// translation.

inline kxbase::RegistrationInformation DecodeRegistration(kxbase::ByteReader& in) {
    std::array<double, kxbase::RegistrationInformation::ValueCount> values{};
    for (double& value : values)
        value = in.F64("registration");
    return kxbase::RegistrationInformation::FromValues(values.data());
}

inline void EncodeRegistration(const kxbase::RegistrationInformation& registration, kxbase::ByteWriter& out) {
    for (unsigned i = 0; i < kxbase::RegistrationInformation::ValueCount; ++i)
        out.F64(registration.Values()[i]);
}

}  // namespace kxio
