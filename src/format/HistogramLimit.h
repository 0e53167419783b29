// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>

#include "kxcodecs/QKXChunkCodec.h"

#include "kxbase/Sizes.h"
namespace kxio {

/// What a histogram may unpack to. The usual limit of a chunk is too low for scans of some hundred million
/// cells; what is above it must be made credible by bytes that are there. Counts pack by a factor of ten or
/// so, hardly by 64.
inline uint64_t MaxDecodedHistogramBytes(uint64_t chunkBytes) {
    constexpr uint64_t kLargestFactor = 64;
    return std::max(kxcodecs::QKXChunkCodec::kDefaultMaxDecodedBytes,
                    kxbase::SizeProduct(kLargestFactor, chunkBytes));
}

}  // namespace kxio
