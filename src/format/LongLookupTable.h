// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxbase/Exceptions.h"
#include "kxio/LookupTableHeader.h"

namespace kxbase {
class IInFileStream;
}

namespace kxio {

/// The payload of a lookup table, read piece by piece, so that a long one is never in memory twice. The
/// components come into `table` as with `LookupTableHeader`.
/// \param payloadPosition  behind the frame
/// \param payloadBytes     as the frame has it; the stream has as many
/// \param problem          what does not fit, when it says no; `table` is then unchanged
bool ReadLongLookupTable(kxbase::IInFileStream& in, uint64_t payloadPosition, uint64_t payloadBytes,
                         uint64_t mostComponents, LookupTable& table, kxbase::ErrorContext& problem);

}  // namespace kxio
