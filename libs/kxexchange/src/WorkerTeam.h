// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kxexchange {

/// Threads that help with short pieces of work again and again. They sleep in between: a team that is asked
/// every millisecond and keeps its processors busy with waiting would take them from the other stages of a
/// pipeline. Belongs to one thread at a time.
class WorkerTeam {
public:
    WorkerTeam() = default;
    /// Ends the threads.
    ~WorkerTeam();
    WorkerTeam(const WorkerTeam&) = delete;
    WorkerTeam& operator=(const WorkerTeam&) = delete;

    /// Calls work(0) to work(count - 1), which must not throw, by at most `threads` threads, the caller among
    /// them, and returns when all are done. Helpers are started when they are first needed; where the system
    /// has none to give, fewer do the same work.
    void Run(size_t count, size_t threads, const std::function<void(size_t)>& work);

private:
    void Help();
    void WorkOn(std::unique_lock<std::mutex>& lock);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::condition_variable m_done;
    std::vector<std::thread> m_helpers;
    const std::function<void(size_t)>* m_work = nullptr;
    size_t m_next = 0;
    size_t m_count = 0;
    size_t m_unfinished = 0;
    bool m_ending = false;
};

}  // namespace kxexchange
