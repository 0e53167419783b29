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
    Component7 = 7,       ///< 16 bytes; meaning not known
    Component8 = 8,       ///< 8 bytes; meaning not known
    Component9 = 9,       ///< 12 bytes; meaning not known
    Component10 = 10,     ///< size as the chunk has it; meaning not known
    Component11 = 11,     ///< size as the chunk has it; meaning not known
    Component12 = 12,     ///< size as the chunk has it; meaning not known
    Component13 = 13,     ///< 20 bytes; meaning not known
    Component14 = 14,     ///< 12 bytes; meaning not known
    Component15 = 15,     ///< 16 bytes; meaning not known
    Component16 = 16,     ///< 16 bytes; meaning not known
    Component17 = 17,     ///< 24 bytes; meaning not known
    Class = 18,           ///< u32 class identifier
    Segment = 19,         ///< u64 segment identifier
};

using ClassId = uint32_t;    ///< element of component 18
using SegmentId = uint64_t;  ///< element of component 19

/// Name of a component: the enumerator's, or "Component" and the number. Different for every number.
KXBASE_EXPORT std::string ComponentToString(ComponentType component);

/// Bytes of one element, 0 where the format does not fix it (10, 11, 12 and unnamed numbers).
KXBASE_EXPORT uint32_t ComponentElementBytes(ComponentType component);

}  // namespace kxbase
