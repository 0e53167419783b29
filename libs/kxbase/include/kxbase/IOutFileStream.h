// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "kxbase/Export.h"

namespace kxbase {

/// Random-access output of bytes: a file, memory, or a caller's own implementation.
///
/// Positions are 64-bit byte offsets from the start. A write that is not complete throws, so that no
/// short write goes unnoticed. One stream serves one thread at a time.
class KXBASE_EXPORT IOutFileStream {
public:
    virtual ~IOutFileStream();

    /// False before a successful opening and after `Close`.
    virtual bool IsOpen() const = 0;
    /// Moves to an absolute position; false, and no move, beyond what the file system can address.
    virtual bool Seek(uint64_t absolutePosition) = 0;
    /// Moves forward from the position; as `Seek`.
    virtual bool SeekForward(uint64_t bytes) = 0;
    /// Moves back; false, and no move, when that would lie before the start.
    virtual bool SeekBackward(uint64_t bytes) = 0;
    /// Moves to `offset` bytes before the end (0: the end itself); false when the stream is shorter.
    virtual bool SeekEnd(uint64_t offset) = 0;
    /// The position.
    virtual uint64_t Tell() const = 0;
    /// Writes all `bytes` bytes at the position and moves behind them; returns `bytes`.
    /// \throws KXWritingException "Cannot write file" when not everything could be written
    virtual uint64_t Write(const void* data, uint64_t bytes) = 0;
    /// Gives the underlying object back; writes then throw.
    /// \throws KXWritingException "Cannot write file" when closing reports that data was lost
    virtual void Close() = 0;

    /// A name for error messages (the path of a file); empty when there is none.
    virtual std::wstring GetName() const;
};

}  // namespace kxbase
