// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include "kxbase/Export.h"
#include "kxbase/Frame3D.h"
#include "kxmath/Frame.h"

namespace kxbase {

/// Where a scan stands: the map from the scanner's frame to the project's. Twelve doubles: X axis,
/// Y axis, Z axis, translation; the same order in memory and in a file. qsn writes translations in
/// metres. A value type.
class KXBASE_EXPORT RegistrationInformation {
public:
    static constexpr unsigned ValueCount = 12;  ///< doubles
    static constexpr unsigned ByteSize = 96;    ///< of these in a file

    /// The identity.
    RegistrationInformation();
    /// From rotation and translation.
    RegistrationInformation(const Frame3D& rotation, const kxmath::Vector3& translation);
    /// The translation is the origin of the frame.
    explicit RegistrationInformation(const kxmath::Frame& frame);

    kxmath::Frame ToFrame() const;           ///< as a map from the scanner's coordinates
    Frame3D GetRotation() const;             ///< the three axes
    kxmath::Vector3 GetTranslation() const;  ///< where the scanner stands
    /// The twelve values.
    const double* Values() const { return m_values.data(); }
    /// From twelve values in the order of the class.
    static RegistrationInformation FromValues(const double* twelve);

    bool operator==(const RegistrationInformation&) const = default;

private:
    std::array<double, ValueCount> m_values;
};

}  // namespace kxbase
