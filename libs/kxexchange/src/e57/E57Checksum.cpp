// SPDX-License-Identifier: MIT
#include "E57Checksum.h"

#include <boost/crc.hpp>

namespace kxexchange {

uint32_t Crc32c(std::span<const unsigned char> bytes) {
    boost::crc_optimal<32, 0x1edc6f41, 0xffffffff, 0xffffffff, true, true> crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

}  // namespace kxexchange
