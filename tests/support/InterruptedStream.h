// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "kxbase/InMemoryStream.h"

namespace kxtest {

/// Bytes in memory whose reading may fail in any way: `beforeRead` runs before every read, when there is one.
class InterruptedStream final : public kxbase::IInFileStream {
public:
    explicit InterruptedStream(std::vector<unsigned char> bytes) : m_in(std::move(bytes)) {}
    bool IsOpen() const override { return m_in.IsOpen(); }
    bool Seek(uint64_t position) override { return m_in.Seek(position); }
    bool SeekForward(uint64_t bytes) override { return m_in.SeekForward(bytes); }
    bool SeekBackward(uint64_t bytes) override { return m_in.SeekBackward(bytes); }
    bool SeekEnd(uint64_t offset) override { return m_in.SeekEnd(offset); }
    uint64_t Tell() const override { return m_in.Tell(); }
    uint64_t Read(void* out, uint64_t bytes) override {
        if (beforeRead) beforeRead();
        return m_in.Read(out, bytes);
    }
    uint64_t GetLastReadCount() const override { return m_in.GetLastReadCount(); }
    uint64_t GetSize() const override { return m_in.GetSize(); }
    bool HasDataLeft() const override { return m_in.HasDataLeft(); }
    void Close() override { m_in.Close(); }

    std::function<void()> beforeRead;

private:
    kxbase::InMemoryStream m_in;
};

}  // namespace kxtest
