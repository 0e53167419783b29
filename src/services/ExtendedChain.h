// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <tuple>

#include "kxio/ExtendedHeader.h"
#include "kxio/MainFileHeader.h"

namespace kxbase {
class IInFileStream;
}

namespace kxio {

/// The frame at `position`; nothing where none lies, or the file ends in it. \throws what the stream throws
std::optional<kxbase::RecordFrame> FrameAt(kxbase::IInFileStream& in, uint64_t position);

/// What tells an extended record from others but its place and its link: kind, length and hash of its data.
using ExtendedContent = std::tuple<uint64_t, uint32_t, uint64_t>;

ExtendedContent ContentOf(const ExtendedHeader& record);

/// What an interrupted edit left at the end of a file.
struct InterruptedTail {
    uint64_t position = 0;
    /// Nothing but such an edit leaves it so; otherwise the file may also have been cut in its last record.
    bool isCertain = false;
};

/// Behind the last extended record lies the start of a record, with any of its bytes still zero, and nothing
/// leads to it or behind it. What follows there is nobody else's: each whole extended record is one of hashes
/// or a copy of one in the chain, of which sectors may be missing. Nothing where there are no such bytes.
/// \throws what the stream throws
std::optional<InterruptedTail> FindInterruptedTail(kxbase::IInFileStream& in,
                                                   const MainFileHeader& mainHeader);

}  // namespace kxio
