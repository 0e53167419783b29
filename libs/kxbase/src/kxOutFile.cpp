// SPDX-License-Identifier: MIT
#include "kxbase/kxOutFile.h"

#include "FileHandle.h"
#include "StreamPosition.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"

namespace kxbase {

KXFileLockedException::~KXFileLockedException() = default;

class kxOutFile::Impl {
public:
    Impl(const std::wstring& pathIn, FileHandle::Mode mode) : path(pathIn), file(pathIn, mode) {}

    [[noreturn]] void Fail(const std::string& detail) const {
        ErrorContext context;
        context.file = Encode_UTF8(path);
        context.offset = position.Get();
        context.detail = detail;
        throw KXWritingException("Cannot write file", context);
    }

    std::wstring path;
    FileHandle file;
    StreamPosition position{FileHandle::kMaxPosition};
};

kxOutFile::kxOutFile(const std::wstring& path, int mode)
    : m_impl(std::make_unique<Impl>(
          path, mode == KeepContent ? FileHandle::Mode::KeepContent : FileHandle::Mode::CreateOrTruncate)) {}
kxOutFile::~kxOutFile() = default;

bool kxOutFile::IsOpen() const {
    return m_impl->file.IsOpen();
}
bool kxOutFile::IsHeldByAnother() const {
    return m_impl->file.IsHeldByAnother();
}
bool kxOutFile::Seek(uint64_t absolutePosition) {
    return IsOpen() && m_impl->position.To(absolutePosition);
}
bool kxOutFile::SeekForward(uint64_t bytes) {
    return IsOpen() && m_impl->position.Forward(bytes);
}
bool kxOutFile::SeekBackward(uint64_t bytes) {
    return IsOpen() && m_impl->position.Backward(bytes);
}
bool kxOutFile::SeekEnd(uint64_t offset) {
    std::string error;
    const auto size = m_impl->file.Size(error);
    return IsOpen() && size && m_impl->position.BeforeEnd(*size, offset);
}
uint64_t kxOutFile::Tell() const {
    return m_impl->position.Get();
}

uint64_t kxOutFile::Write(const void* data, uint64_t bytes) {
    if (!IsOpen()) m_impl->Fail("the file is not open");
    std::string error;
    const uint64_t done = m_impl->file.WriteAt(Tell(), data, bytes, error);
    if (done != bytes) {
        m_impl->Fail(std::to_string(done) + " of " + std::to_string(bytes) + " bytes written: " + error);
    }
    m_impl->position.Forward(bytes);
    return bytes;
}

void kxOutFile::Close() {
    std::string error;
    if (!m_impl->file.Close(error)) m_impl->Fail("closing: " + error);
}

void kxOutFile::Lock() {
    if (!IsOpen()) m_impl->Fail("the file is not open");
    std::string error;
    switch (m_impl->file.Lock(error)) {
        case FileHandle::Locked::Yes:
            return;
        case FileHandle::Locked::ByAnother:
            throw KXFileLockedException("File is being edited",
                                        {Encode_UTF8(m_impl->path), {}, {}, {}, "another one has it locked"});
        case FileHandle::Locked::Failed:
            m_impl->Fail("locking: " + error);
    }
}

void kxOutFile::Sync() {
    if (!IsOpen()) m_impl->Fail("the file is not open");
    std::string error;
    if (!m_impl->file.Sync(error)) m_impl->Fail("waiting for the medium: " + error);
}

void kxOutFile::Resize(uint64_t bytes) {
    if (!IsOpen()) m_impl->Fail("the file is not open");
    std::string error;
    if (!m_impl->file.Resize(bytes, error)) m_impl->Fail("resizing: " + error);
}

std::wstring kxOutFile::GetName() const {
    return m_impl->path;
}

}  // namespace kxbase
