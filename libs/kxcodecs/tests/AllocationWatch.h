// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace kxcodecs::test {

/// Records the largest single allocation by `new` in this program while it lives, on all threads. One at a
/// time.
class AllocationWatch {
public:
    AllocationWatch();
    ~AllocationWatch();
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;
    std::size_t Largest() const;
};

}  // namespace kxcodecs::test
