// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>

#include "kxbase/InMemoryStream.h"

namespace kxtest {

/// Bytes in memory that count what a stream is asked to do, and what it gives.
class CountingStream final : public kxbase::IInFileStream {
public:
    explicit CountingStream(const std::vector<unsigned char>& bytes) : m_in(bytes) {}
    bool IsOpen() const override { return true; }
    bool Seek(uint64_t position) override {
        ++seeks;
        return m_in.Seek(position);
    }
    bool SeekForward(uint64_t bytes) override {
        ++seeks;
        return m_in.SeekForward(bytes);
    }
    bool SeekBackward(uint64_t bytes) override {
        ++seeks;
        return m_in.SeekBackward(bytes);
    }
    bool SeekEnd(uint64_t offset) override {
        ++seeks;
        return m_in.SeekEnd(offset);
    }
    uint64_t Tell() const override { return m_in.Tell(); }
    uint64_t Read(void* out, uint64_t bytes) override {
        ++reads;
        if (onRead) onRead();
        const uint64_t place = m_in.Tell();
        if (place < refusedFrom) bytes = std::min(bytes, refusedFrom - place);
        if (place >= refusedFrom && place < refusedEnd) bytes = 0;
        const uint64_t got = m_in.Read(out, bytes);
        bytesRead += got;
        return got;
    }
    uint64_t GetLastReadCount() const override { return m_in.GetLastReadCount(); }
    uint64_t GetSize() const override {
        ++sizes;
        return m_in.GetSize();
    }
    bool HasDataLeft() const override {
        ++sizes;
        return m_in.HasDataLeft();
    }
    void Close() override {}

    /// Everything that may cost a call of the operating system on a file.
    int Operations() const { return seeks + reads + sizes; }
    void Reset() {
        seeks = reads = sizes = 0;
        bytesRead = 0;
    }

    int seeks = 0;
    int reads = 0;
    mutable int sizes = 0;
    uint64_t bytesRead = 0;
    std::function<void()> onRead;       ///< runs in every read, when there is one
    uint64_t refusedFrom = UINT64_MAX;  ///< what lies from there
    uint64_t refusedEnd = 0;            ///< to there is not given, as by a bad disk

private:
    kxbase::InMemoryStream m_in;
};

}  // namespace kxtest
