// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "kxbase/IOHeader.h"
#include "kxio/ExtendedHeader.h"
#include "kxio/IntegrityExtendedHeader.h"
#include "kxio/ScanHeader.h"

namespace kxio {

/// A piece of a record, from the start of its frame.
struct HeaderPiece {
    uint32_t offset = 0;
    uint32_t byteCount = 0;
};

/// What of a histogram record is a header: frame, link, type tag and data length lead on to the next record.
inline constexpr uint32_t kHistogramHeadBytes = kxbase::IOHeader::FrameSize + ExtendedHeader::FixedSize;

/// Where the registration lies in a scan header as it was read or written; nothing (0 bytes) in those of old
/// versions.
HeaderPiece RegistrationPiece(const ScanHeader& header);
/// Where the speckle byte lies; nothing in those of old versions.
HeaderPiece SpecklePiece(const ScanHeader& header);

/// Lists the pieces of a record of `bytes` that lies at `position`, with their hashes. A scan header is cut
/// into what edits overwrite in place and the rest, so that an edit changes the hash of one piece only.
/// Thumbnails and histograms go to `others`, all else and the first 36 bytes of a histogram to `headers`.
void AddHeaderSpans(const kxbase::IOHeader& record, uint64_t position, std::span<const unsigned char> bytes,
                    std::vector<IntegritySpan>& headers, std::vector<IntegritySpan>& others);

}  // namespace kxio
