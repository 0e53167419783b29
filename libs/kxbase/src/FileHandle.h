// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kxbase {

/// The operating system's file, by position. One implementation per platform; nothing else in the tree
/// calls the system's file functions.
class FileHandle {
public:
    enum class Mode { Read, CreateOrTruncate, KeepContent };

    /// The largest position the file system can address.
    static constexpr uint64_t kMaxPosition = INT64_MAX;

    /// What is created or emptied is locked at once, see `Lock`; a file that another one has is not touched.
    FileHandle(const std::wstring& path, Mode mode);
    /// Closes; a failure is lost.
    ~FileHandle();
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    bool IsOpen() const;
    /// Whether it is not open because another one has the file.
    bool IsHeldByAnother() const { return m_heldByAnother; }
    /// Reads until `bytes` are there, the file ends or an error occurs; returns the count. `error` is its
    /// text.
    uint64_t ReadAt(uint64_t position, void* out, uint64_t bytes, std::string& error) const;
    /// Writes until all is written or an error occurs; returns the count, `error` is its text.
    uint64_t WriteAt(uint64_t position, const void* data, uint64_t bytes, std::string& error);
    /// 0 when the file is not open. Nothing, and `error` is the reason, when it cannot be told.
    std::optional<uint64_t> Size(std::string& error) const;
    /// What became of the wish to have a file alone.
    enum class Locked { Yes, ByAnother, Failed };
    /// Locks the file against others that lock it, until it is closed; reading and writing without a lock
    /// stay possible. Does not wait. Where the file system knows no locks it is `Yes`.
    Locked Lock(std::string& error);
    /// Waits until what was written is on the medium. False, with the reason, when it may not be.
    bool Sync(std::string& error);
    /// Makes the file as long as that. False, with the reason, when it stays as it is.
    bool Resize(uint64_t bytes, std::string& error);
    /// False, with the reason, when the system reports lost data. Not open afterwards in any case.
    bool Close(std::string& error);

private:
    void CreateAlone(const char* name);

    intptr_t m_handle = -1;
    bool m_heldByAnother = false;
};

}  // namespace kxbase
