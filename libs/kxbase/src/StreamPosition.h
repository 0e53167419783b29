// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kxbase {

/// The position of a stream and the rules by which it moves; shared by files and memory.
class StreamPosition {
public:
    explicit StreamPosition(uint64_t largest) : m_largest(largest) {}

    uint64_t Get() const { return m_value; }
    bool To(uint64_t absolute) {
        if (absolute > m_largest) return false;
        m_value = absolute;
        return true;
    }
    bool Forward(uint64_t bytes) { return bytes <= m_largest - m_value && To(m_value + bytes); }
    bool Backward(uint64_t bytes) { return bytes <= m_value && To(m_value - bytes); }
    bool BeforeEnd(uint64_t size, uint64_t offset) { return offset <= size && To(size - offset); }

private:
    uint64_t m_largest;
    uint64_t m_value = 0;
};

}  // namespace kxbase
