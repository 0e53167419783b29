// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kxbase/IOutFileStream.h"

namespace kxio {

/// Hands small writes that follow each other on to a stream in large pieces.
///
/// Only for files that nobody looks at before they are complete: what was written last may still be held
/// back until `Flush`, and an error may be that of an earlier write. Nothing is written by the destructor.
/// For one thread; the stream must outlive it and belongs to it meanwhile.
class BufferedOutput final : public kxbase::IOutFileStream {
public:
    explicit BufferedOutput(kxbase::IOutFileStream& out);

    /// Hands on what is held back. \throws what the stream throws
    void Flush();

    bool IsOpen() const override { return m_out.IsOpen(); }
    bool Seek(uint64_t absolutePosition) override;
    bool SeekForward(uint64_t bytes) override;
    bool SeekBackward(uint64_t bytes) override;
    bool SeekEnd(uint64_t offset) override;
    uint64_t Tell() const override { return m_out.Tell() + m_held.size(); }
    uint64_t Write(const void* data, uint64_t bytes) override;
    void Close() override;
    std::wstring GetName() const override { return m_out.GetName(); }

private:
    kxbase::IOutFileStream& m_out;
    std::vector<unsigned char> m_held;  // of the bytes that come where the stream stands
};

}  // namespace kxio
