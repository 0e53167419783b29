// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kxbase {

/// The operating system's file, by position. One implementation per platform; nothing else in the tree
/// calls the system's file functions.
class FileHandle {
public:
    enum class Mode { Read, CreateOrTruncate, KeepContent };

    /// The largest position the file system can address.
    static constexpr uint64_t kMaxPosition = INT64_MAX;

    FileHandle(const std::wstring& path, Mode mode);
    /// Closes; a failure is lost.
    ~FileHandle();
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    bool IsOpen() const;
    /// Reads until `bytes` are there, the file ends or an error occurs; returns the count.
    uint64_t ReadAt(uint64_t position, void* out, uint64_t bytes) const;
    /// Writes until all is written or an error occurs; returns the count, `error` is its text.
    uint64_t WriteAt(uint64_t position, const void* data, uint64_t bytes, std::string& error);
    /// 0 when it cannot be told.
    uint64_t Size() const;
    /// False, with the reason, when the system reports lost data. Not open afterwards in any case.
    bool Close(std::string& error);

private:
    intptr_t m_handle = -1;
};

}  // namespace kxbase
