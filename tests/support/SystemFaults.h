// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kxtest {

/// What a program asks the system to do with files.
enum class FileCall { Open, Read, Write, Size, Sync, Close, Rename, Remove, Lock, Resize };

enum class FileFault {
    None,
    Device,          ///< this call fails: the device does not answer (EIO)
    NoSpaceOnce,     ///< this call fails for want of space
    NoSpaceForever,  ///< this call and all later ones that need space do
    Short,           ///< this call transfers a part only
    Interrupted,     ///< this call is interrupted by a signal before it did anything
};

/// A call that was made on a file below the watched folder.
struct FileCallRecord {
    FileCall call{};
    std::string path;
    std::string newPath;              ///< of a renaming
    bool empties = false;             ///< an opening that creates or empties the file
    uint64_t position = 0;            ///< of a transfer
    uint64_t bytes = 0;               ///< that were asked for
    std::vector<unsigned char> data;  ///< that were written, when the log is kept
};

/// What the calls on files below a folder do from `Begin` to `End`; all others pass.
struct FileFaultPlan {
    std::string folder;
    FileFault fault = FileFault::None;
    uint64_t at = 0;        ///< the call that fails, counted from 1; 0: none
    bool keepData = false;  ///< the log holds what was written
    uint64_t killAt = 0;    ///< the write at which this process is killed, counted from 1; 0: none
    unsigned killPart = 0;  ///< of that write: 0 nothing, 1 the first half, 2 all has reached the file
};

/// Stands between the program and the system's calls on files. For one test program on Linux with 64-bit
/// numbers: add support/SystemFaults.cpp, which takes the place of open, pread, pwrite, fstat, fsync, close,
/// rename, unlink and their like, to its sources. One plan at a time.
class SystemFaults {
public:
    static void Begin(const FileFaultPlan& plan);
    /// The calls since `Begin`.
    static std::vector<FileCallRecord> End();
    /// Whether the plan's fault has happened to a call to which it can happen.
    static bool Happened();
};

}  // namespace kxtest
