// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "kxbase/Export.h"

namespace kxbase {

/// Random-access input of bytes: a file, memory, or a caller's own implementation.
///
/// Positions are 64-bit byte offsets from the start. No operation throws; failures are answers.
/// One stream serves one thread at a time.
class KXBASE_EXPORT IInFileStream {
public:
    virtual ~IInFileStream();

    /// False before a successful opening and after `Close`.
    virtual bool IsOpen() const = 0;
    /// Moves to an absolute position. Positions behind the end are allowed (reads there give 0 bytes);
    /// false, and no move, when the position is beyond what the file system can address.
    virtual bool Seek(uint64_t absolutePosition) = 0;
    /// Moves forward from the current position; as `Seek`.
    virtual bool SeekForward(uint64_t bytes) = 0;
    /// Moves back; false, and no move, when that would lie before the start.
    virtual bool SeekBackward(uint64_t bytes) = 0;
    /// Moves to `offset` bytes before the end (0: the end itself); false when the stream is shorter.
    virtual bool SeekEnd(uint64_t offset) = 0;
    /// The position.
    virtual uint64_t Tell() const = 0;
    /// Reads up to `bytes` bytes and moves behind them. Returns the number read: less than asked at the
    /// end of the data or after an error, never more.
    virtual uint64_t Read(void* out, uint64_t bytes) = 0;
    /// What the last `Read` returned.
    virtual uint64_t GetLastReadCount() const = 0;
    /// Size of the whole stream in bytes.
    virtual uint64_t GetSize() const = 0;
    /// True while the position lies before the end.
    virtual bool HasDataLeft() const = 0;
    /// Gives the underlying object back; reads then give nothing.
    virtual void Close() = 0;

    /// A name for error messages (the path of a file); empty when there is none.
    virtual std::wstring GetName() const;
};

}  // namespace kxbase
