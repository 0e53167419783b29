// SPDX-License-Identifier: MIT
#include "support/SystemFaults.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>

namespace {

using kxtest::FileCall;
using kxtest::FileCallRecord;
using kxtest::FileFault;

struct Watch {
    bool active = false;
    bool happened = false;
    uint64_t writes = 0;
    kxtest::FileFaultPlan plan;
    std::vector<FileCallRecord> calls;
    std::map<int, std::string> names;  // of open files below the folder
};

// Never destroyed: files are closed until the very end.
std::mutex& Lock() {
    static auto* lock = new std::mutex;
    return *lock;
}
Watch& State() {
    static auto* watch = new Watch;
    return *watch;
}

bool Below(const std::string& path) {
    const std::string& folder = State().plan.folder;
    return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0;
}

bool NeedsSpace(const FileCallRecord& call) {
    return call.call == FileCall::Write || call.call == FileCall::Sync || call.call == FileCall::Rename ||
           (call.call == FileCall::Open && call.empties);
}

// Notes the call. Returns what happens to it.
FileFault Enter(FileCallRecord call) {
    Watch& watch = State();
    const bool needsSpace = NeedsSpace(call);
    const FileCall kind = call.call;
    const bool transfers = kind == FileCall::Read || kind == FileCall::Write;
    const bool splits = transfers && call.bytes > 1;
    if (!watch.plan.keepData) call.data.clear();
    watch.calls.push_back(std::move(call));
    const uint64_t number = watch.calls.size();
    const FileFault fault = watch.plan.fault;
    if (watch.plan.at == 0 || number < watch.plan.at) return FileFault::None;
    if (number > watch.plan.at && fault != FileFault::NoSpaceForever) return FileFault::None;
    bool possible = false;
    switch (fault) {
        case FileFault::None:
            break;
        case FileFault::Device:
            possible = kind != FileCall::Remove;
            break;
        case FileFault::NoSpaceOnce:
        case FileFault::NoSpaceForever:
            possible = needsSpace;
            break;
        case FileFault::Short:
            possible = splits;
            break;
        case FileFault::Interrupted:
            possible = transfers || kind == FileCall::Open || kind == FileCall::Close ||
                       kind == FileCall::Sync || kind == FileCall::Lock || kind == FileCall::Resize;
            break;
    }
    if (!possible) return FileFault::None;
    watch.happened = true;
    return fault;
}

// True, and errno is set, when the call fails.
bool Fails(FileFault fault) {
    switch (fault) {
        case FileFault::Device:
            errno = EIO;
            return true;
        case FileFault::NoSpaceOnce:
        case FileFault::NoSpaceForever:
            errno = ENOSPC;
            return true;
        case FileFault::Interrupted:
            errno = EINTR;
            return true;
        default:
            return false;
    }
}

const std::string* NameOf(int file) {
    const auto found = State().names.find(file);
    return State().active && found != State().names.end() ? &found->second : nullptr;
}

int OpenFile(const char* path, int flags, mode_t mode) {
    const std::lock_guard lock(Lock());
    const bool watched = State().active && path != nullptr && Below(path);
    if (watched) {
        FileCallRecord call;
        call.call = FileCall::Open;
        call.path = path;
        call.empties = (flags & O_TRUNC) != 0 ||
                       ((flags & O_CREAT) != 0 && ::syscall(SYS_faccessat, AT_FDCWD, path, F_OK) != 0);
        if (Fails(Enter(call))) return -1;
    }
    const int file = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    if (watched && file >= 0) State().names[file] = path;
    return file;
}

ssize_t ReadFile(int file, void* out, size_t bytes, off_t position) {
    const std::lock_guard lock(Lock());
    if (const std::string* name = NameOf(file)) {
        FileCallRecord call;
        call.call = FileCall::Read;
        call.path = *name;
        call.position = static_cast<uint64_t>(position);
        call.bytes = bytes;
        const FileFault fault = Enter(call);
        if (Fails(fault)) return -1;
        if (fault == FileFault::Short) bytes = bytes / 2;
    }
    return ::syscall(SYS_pread64, file, out, bytes, position);
}

[[noreturn]] void Die() {
    ::kill(::getpid(), SIGKILL);
    for (;;)
        ::pause();
}

ssize_t WriteFile(int file, const void* data, size_t bytes, off_t position) {
    const std::lock_guard lock(Lock());
    const std::string* name = NameOf(file);
    if (name == nullptr) return ::syscall(SYS_pwrite64, file, data, bytes, position);
    FileCallRecord call;
    call.call = FileCall::Write;
    call.path = *name;
    call.position = static_cast<uint64_t>(position);
    call.bytes = bytes;
    if (State().plan.keepData) {
        call.data.resize(bytes);
        std::memcpy(call.data.data(), data, bytes);
    }
    const FileFault fault = Enter(call);
    if (Fails(fault)) return -1;
    if (fault == FileFault::Short) bytes = bytes / 2;
    if (++State().writes == State().plan.killAt) {
        const unsigned part = State().plan.killPart;
        if (part == 1) ::syscall(SYS_pwrite64, file, data, bytes / 2, position);
        if (part == 2) ::syscall(SYS_pwrite64, file, data, bytes, position);
        Die();
    }
    return ::syscall(SYS_pwrite64, file, data, bytes, position);
}

int SyncFile(int file) {
    const std::lock_guard lock(Lock());
    const std::string* name = NameOf(file);
    if (name == nullptr) return static_cast<int>(::syscall(SYS_fsync, file));
    FileCallRecord call;
    call.call = FileCall::Sync;
    call.path = *name;
    // No power fails while a test runs, and waiting for the medium is most of what a thousand cases take.
    return Fails(Enter(call)) ? -1 : 0;
}

int LockFile(int file, int how) {
    const std::lock_guard lock(Lock());
    if (const std::string* name = NameOf(file)) {
        FileCallRecord call;
        call.call = FileCall::Lock;
        call.path = *name;
        if (Fails(Enter(call))) return -1;
    }
    return static_cast<int>(::syscall(SYS_flock, file, how));
}

int ResizeFile(int file, off_t bytes) {
    const std::lock_guard lock(Lock());
    if (const std::string* name = NameOf(file)) {
        FileCallRecord call;
        call.call = FileCall::Resize;
        call.path = *name;
        call.position = static_cast<uint64_t>(bytes);
        if (Fails(Enter(call))) return -1;
        if (++State().writes == State().plan.killAt) {
            if (State().plan.killPart == 2) ::syscall(SYS_ftruncate, file, bytes);
            Die();
        }
    }
    return static_cast<int>(::syscall(SYS_ftruncate, file, bytes));
}

int StatFile(int file, struct stat* out) {
    const std::lock_guard lock(Lock());
    if (const std::string* name = NameOf(file)) {
        FileCallRecord call;
        call.call = FileCall::Size;
        call.path = *name;
        if (Fails(Enter(call))) return -1;
    }
    return static_cast<int>(::syscall(SYS_fstat, file, out));
}

int CloseFile(int file) {
    const std::lock_guard lock(Lock());
    FileFault fault = FileFault::None;
    if (const std::string* name = NameOf(file)) {
        FileCallRecord call;
        call.call = FileCall::Close;
        call.path = *name;
        fault = Enter(call);
    }
    State().names.erase(file);
    const int result = static_cast<int>(::syscall(SYS_close, file));  // as on Linux: closed in any case
    return Fails(fault) ? -1 : result;
}

int RenameFile(const char* from, const char* to) {
    const std::lock_guard lock(Lock());
    if (State().active && Below(from)) {
        FileCallRecord call;
        call.call = FileCall::Rename;
        call.path = from;
        call.newPath = to;
        if (Fails(Enter(call))) return -1;
    }
    return static_cast<int>(::syscall(SYS_renameat, AT_FDCWD, from, AT_FDCWD, to));
}

int RemoveFile(const char* path, int flags) {
    const std::lock_guard lock(Lock());
    if (State().active && Below(path)) {
        FileCallRecord call;
        call.call = FileCall::Remove;
        call.path = path;
        if (Fails(Enter(call))) return -1;
    }
    return static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, path, flags));
}

}  // namespace

namespace kxtest {

void SystemFaults::Begin(const FileFaultPlan& plan) {
    const std::lock_guard lock(Lock());
    State() = Watch{true, false, 0, plan, {}, {}};
}
std::vector<FileCallRecord> SystemFaults::End() {
    const std::lock_guard lock(Lock());
    State().active = false;
    return std::move(State().calls);
}
bool SystemFaults::Happened() {
    const std::lock_guard lock(Lock());
    return State().happened;
}

}  // namespace kxtest

// Shared libraries find them in the program first.
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return OpenFile(path, flags, mode);
}
ssize_t pread(int file, void* out, size_t bytes, off_t position) {
    return ReadFile(file, out, bytes, position);
}
ssize_t pwrite(int file, const void* data, size_t bytes, off_t position) {
    return WriteFile(file, data, bytes, position);
}
int fsync(int file) {
    return SyncFile(file);
}
int fdatasync(int file) {
    return SyncFile(file);
}
int fstat(int file, struct stat* out) noexcept {
    return StatFile(file, out);
}
int flock(int file, int how) noexcept {
    return LockFile(file, how);
}
int ftruncate(int file, off_t bytes) noexcept {
    return ResizeFile(file, bytes);
}
int close(int file) {
    return CloseFile(file);
}
int rename(const char* from, const char* to) noexcept {
    return RenameFile(from, to);
}
int unlink(const char* path) noexcept {
    return RemoveFile(path, 0);
}
int remove(const char* path) noexcept {
    const int result = RemoveFile(path, 0);
    return result != 0 && errno == EISDIR ? RemoveFile(path, AT_REMOVEDIR) : result;
}

}  // extern "C"
#pragma GCC visibility pop
