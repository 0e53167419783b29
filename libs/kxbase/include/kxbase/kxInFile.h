// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "kxbase/IInFileStream.h"

namespace kxbase {

/// A regular file, opened for reading. Reads are by position; the operating system's file offset is not used.
///
/// Reading, and asking for the size, throws KXUnreadablePatchException "Cannot read file" when the device
/// fails (unless the file is patient): less than was asked for is given at the end of the file alone.
class KXBASE_EXPORT kxInFile final : public IInFileStream {
public:
    /// Opens `path` (UTF-8 on POSIX systems whatever the locale). Never throws for a file that cannot be
    /// opened: ask `IsOpen()`. Anything but a regular file counts as not open.
    explicit kxInFile(const std::wstring& path);
    ~kxInFile() override;
    kxInFile(const kxInFile&) = delete;
    kxInFile& operator=(const kxInFile&) = delete;

    bool IsOpen() const override;
    bool Seek(uint64_t absolutePosition) override;
    bool SeekForward(uint64_t bytes) override;
    bool SeekBackward(uint64_t bytes) override;
    bool SeekEnd(uint64_t offset) override;
    uint64_t Tell() const override;
    uint64_t Read(void* out, uint64_t bytes) override;
    uint64_t GetLastReadCount() const override;
    /// Reads up to `bytes` bytes at an absolute position and returns the number read, as `Read` does; neither
    /// the stream's position nor its last read count moves. Several threads may call this, and `GetSize`, at
    /// the same time, while no other thread closes the file.
    uint64_t ReadAt(uint64_t position, void* out, uint64_t bytes) const;
    uint64_t GetSize() const override;
    bool HasDataLeft() const override;
    void Close() override;
    std::wstring GetName() const override;

    /// From now on what the device does not give is left out, as if the file ended there, and counted;
    /// nothing is thrown. For those who save what is left. A size that cannot be told is then 0.
    void SetPatient();
    /// Bytes that were asked for and that the device did not give.
    uint64_t RefusedBytes() const;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace kxbase
