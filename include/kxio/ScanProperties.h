// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <string>

#include "kxbase/ComponentType.h"
#include "kxbase/Date.h"
#include "kxbase/GridTopology.h"
#include "kxbase/RegistrationInformation.h"
#include "kxbase/UUID.h"
#include "kxio/Export.h"

namespace kxio {

/// Everything that is known about a scan without decoding its patches. A value type.
///
/// The scan header record carries the fields from `grid` to `descriptions`; the rest comes from component
/// records, tail records and the chunks (each field says which).
struct KXIO_EXPORT ScanProperties {
    /// An open 32-bit enumeration: the format names no values, every value is kept as it is.
    enum ScanFrameType : uint32_t { UnspecifiedFrame = 0 };

    /// Two inclinations of the scanner, in radians.
    struct TiltAngles {
        double first = 0.0;   ///< about the y axis; beyond pi / 2 the sweep has passed the zenith
        double second = 0.0;  ///< about the x axis
        bool operator==(const TiltAngles&) const = default;
    };

    /// Tilt of the scanner; it takes effect for the kinds 3 and 4 only.
    struct TiltInfo {
        uint32_t kind = 2;  ///< kept as it is; 3 and 4 are the two that take effect
        TiltAngles angles;  ///< see kxio/Tilt.h
        bool operator==(const TiltInfo&) const = default;
    };

    /// One value for each of the components 1, 2 and 3; from the component records or the chunks.
    std::array<double, 3> componentValue{0.1, 1e-06, 1e-06};
    /// Angles, size and patches.
    kxbase::GridTopology grid;
    /// Where the scan stands.
    kxbase::RegistrationInformation registration;
    /// Cells with a return, as the writer counted them.
    uint64_t validPointCount = 0;
    /// Points that are no surface have not been removed yet.
    bool speckleCorrectionNeeded = false;
    /// Point distance that the scan was thinned to; 0 when it was not.
    float spatialSamplingDistance = 0.0F;
    /// The scan is locked against changes of its points; for applications, the library does not enforce it.
    bool locked3D = false;
    /// Of unknown meaning, kept as it is.
    bool projectionMode = true;
    /// Of unknown meaning, kept as it is.
    ScanFrameType framingMode = UnspecifiedFrame;
    /// Two words of unknown meaning, kept as they are. The first one's default is the bits of float 1.0.
    std::array<uint32_t, 2> furtherWords{0x3f800000U, 0U};
    /// Three words of unknown meaning that version 260 added, kept as they are.
    std::array<uint32_t, 3> words260{1U, 0U, 0U};
    /// Inclination of the scanner.
    TiltInfo tilt;
    /// 1: the dates are not usable.
    uint32_t dateStatus = 1;
    kxbase::Date firstDate;     ///< the earlier of two moments of the scan's making
    kxbase::Date secondDate;    ///< the later one
    std::wstring scannerModel;  ///< as the scanner's maker writes it
    /// Three descriptive texts of unknown meaning, kept as they are.
    std::array<std::wstring, 3> descriptions;

    // From tail records.
    kxbase::UUID scanUUID;              ///< of this scan
    kxbase::UUID parentUUID;            ///< of the scan it was made from; zero without one
    std::list<std::wstring> messages;   ///< in the order of the file
    std::list<std::wstring> warnings;   ///< in the order of the file
    std::wstring scanningMode;          ///< stored, or inferred from the row step of a known scanner model
    std::wstring colorizationMode;      ///< how the scan was coloured
    std::list<kxbase::UUID> hqLinks;    ///< related high-quality scans
    std::list<kxbase::UUID> erLinks;    ///< related scans of the ER kind
    std::list<kxbase::UUID> hdrLinks;   ///< related high-dynamic-range scans
    double preregistrationValue = 0.0;  ///< of unknown meaning, kept as it is
    kxbase::UUID preregistrationUUID;   ///< of unknown meaning, kept as it is
    kxbase::RegistrationInformation preregistration;  ///< the registration before the final one

    /// Name of each component's codec, from the chunks. The keys are the components that the file holds.
    std::map<kxbase::ComponentType, std::string> componentCodecs;
    /// Writer revision of the main file header.
    uint32_t writerRevision = 0;

    bool operator==(const ScanProperties&) const = default;
};

}  // namespace kxio
