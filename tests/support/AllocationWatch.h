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

}  // namespace kxtest
