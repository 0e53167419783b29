// SPDX-License-Identifier: MIT
#include "format/Hash64.h"

#include <xxhash.h>

namespace kxio {

uint64_t Hash64(std::span<const unsigned char> bytes) {
    return XXH3_64bits(bytes.data(), bytes.size());
}

}  // namespace kxio
