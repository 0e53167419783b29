// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/Frame3D.h"
#include "kxbase/Points.h"
#include "kxbase/RegistrationInformation.h"
#include "kxio/Export.h"
#include "kxio/ScanProperties.h"
#include "kxmath/Frame.h"

namespace kxio {

// A scanner that was not levelled records its tilt as two angles (radians). The tilt takes effect only when
// its kind is 3 or 4; for every other kind each function that takes a TiltInfo gives its input back (or the
// identity). All functions are pure: safe from any thread, no errors. Angles that are not finite give NaN.

/// The rotation of a tilt: about the fixed Y axis by minus the first angle, then about the frame's own X axis
/// by minus the second. A first angle beyond a right angle (|first| > pi/2, the sweep has passed the zenith)
/// turns both signs round. The kind is not asked.
KXIO_EXPORT kxbase::Frame3D Frame3DFromTiltAngles(const ScanProperties::TiltAngles& angles);

/// The registration with the tilt put in: registration after tilt, so that the tilt acts on the scanner's own
/// coordinates.
KXIO_EXPORT kxbase::RegistrationInformation ApplyTilt(const ScanProperties::TiltInfo& tilt,
                                                      const kxbase::RegistrationInformation& registration);

/// The registration with the tilt taken out; the exact inverse of `ApplyTilt`.
KXIO_EXPORT kxbase::RegistrationInformation RemoveTilt(const ScanProperties::TiltInfo& tilt,
                                                       const kxbase::RegistrationInformation& registration);

/// The tilt alone as a frame: from the scanner's tilted coordinates to levelled ones. Its origin is zero.
KXIO_EXPORT kxmath::Frame GetTiltTransform(const ScanProperties::TiltInfo& tilt);

/// Turns a direction and range. A point whose range is not above 0 keeps its place without a return: its
/// direction is tilted and its range becomes 0.
KXIO_EXPORT kxbase::tBasePolarPoint<float> ApplyTiltToPoint(const ScanProperties::TiltInfo& tilt,
                                                            const kxbase::tBasePolarPoint<float>& point);

/// Turns a point, in double precision, narrowed at the end.
KXIO_EXPORT kxbase::tBaseXYZPoint<float> ApplyTiltToPoint(const ScanProperties::TiltInfo& tilt,
                                                          const kxbase::tBaseXYZPoint<float>& point);

}  // namespace kxio
