// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "kxcodecs/QKXChunkCodec.h"
#include "kxexchange/ImportScan.h"

namespace kxexchange {

/// The codec that `codec` names.
/// \param compressionLevel  see ImportOptions
/// \throws kxbase::KXBadInputException  no such codec
KXEXCHANGE_EXPORT std::unique_ptr<kxcodecs::QKXChunkCodec> MakeCodec(Codec codec, int compressionLevel = -1);

}  // namespace kxexchange
