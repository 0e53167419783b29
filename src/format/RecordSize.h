// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>

#include "kxbase/Exceptions.h"
#include "kxbase/IOHeader.h"

namespace kxio {

/// A payload size as the frame stores it: 32 bits, so that the whole record too has a 32-bit size.
/// \throws kxbase::KXWritingException "Record too large"
inline uint32_t CheckedPayloadSize(uint64_t bytes, const char* recordName) {
    constexpr uint64_t kMaximum = std::numeric_limits<uint32_t>::max() - kxbase::IOHeader::FrameSize;
    if (bytes > kMaximum) {
        throw kxbase::KXWritingException(
            "Record too large", {{},
                                 recordName,
                                 "payload size",
                                 {},
                                 std::to_string(bytes) + " bytes, at most " + std::to_string(kMaximum)});
    }
    return static_cast<uint32_t>(bytes);
}

}  // namespace kxio
