// SPDX-License-Identifier: MIT
#include "kxbase/kxInFile.h"

#include <atomic>

#include "FileHandle.h"
#include "StreamPosition.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"

namespace kxbase {

class kxInFile::Impl {
public:
    explicit Impl(const std::wstring& pathIn) : path(pathIn), file(pathIn, FileHandle::Mode::Read) {}

    uint64_t ReadAt(uint64_t place, void* out, uint64_t bytes) const {
        std::string error;
        const uint64_t count = file.ReadAt(place, out, bytes, error);
        if (!error.empty()) Fail(place + count, bytes - count, error);
        return count;
    }
    uint64_t Size() const {
        std::string error;
        const auto size = file.Size(error);
        if (!size) Fail(0, 1, error);
        return size.value_or(0);
    }
    void Fail(uint64_t place, uint64_t bytes, const std::string& error) const {
        refused += bytes;
        if (!patient)
            throw KXUnreadablePatchException("Cannot read file", {Encode_UTF8(path), {}, {}, place, error});
    }

    std::wstring path;
    FileHandle file;
    StreamPosition position{FileHandle::kMaxPosition};
    uint64_t lastRead = 0;
    bool patient = false;
    mutable std::atomic<uint64_t> refused{0};
};

kxInFile::kxInFile(const std::wstring& path) : m_impl(std::make_unique<Impl>(path)) {}
kxInFile::~kxInFile() = default;

bool kxInFile::IsOpen() const {
    return m_impl->file.IsOpen();
}
bool kxInFile::Seek(uint64_t absolutePosition) {
    return IsOpen() && m_impl->position.To(absolutePosition);
}
bool kxInFile::SeekForward(uint64_t bytes) {
    return IsOpen() && m_impl->position.Forward(bytes);
}
bool kxInFile::SeekBackward(uint64_t bytes) {
    return IsOpen() && m_impl->position.Backward(bytes);
}
bool kxInFile::SeekEnd(uint64_t offset) {
    return IsOpen() && m_impl->position.BeforeEnd(GetSize(), offset);
}
uint64_t kxInFile::Tell() const {
    return m_impl->position.Get();
}

uint64_t kxInFile::Read(void* out, uint64_t bytes) {
    const uint64_t count = IsOpen() ? m_impl->ReadAt(Tell(), out, bytes) : 0;
    m_impl->position.Forward(count);
    m_impl->lastRead = count;
    return count;
}

uint64_t kxInFile::ReadAt(uint64_t position, void* out, uint64_t bytes) const {
    return IsOpen() && position <= FileHandle::kMaxPosition ? m_impl->ReadAt(position, out, bytes) : 0;
}

uint64_t kxInFile::GetLastReadCount() const {
    return m_impl->lastRead;
}
uint64_t kxInFile::GetSize() const {
    return m_impl->Size();
}
bool kxInFile::HasDataLeft() const {
    return Tell() < GetSize();
}

void kxInFile::Close() {
    std::string ignored;  // a file that was only read loses nothing
    m_impl->file.Close(ignored);
}

void kxInFile::SetPatient() {
    m_impl->patient = true;
}
uint64_t kxInFile::RefusedBytes() const {
    return m_impl->refused;
}

std::wstring kxInFile::GetName() const {
    return m_impl->path;
}

}  // namespace kxbase
