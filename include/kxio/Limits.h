// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kxio/Export.h"

namespace kxio {

/// What a file may ask of a program that opens it. No real scan comes near the defaults; who has one that
/// does raises the one that the error's detail names, as in "limit decodedBytes: 2147483648 found, at most
/// 1073741824 allowed", for that one opening.
///
/// Whatever the limits are, a size is also held against the bytes that are there: lifting them all lets a
/// file ask for what it can back, not for everything.
struct KXIO_EXPORT Limits {
    /// Cells of one patch or preview that is decoded: 2^28.
    uint64_t cells = uint64_t{1} << 28;
    /// Bytes of one record's payload: 1 GiB.
    uint64_t recordBytes = uint64_t{1} << 30;
    /// Bytes of all records that opening keeps as text: the scan header, and of the extended records
    /// messages, warnings, links, identifiers and modes: 1 MiB together.
    uint64_t textBytes = uint64_t{1} << 20;
    /// Components that tables and component records name: 1024.
    uint64_t components = 1024;
    /// Bytes that one chunk decodes to, of a patch, a preview or a histogram: 1 GiB.
    uint64_t decodedBytes = uint64_t{1} << 30;
    /// Decoded bytes per stored byte of a chunk: 32768, the most that a codec of this library makes.
    uint64_t expansionRatio = 32768;
    /// Pixels of the thumbnail: 2^26.
    uint64_t thumbnailPixels = uint64_t{1} << 26;
    /// False: hashes that a file carries are passed over, for a look at what a damaged file still holds.
    bool checkHashes = true;

    /// No limits but what the file can back; hashes are checked.
    static Limits None();

    /// Value by value.
    bool operator==(const Limits&) const = default;
};

}  // namespace kxio
