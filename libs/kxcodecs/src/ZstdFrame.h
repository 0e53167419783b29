// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kxcodecs {

/// How hard a frame is packed.
struct ZstdEffort {
    int level = 3;              ///< 1 to 19
    bool literalsOnly = false;  ///< entropy coding with next to no search: for bytes without repeats
    bool checksum = false;      ///< four bytes with which every damage is noticed
};

/// Appends one zstd frame (RFC 8878) of `bytes` to `out`.
/// \throws kxbase::KXException, std::bad_alloc
void AppendZstdFrame(std::span<const unsigned char> bytes, const ZstdEffort& effort,
                     std::vector<unsigned char>& out);

/// Unpacks frames into exactly `out`; false when they are damaged, of another size, or something follows.
/// Needs no memory that depends on the input, but a thread's first call asks for some.
/// \throws std::bad_alloc
bool UnpackZstdFrame(std::span<const unsigned char> frame, std::span<unsigned char> out);

/// No frame unpacks to more: a block of 4 bytes repeats one byte 128 KiB long.
constexpr uint64_t kMostZstdExpansion = 32768;

}  // namespace kxcodecs
