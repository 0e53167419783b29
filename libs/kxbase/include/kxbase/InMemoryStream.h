// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "kxbase/IInFileStream.h"
#include "kxbase/IOutFileStream.h"

namespace kxbase {

/// Bytes in memory as input and output stream, with one position for both.
/// Writing behind the end fills the gap with zeros. Copies own their bytes.
class KXBASE_EXPORT InMemoryStream final : public IInFileStream, public IOutFileStream {
public:
    /// No bytes.
    InMemoryStream();
    /// Copies `size` bytes.
    InMemoryStream(const void* bytes, uint64_t size);
    /// Takes the bytes over.
    explicit InMemoryStream(std::vector<unsigned char> bytes);
    ~InMemoryStream() override;

    /// All bytes, wherever the position.
    const std::vector<unsigned char>& GetBytes() const;

    bool IsOpen() const override;
    bool Seek(uint64_t absolutePosition) override;
    bool SeekForward(uint64_t bytes) override;
    bool SeekBackward(uint64_t bytes) override;
    bool SeekEnd(uint64_t offset) override;
    uint64_t Tell() const override;
    uint64_t Read(void* out, uint64_t bytes) override;
    uint64_t GetLastReadCount() const override;
    uint64_t GetSize() const override;
    bool HasDataLeft() const override;
    uint64_t Write(const void* data, uint64_t bytes) override;
    /// Reads then give nothing and writes throw; the bytes stay readable through `GetBytes`.
    void Close() override;
    std::wstring GetName() const override;

private:
    std::vector<unsigned char> m_bytes;
    uint64_t m_position = 0;
    uint64_t m_lastRead = 0;
    bool m_open = true;
};

}  // namespace kxbase
