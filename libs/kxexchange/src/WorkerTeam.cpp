// SPDX-License-Identifier: MIT
#include "WorkerTeam.h"

#include <algorithm>
#include <system_error>

namespace kxexchange {

WorkerTeam::~WorkerTeam() {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    for (std::thread& helper : m_helpers)
        helper.join();
}

void WorkerTeam::WorkOn(std::unique_lock<std::mutex>& lock) {
    while (m_next < m_count) {
        const size_t mine = m_next++;
        const auto& work = *m_work;
        lock.unlock();
        work(mine);
        lock.lock();
        if (--m_unfinished == 0) m_done.notify_all();
    }
}

void WorkerTeam::Help() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_ending || m_next < m_count; });
        if (m_ending) return;
        WorkOn(lock);
    }
}

void WorkerTeam::Run(size_t count, size_t threads, const std::function<void(size_t)>& work) {
    const size_t helpers = std::min(count, threads);
    try {
        while (m_helpers.size() + 1 < helpers)
            m_helpers.emplace_back([this] { Help(); });
    } catch (const std::system_error&) {
        // The system has no more threads; those there are do.
    }
    std::unique_lock lock(m_mutex);
    m_work = &work;
    m_next = 0;
    m_count = m_unfinished = count;
    if (helpers > 1) m_changed.notify_all();
    WorkOn(lock);
    m_done.wait(lock, [this] { return m_unfinished == 0; });
    m_count = 0;
    m_work = nullptr;
}

}  // namespace kxexchange
