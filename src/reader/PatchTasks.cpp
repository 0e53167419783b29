// SPDX-License-Identifier: MIT
#include "reader/PatchTasks.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <exception>

namespace kxio {

void RunPatchTasks(uint64_t count, unsigned threads,
                   const std::function<void(uint64_t, PatchBuffers&)>& task) {
    if (threads == 0) threads = static_cast<unsigned>(std::max(1, omp_get_num_procs()));
    const int team = static_cast<int>(std::min<uint64_t>({threads, count, 1024}));
    if (team <= 1) {
        PatchBuffers buffers;
        for (uint64_t i = 0; i < count; ++i)
            task(i, buffers);
        return;
    }
    // Numbers are taken in ascending order, so when one fails all smaller ones have begun and are finished.
    std::atomic<uint64_t> next{0};
    std::atomic<uint64_t> firstFailed{count};
    std::exception_ptr failure;
#pragma omp parallel num_threads(team)
    {
        PatchBuffers buffers;
        for (uint64_t i = next.fetch_add(1); i < firstFailed.load(); i = next.fetch_add(1)) {
            try {
                task(i, buffers);
            } catch (...) {
#pragma omp critical(kxioPatchTaskFailure)
                if (i < firstFailed.load()) {
                    firstFailed.store(i);
                    failure = std::current_exception();
                }
            }
        }
    }
    if (failure) std::rethrow_exception(failure);
}

}  // namespace kxio
