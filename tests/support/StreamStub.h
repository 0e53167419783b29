// SPDX-License-Identifier: MIT
#pragma once

#include "kxbase/IOutFileStream.h"

namespace kxtest {

/// An open stream that keeps nothing and goes anywhere; what a write does is up to the test.
class StreamStub : public kxbase::IOutFileStream {
public:
    bool IsOpen() const override { return true; }
    bool Seek(uint64_t) override { return true; }
    bool SeekForward(uint64_t) override { return true; }
    bool SeekBackward(uint64_t) override { return true; }
    bool SeekEnd(uint64_t) override { return true; }
    uint64_t Tell() const override { return 0; }
    void Close() override {}
};

}  // namespace kxtest
