// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "kxbase/IInFileStream.h"

namespace kxexchange {

/// The bytes of a file from front to back, unpacked where it is compressed.
class ByteFeed {
public:
    virtual ~ByteFeed() = default;
    /// Fills `out` with up to `bytes` bytes; fewer only at the end.
    virtual size_t Read(char* out, size_t bytes) = 0;
    /// Goes to an unpacked offset when that is possible without unpacking; otherwise back to the start.
    /// \return the offset reached
    virtual uint64_t GoTo(uint64_t offset) = 0;
    /// Stored bytes taken since the feed was made; grows over rewinds.
    virtual uint64_t BytesTaken() const = 0;
};

/// A feed over `stream`, which must outlive it: gzip data (any number of members) is unpacked, anything
/// else passed on.
/// \throws SourceFormatException  from Read: the compressed data is damaged; the offset is that of the file
/// \param ahead  unpack in a thread of its own, a few blocks ahead of the reader
std::unique_ptr<ByteFeed> MakeByteFeed(kxbase::IInFileStream& stream, const std::string& name,
                                       bool ahead = false);

}  // namespace kxexchange
