// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace kxtest {

/// The largest single memory request of this thread since construction. For one test program: add
/// support/AllocationWatch.cpp, which replaces operator new, to its sources.
class AllocationWatch {
public:
    AllocationWatch();
    /// Bytes.
    std::size_t Largest() const;
};

}  // namespace kxtest
