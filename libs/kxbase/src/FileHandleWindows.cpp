// SPDX-License-Identifier: MIT
#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <algorithm>
#include <system_error>

#include "FileHandle.h"

namespace kxbase {

namespace {

constexpr uint64_t kMaxTransfer = uint64_t{1} << 30;

HANDLE AsHandle(intptr_t value) {
    return reinterpret_cast<HANDLE>(value);
}

std::string ErrorText(DWORD number) {
    return std::system_category().message(static_cast<int>(number));
}

OVERLAPPED At(uint64_t position) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(position);
    place.OffsetHigh = static_cast<DWORD>(position >> 32);
    return place;
}

}  // namespace

FileHandle::FileHandle(const std::wstring& path, Mode mode) {
    if (path.empty() || path.find(L'\0') != std::wstring::npos) return;
    const DWORD access = mode == Mode::Read ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
    const DWORD share =
        mode == Mode::Read ? FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE : FILE_SHARE_READ;
    const DWORD how = mode == Mode::CreateOrTruncate ? CREATE_ALWAYS : OPEN_EXISTING;
    HANDLE file = ::CreateFileW(path.c_str(), access, share, nullptr, how, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        // Who has it open for writing shares it with readers only.
        m_heldByAnother = mode == Mode::CreateOrTruncate && ::GetLastError() == ERROR_SHARING_VIOLATION;
        return;
    }
    if (mode == Mode::Read && ::GetFileType(file) != FILE_TYPE_DISK) {
        ::CloseHandle(file);
        return;
    }
    m_handle = reinterpret_cast<intptr_t>(file);
}

FileHandle::~FileHandle() {
    if (IsOpen()) ::CloseHandle(AsHandle(m_handle));
}

bool FileHandle::IsOpen() const {
    return m_handle != -1;
}

uint64_t FileHandle::ReadAt(uint64_t position, void* out, uint64_t bytes, std::string& error) const {
    uint64_t done = 0;
    while (done < bytes && position + done < kMaxPosition) {
        OVERLAPPED place = At(position + done);
        const DWORD want = static_cast<DWORD>(std::min(bytes - done, kMaxTransfer));
        DWORD got = 0;
        if (!::ReadFile(AsHandle(m_handle), static_cast<unsigned char*>(out) + done, want, &got, &place)) {
            const DWORD number = ::GetLastError();
            if (number != ERROR_HANDLE_EOF) error = ErrorText(number);
            break;
        }
        if (got == 0) break;
        done += got;
    }
    return done;
}

uint64_t FileHandle::WriteAt(uint64_t position, const void* data, uint64_t bytes, std::string& error) {
    uint64_t done = 0;
    while (done < bytes) {
        OVERLAPPED place = At(position + done);
        const DWORD want = static_cast<DWORD>(std::min(bytes - done, kMaxTransfer));
        DWORD put = 0;
        if (!::WriteFile(AsHandle(m_handle), static_cast<const unsigned char*>(data) + done, want, &put,
                         &place)) {
            error = ErrorText(::GetLastError());
            break;
        }
        if (put == 0) {
            error = "nothing was written";
            break;
        }
        done += put;
    }
    return done;
}

std::optional<uint64_t> FileHandle::Size(std::string& error) const {
    LARGE_INTEGER size{};
    if (!IsOpen()) return 0;
    if (!::GetFileSizeEx(AsHandle(m_handle), &size) || size.QuadPart < 0) {
        error = ErrorText(::GetLastError());
        return std::nullopt;
    }
    return static_cast<uint64_t>(size.QuadPart);
}

FileHandle::Locked FileHandle::Lock(std::string& error) {
    // A byte that no file has: the lock of a byte would keep others from reading it.
    OVERLAPPED place = At(kMaxPosition - 1);
    if (::LockFileEx(AsHandle(m_handle), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0,
                     &place))
        return Locked::Yes;
    const DWORD number = ::GetLastError();
    error = ErrorText(number);
    return number == ERROR_LOCK_VIOLATION || number == ERROR_IO_PENDING ? Locked::ByAnother : Locked::Failed;
}

bool FileHandle::Sync(std::string& error) {
    if (::FlushFileBuffers(AsHandle(m_handle))) return true;
    error = ErrorText(::GetLastError());
    return false;
}

bool FileHandle::Resize(uint64_t bytes, std::string& error) {
    FILE_END_OF_FILE_INFO info{};
    info.EndOfFile.QuadPart = static_cast<LONGLONG>(bytes);
    if (::SetFileInformationByHandle(AsHandle(m_handle), FileEndOfFileInfo, &info, sizeof info)) return true;
    error = ErrorText(::GetLastError());
    return false;
}

bool FileHandle::Close(std::string& error) {
    if (!IsOpen()) return true;
    HANDLE file = AsHandle(m_handle);
    m_handle = -1;
    if (::CloseHandle(file)) return true;
    error = ErrorText(::GetLastError());
    return false;
}

}  // namespace kxbase
