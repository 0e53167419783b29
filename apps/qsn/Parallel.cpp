// SPDX-License-Identifier: MIT
#include "Parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace qsn {

void ForEachParallel(uint64_t count, unsigned threads, const std::function<void(uint64_t)>& work) {
    std::atomic<uint64_t> next{0};
    std::atomic<bool> stop{false};
    std::mutex mutex;
    std::exception_ptr problem;
    const auto run = [&] {
        while (!stop.load()) {
            const uint64_t i = next.fetch_add(1);
            if (i >= count) return;
            try {
                work(i);
            } catch (...) {
                const std::lock_guard lock(mutex);
                if (!problem) problem = std::current_exception();
                stop.store(true);
            }
        }
    };
    std::vector<std::jthread> others;
    const uint64_t wanted = std::min<uint64_t>(std::max(threads, 1U), std::max<uint64_t>(count, 1));
    for (uint64_t i = 1; i < wanted; ++i)
        others.emplace_back(run);
    run();
    for (std::jthread& other : others)
        other.join();
    if (problem) std::rethrow_exception(problem);
}

}  // namespace qsn
