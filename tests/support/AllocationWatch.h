// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace kxtest {

/// What this thread asks of the memory since construction. For one test program: add
/// support/AllocationWatch.cpp, which replaces operator new, to its sources.
class AllocationWatch {
public:
    AllocationWatch();
    /// Bytes of the largest single request.
    std::size_t Largest() const;
    /// The most bytes that were in use at once besides those at construction.
    std::size_t Peak() const;
};

/// Refuses one request of this thread, from construction to destruction: the `request`-th one, counted
/// from 1.
class AllocationRefusal {
public:
    explicit AllocationRefusal(std::size_t request);
    ~AllocationRefusal();
    AllocationRefusal(const AllocationRefusal&) = delete;
    AllocationRefusal& operator=(const AllocationRefusal&) = delete;
    /// Whether there was a request of that number.
    bool Happened() const;
    /// False where operators belong to a sanitizer and nothing can be refused.
    static bool IsPossible();
};

}  // namespace kxtest
