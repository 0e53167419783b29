// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "kxbase/IInFileStream.h"
#include "kxio/ExtendedHeader.h"

namespace kxio {

/// What an extended record says in front of its data.
struct ExtendedFrame {
    static constexpr uint32_t kBytes = kxbase::IOHeader::FrameSize + ExtendedHeader::FixedSize;

    uint64_t position = 0;  ///< of the record
    uint32_t version = 0;
    uint64_t link = 0;
    uint64_t type = 0;
    uint64_t dataBytes = 0;    ///< by its data length
    uint64_t recordBytes = 0;  ///< by its frame, frame included; may be more than frame, fields and data

    uint64_t DataPosition() const { return position + kBytes; }
    uint64_t End() const { return position + recordBytes; }
};

/// The record at the stream's position, told without reading its data, which may be much; nothing where no
/// whole extended record lies. The position stays. \throws what the stream throws
std::optional<ExtendedFrame> PeekExtended(kxbase::IInFileStream& in);

/// The same at any position, and the stream's is left anywhere.
std::optional<ExtendedFrame> PeekExtended(kxbase::IInFileStream& in, uint64_t position);

}  // namespace kxio
