// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "format/PendingEdit.h"
#include "kxbase/IInFileStream.h"

namespace kxio {

/// A file as it will be once the next edit has cleared up after one that was interrupted: what was promised
/// is done, what was not is not there. Any other file looks as it is.
///
/// For one thread; the stream must outlive it and belongs to it meanwhile.
class SettledInput final : public kxbase::IInFileStream {
public:
    /// \throws what the stream throws
    explicit SettledInput(kxbase::IInFileStream& in);

    /// Where the first byte lies that is not shown; nothing when no edit was interrupted.
    std::optional<uint64_t> HiddenFrom() const;
    /// Whether the interrupted edit counts as made.
    bool IsPromised() const { return m_promise.has_value(); }

    bool IsOpen() const override { return m_in.IsOpen(); }
    bool Seek(uint64_t absolutePosition) override;
    bool SeekForward(uint64_t bytes) override;
    bool SeekBackward(uint64_t bytes) override;
    bool SeekEnd(uint64_t offset) override;
    uint64_t Tell() const override { return m_position; }
    uint64_t Read(void* out, uint64_t bytes) override;
    uint64_t GetLastReadCount() const override { return m_lastRead; }
    uint64_t GetSize() const override { return m_size; }
    bool HasDataLeft() const override { return m_position < m_size; }
    void Close() override { m_in.Close(); }
    std::wstring GetName() const override { return m_in.GetName(); }

private:
    kxbase::IInFileStream& m_in;
    uint64_t m_stored;  // the stream's own size
    uint64_t m_size;
    std::optional<PendingEdit> m_promise;
    uint64_t m_position = 0;
    uint64_t m_lastRead = 0;
};

}  // namespace kxio
