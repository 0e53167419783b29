// SPDX-License-Identifier: MIT
#pragma once

#include <omp.h>

namespace kxexchange {

/// How many threads a writer's intake takes for the components of a patch, while the object lives: a property
/// of the calling thread.
class IntakeThreads {
public:
    /// \param threads  0 or less: as many as before
    explicit IntakeThreads(int threads) : m_before(omp_get_max_threads()) {
        if (threads > 0) omp_set_num_threads(threads);
    }
    ~IntakeThreads() { omp_set_num_threads(m_before); }
    IntakeThreads(const IntakeThreads&) = delete;
    IntakeThreads& operator=(const IntakeThreads&) = delete;

private:
    int m_before;
};

}  // namespace kxexchange
