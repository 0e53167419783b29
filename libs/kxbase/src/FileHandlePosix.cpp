// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "FileHandle.h"
#include "kxbase/UTF8.h"

namespace kxbase {

namespace {

// One call transfers at most this much on Linux; smaller pieces also keep 32-bit systems safe.
constexpr uint64_t kMaxTransfer = uint64_t{1} << 30;

std::string ErrorText(int number) {
    return std::generic_category().message(number);
}

// A name with an embedded NUL would silently name another file.
bool HasNul(const std::wstring& path) {
    return path.find(L'\0') != std::wstring::npos;
}

int OpenFile(const char* name, int flags) {
    int fd = -1;
    do {
        fd = ::open(name, flags | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

/// 0, or the number of the error.
int LockAlone(int fd) {
    int result = 0;
    do {
        // Not fcntl's: that one is lost as soon as this process closes the file anywhere else.
        result = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    const bool knowsNoLocks = errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS;
    return result == 0 || knowsNoLocks ? 0 : errno;
}

int Truncate(int fd, off_t bytes) {
    int result = 0;
    do {
        result = ::ftruncate(fd, bytes);
    } while (result != 0 && errno == EINTR);
    return result;
}

}  // namespace

FileHandle::FileHandle(const std::wstring& path, Mode mode) {
    if (path.empty() || HasNul(path)) return;
    const std::string name = Encode_UTF8(path);
    if (mode == Mode::CreateOrTruncate) {
        CreateAlone(name.c_str());
        return;
    }
    // O_NONBLOCK: a FIFO must not hang the open.
    const int fd = OpenFile(name.c_str(), mode == Mode::Read ? O_RDONLY | O_NONBLOCK : O_RDWR);
    if (fd < 0) return;
    // Only regular files are read: a directory opens and then fails, a device may never end.
    // Written files may be special ones too, so that a failing device can be tested with.
    struct stat info {};
    if (mode == Mode::Read && (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))) {
        ::close(fd);
        return;
    }
    m_handle = fd;
}

// The file of somebody else at work is not emptied, so the lock comes first. Nothing here asks for memory:
// while a constructor runs nobody would close the file.
void FileHandle::CreateAlone(const char* name) {
    int fd = OpenFile(name, O_RDWR | O_CREAT | O_EXCL);
    const bool created = fd >= 0;
    if (!created && errno == EEXIST) fd = OpenFile(name, O_RDWR | O_CREAT);
    if (fd < 0) return;
    const int locked = LockAlone(fd);
    // EINVAL: a special file, which has no length.
    if (locked == 0 && (created || Truncate(fd, 0) == 0 || errno == EINVAL)) {
        m_handle = fd;
        return;
    }
    m_heldByAnother = locked == EWOULDBLOCK;
    ::close(fd);
    if (created && !m_heldByAnother) ::unlink(name);
}

FileHandle::~FileHandle() {
    if (IsOpen()) ::close(static_cast<int>(m_handle));
}

bool FileHandle::IsOpen() const {
    return m_handle >= 0;
}

uint64_t FileHandle::ReadAt(uint64_t position, void* out, uint64_t bytes, std::string& error) const {
    uint64_t done = 0;
    while (done < bytes && position + done <= kMaxPosition) {
        const uint64_t want = std::min({bytes - done, kMaxTransfer, kMaxPosition - (position + done)});
        if (want == 0) break;
        const ssize_t got = ::pread(static_cast<int>(m_handle), static_cast<unsigned char*>(out) + done,
                                    static_cast<size_t>(want), static_cast<off_t>(position + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) error = ErrorText(errno);
        if (got <= 0) break;
        done += static_cast<uint64_t>(got);
    }
    return done;
}

uint64_t FileHandle::WriteAt(uint64_t position, const void* data, uint64_t bytes, std::string& error) {
    uint64_t done = 0;
    while (done < bytes) {
        if (position + done >= kMaxPosition) {
            error = ErrorText(EFBIG);
            break;
        }
        const uint64_t want = std::min({bytes - done, kMaxTransfer, kMaxPosition - (position + done)});
        const ssize_t put =
            ::pwrite(static_cast<int>(m_handle), static_cast<const unsigned char*>(data) + done,
                     static_cast<size_t>(want), static_cast<off_t>(position + done));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) {
            error = put < 0 ? ErrorText(errno) : "nothing was written";
            break;
        }
        done += static_cast<uint64_t>(put);
    }
    return done;
}

std::optional<uint64_t> FileHandle::Size(std::string& error) const {
    struct stat info {};
    if (!IsOpen()) return 0;
    if (::fstat(static_cast<int>(m_handle), &info) != 0 || info.st_size < 0) {
        error = ErrorText(errno);
        return std::nullopt;
    }
    return static_cast<uint64_t>(info.st_size);
}

FileHandle::Locked FileHandle::Lock(std::string& error) {
    const int number = LockAlone(static_cast<int>(m_handle));
    if (number == 0) return Locked::Yes;
    error = ErrorText(number);
    return number == EWOULDBLOCK ? Locked::ByAnother : Locked::Failed;
}

bool FileHandle::Sync(std::string& error) {
    int result = 0;
    do {
        result = ::fsync(static_cast<int>(m_handle));
    } while (result != 0 && errno == EINTR);
    // EINVAL: a special file, which has no medium.
    if (result == 0 || errno == EINVAL || errno == EOPNOTSUPP) return true;
    error = ErrorText(errno);
    return false;
}

bool FileHandle::Resize(uint64_t bytes, std::string& error) {
    if (bytes > kMaxPosition) {
        error = ErrorText(EFBIG);
        return false;
    }
    if (Truncate(static_cast<int>(m_handle), static_cast<off_t>(bytes)) == 0) return true;
    error = ErrorText(errno);
    return false;
}

bool FileHandle::Close(std::string& error) {
    if (!IsOpen()) return true;
    const int fd = static_cast<int>(m_handle);
    m_handle = -1;
    // After EINTR the descriptor is gone on Linux; closing again could hit another file.
    if (::close(fd) == 0 || errno == EINTR) return true;
    error = ErrorText(errno);
    return false;
}

}  // namespace kxbase
