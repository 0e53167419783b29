// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kxbase/IInFileStream.h"
#include "kxbase/kxInFile.h"

namespace kxio {

struct PendingEdit;

/// Where a reader's bytes come from: a file of its own, which is read by position and needs no lock, or a
/// stream that a caller lent, which is moved and read under the file access lock. Borrows both.
struct PositionedInput {
    const kxbase::kxInFile* file = nullptr;   ///< when set, `stream` is the same file
    kxbase::IInFileStream* stream = nullptr;  ///< may be null: there is nothing to read
    /// An edit of the file that was interrupted: its bytes hold, its record is no part of the file. May be
    /// null.
    const PendingEdit* edit = nullptr;

    /// Bytes read at an absolute position: fewer than asked at the end of the data or after an error.
    uint64_t ReadAt(uint64_t position, void* out, uint64_t bytes) const;
    /// Size in bytes as of now.
    uint64_t Size() const;

    // The same without the edit.
    uint64_t ReadStored(uint64_t position, void* out, uint64_t bytes) const;
    uint64_t StoredSize() const;
};

/// A stream over an input, for reading records: it has a position of its own, so that several can be used at
/// the same time, it asks for the size once, and short reads are served from a window that is filled by one
/// longer read.
class InputWindow final : public kxbase::IInFileStream {
public:
    /// Short enough to cost nothing, long enough for the records at one place of a file.
    static constexpr uint64_t kUsualBytes = uint64_t{1} << 15;

    /// \param size         of the input
    /// \param windowBytes  0: every read takes its own bytes and no others
    InputWindow(const PositionedInput& input, uint64_t size, uint64_t windowBytes);

    bool IsOpen() const override { return m_input.stream != nullptr && m_input.stream->IsOpen(); }
    bool Seek(uint64_t absolutePosition) override;
    bool SeekForward(uint64_t bytes) override;
    bool SeekBackward(uint64_t bytes) override;
    bool SeekEnd(uint64_t offset) override;
    uint64_t Tell() const override { return m_position; }
    uint64_t Read(void* out, uint64_t bytes) override;
    uint64_t GetLastReadCount() const override { return m_lastRead; }
    uint64_t GetSize() const override { return m_size; }
    bool HasDataLeft() const override { return m_position < m_size; }
    void Close() override { m_input = {}; }
    std::wstring GetName() const override;

private:
    uint64_t TakeFromWindow(unsigned char* out, uint64_t bytes);

    PositionedInput m_input;
    uint64_t m_size;
    uint64_t m_windowBytes;
    uint64_t m_position = 0;
    uint64_t m_lastRead = 0;
    uint64_t m_windowStart = 0;
    std::vector<unsigned char> m_window;
};

}  // namespace kxio
