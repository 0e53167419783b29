// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "kxbase/Exceptions.h"
#include "kxbase/IOutFileStream.h"

namespace kxbase {

/// Somebody else is editing the file at this moment; nothing was changed.
class KXBASE_EXPORT KXFileLockedException : public KXWritingException {
public:
    using KXWritingException::KXWritingException;
    ~KXFileLockedException() override;
};

/// A regular file, opened for writing. Nothing is buffered in the process: what `Write` accepted, the
/// operating system has.
class KXBASE_EXPORT kxOutFile final : public IOutFileStream {
public:
    /// What happens to a file that is there already.
    enum OpenMode {
        /// Creates the file or empties it, and locks it as `Lock` does. A file that another one has locked is
        /// not emptied, and this one is not open.
        CreateOrTruncate = 0,
        KeepContent = 1,  ///< opens an existing file without touching its content; position 0
    };

    /// Opens `path`. Never throws for a file that cannot be opened: ask `IsOpen()`. `KeepContent` on a
    /// missing file is not open and creates nothing.
    explicit kxOutFile(const std::wstring& path, int mode = CreateOrTruncate);
    /// Closes; a failure is lost here, so call `Close()` where it matters.
    ~kxOutFile() override;
    kxOutFile(const kxOutFile&) = delete;
    kxOutFile& operator=(const kxOutFile&) = delete;

    bool IsOpen() const override;
    /// Whether it is not open because another one writes or edits the file.
    bool IsHeldByAnother() const;
    bool Seek(uint64_t absolutePosition) override;
    bool SeekForward(uint64_t bytes) override;
    bool SeekBackward(uint64_t bytes) override;
    bool SeekEnd(uint64_t offset) override;
    uint64_t Tell() const override;
    uint64_t Write(const void* data, uint64_t bytes) override;
    void Close() override;
    std::wstring GetName() const override;

    /// Keeps others that lock the file too from having it until it is closed, threads of this program among
    /// them. Does not wait. Reading and writing without a lock stay possible. Where the file system knows no
    /// locks nothing happens.
    /// \throws KXFileLockedException "File is being edited": another one has it
    void Lock();
    /// Returns when everything written is on the medium. \throws KXWritingException
    void Sync();
    /// Cuts the file or fills it up with zeros; the position stays. \throws KXWritingException
    void Resize(uint64_t bytes);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace kxbase
