// SPDX-License-Identifier: MIT
#include "kxio/Tilt.h"

#include <cmath>

namespace kxio {

namespace {

constexpr double kRightAngle = 1.5707963267948966;

bool TakesEffect(const ScanProperties::TiltInfo& tilt) {
    return tilt.kind == 3 || tilt.kind == 4;
}

/// +1 or -1: the sign of both angles when the tilt is taken out; putting it in uses the opposite.
double RemovalSign(const ScanProperties::TiltAngles& angles) {
    return std::fabs(angles.first) > kRightAngle ? -1.0 : 1.0;
}

}  // namespace

kxbase::Frame3D Frame3DFromTiltAngles(const ScanProperties::TiltAngles& angles) {
    const double sign = -RemovalSign(angles);
    const kxmath::Vector3 origin;
    kxmath::Frame frame;
    frame.Rotate(origin, {0, 1, 0}, sign * angles.first);
    frame.Rotate(origin, frame.GetXAxis(), sign * angles.second);
    return {frame.GetXAxis(), frame.GetYAxis(), frame.GetZAxis()};
}

kxbase::RegistrationInformation ApplyTilt(const ScanProperties::TiltInfo& tilt,
                                          const kxbase::RegistrationInformation& registration) {
    if (!TakesEffect(tilt)) return registration;
    const kxbase::RegistrationInformation turn(Frame3DFromTiltAngles(tilt.angles), kxmath::Vector3{});
    return kxbase::RegistrationInformation(registration.ToFrame().PropagateFrame(turn.ToFrame()));
}

kxbase::RegistrationInformation RemoveTilt(const ScanProperties::TiltInfo& tilt,
                                           const kxbase::RegistrationInformation& registration) {
    if (!TakesEffect(tilt)) return registration;
    const double sign = RemovalSign(tilt.angles);
    kxmath::Frame frame = registration.ToFrame();
    // X before Y, about the frame's own axes: the order of the application turned round.
    frame.Rotate(frame.GetOrigin(), frame.GetXAxis(), sign * tilt.angles.second);
    frame.Rotate(frame.GetOrigin(), frame.GetYAxis(), sign * tilt.angles.first);
    return kxbase::RegistrationInformation(frame);
}

kxmath::Frame GetTiltTransform(const ScanProperties::TiltInfo& tilt) {
    if (!TakesEffect(tilt)) return {};
    return ApplyTilt(tilt, kxbase::RegistrationInformation()).ToFrame();
}

kxbase::tBaseXYZPoint<float> ApplyTiltToPoint(const ScanProperties::TiltInfo& tilt,
                                              const kxbase::tBaseXYZPoint<float>& point) {
    if (!TakesEffect(tilt)) return point;
    const auto m = GetTiltTransform(tilt).GetMatrix();
    const double x = static_cast<double>(point.x);
    const double y = static_cast<double>(point.y);
    const double z = static_cast<double>(point.z);
    return {static_cast<float>(m[0][0] * x + m[0][1] * y + m[0][2] * z),
            static_cast<float>(m[1][0] * x + m[1][1] * y + m[1][2] * z),
            static_cast<float>(m[2][0] * x + m[2][1] * y + m[2][2] * z)};
}

kxbase::tBasePolarPoint<float> ApplyTiltToPoint(const ScanProperties::TiltInfo& tilt,
                                                const kxbase::tBasePolarPoint<float>& point) {
    if (!TakesEffect(tilt)) return point;
    const bool hasRange = point.range > 0;
    const kxbase::tBasePolarPoint<float> ray(hasRange ? point.range : 1.0f, point.horizontal, point.vertical);
    kxbase::tBasePolarPoint<float> result(ApplyTiltToPoint(tilt, kxbase::tBaseXYZPoint<float>(ray)));
    if (!hasRange) result.range = 0;
    return result;
}

}  // namespace kxio
