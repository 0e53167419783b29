// SPDX-License-Identifier: MIT
#include "kxbase/kxInFile.h"

#include "FileHandle.h"
#include "StreamPosition.h"

namespace kxbase {

class kxInFile::Impl {
public:
    explicit Impl(const std::wstring& pathIn) : path(pathIn), file(pathIn, FileHandle::Mode::Read) {}

    std::wstring path;
    FileHandle file;
    StreamPosition position{FileHandle::kMaxPosition};
    uint64_t lastRead = 0;
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
    const uint64_t count = IsOpen() ? m_impl->file.ReadAt(Tell(), out, bytes) : 0;
    m_impl->position.Forward(count);
    m_impl->lastRead = count;
    return count;
}

uint64_t kxInFile::ReadAt(uint64_t position, void* out, uint64_t bytes) const {
    return IsOpen() && position <= FileHandle::kMaxPosition ? m_impl->file.ReadAt(position, out, bytes) : 0;
}

uint64_t kxInFile::GetLastReadCount() const {
    return m_impl->lastRead;
}
uint64_t kxInFile::GetSize() const {
    return m_impl->file.Size();
}
bool kxInFile::HasDataLeft() const {
    return Tell() < GetSize();
}

void kxInFile::Close() {
    std::string ignored;  // a file that was only read loses nothing
    m_impl->file.Close(ignored);
}

std::wstring kxInFile::GetName() const {
    return m_impl->path;
}

}  // namespace kxbase
