// SPDX-License-Identifier: MIT
#include "kxbase/RegistrationInformation.h"

#include <algorithm>

namespace kxbase {

static_assert(sizeof(RegistrationInformation) == RegistrationInformation::ByteSize);

RegistrationInformation::RegistrationInformation() : RegistrationInformation(kxmath::Frame()) {}
RegistrationInformation::RegistrationInformation(const Frame3D& r, const kxmath::Vector3& t)
    : m_values{r.xAxis.x, r.xAxis.y, r.xAxis.z, r.yAxis.x, r.yAxis.y, r.yAxis.z,
               r.zAxis.x, r.zAxis.y, r.zAxis.z, t.x,       t.y,       t.z} {}
RegistrationInformation::RegistrationInformation(const kxmath::Frame& frame)
    : RegistrationInformation(Frame3D(frame.GetXAxis(), frame.GetYAxis(), frame.GetZAxis()),
                              frame.GetOrigin()) {}

kxmath::Frame RegistrationInformation::ToFrame() const {
    const Frame3D rotation = GetRotation();
    return {rotation.xAxis, rotation.yAxis, rotation.zAxis, GetTranslation()};
}

Frame3D RegistrationInformation::GetRotation() const {
    const auto& v = m_values;
    return {{v[0], v[1], v[2]}, {v[3], v[4], v[5]}, {v[6], v[7], v[8]}};
}

kxmath::Vector3 RegistrationInformation::GetTranslation() const {
    return {m_values[9], m_values[10], m_values[11]};
}

RegistrationInformation RegistrationInformation::FromValues(const double* twelve) {
    RegistrationInformation info;
    std::copy(twelve, twelve + ValueCount, info.m_values.begin());
    return info;
}

}  // namespace kxbase
