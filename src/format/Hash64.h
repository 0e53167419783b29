// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <span>

namespace kxio {

/// The 64-bit XXH3 hash of some bytes, seed 0. The same on every machine.
uint64_t Hash64(std::span<const unsigned char> bytes);

/// The same of bytes that come piece by piece.
class RunningHash64 {
public:
    RunningHash64();
    ~RunningHash64();
    RunningHash64(const RunningHash64&) = delete;
    RunningHash64& operator=(const RunningHash64&) = delete;

    /// Adds the next piece.
    void Add(std::span<const unsigned char> bytes);
    /// Of all pieces so far.
    uint64_t Get() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace kxio
