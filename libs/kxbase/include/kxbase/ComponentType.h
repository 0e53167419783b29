// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "kxbase/Export.h"

namespace kxbase {

/// Numbered data components of a scan. The numbers are the format's and are never reused; any other
/// 32-bit number is legal on disk too.
enum ComponentType : uint32_t {
    Range = 1,          ///< f32, the file's length unit (millimetres in files that qsn writes); 0 = no return
    VerticalAngle = 2,  ///< f32, radians from the zenith
    HorizontalAngle = 3,  ///< f32, radians
    Luminance8 = 4,       ///< u8 intensity
    Luminance16 = 5,      ///< u16 intensity
    Color = 6,            ///< red, green, blue, one byte each
    Component7 = 7,
    Component8 = 8,
    Component9 = 9,
    Component10 = 10,
    Component11 = 11,
    Component12 = 12,
    Component13 = 13,
    Component14 = 14,
    Component15 = 15,
    Component16 = 16,
    Component17 = 17,
    Class = 18,    ///< u32 class identifier
    Segment = 19,  ///< u64 segment identifier
};

using ClassId = uint32_t;
using SegmentId = uint64_t;

/// Name of a component: the enumerator's, or "Component" and the number. Different for every number.
KXBASE_EXPORT std::string ComponentToString(ComponentType component);

/// Bytes of one element, 0 where the format does not fix it (10, 11, 12 and unnamed numbers).
KXBASE_EXPORT uint32_t ComponentElementBytes(ComponentType component);

}  // namespace kxbase
