// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace kxtest {

/// Ends the process when one case of many does not come to an end, and names it.
class Watchdog {
public:
    /// \param seconds  far more than any case needs, also under a sanitizer on a busy machine
    explicit Watchdog(std::string what, unsigned seconds = 60)
        : m_what(std::move(what)), m_limit(seconds), m_thread([this] { Watch(); }) {}
    ~Watchdog() {
        {
            const std::lock_guard lock(m_mutex);
            m_done = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /// A case begins. \param where, how  numbers by which to find it again
    void Case(uint64_t where, uint64_t how) {
        m_where = where;
        m_how = how;
        ++m_cases;
    }
    uint64_t Cases() const { return m_cases; }

private:
    void Watch() {
        std::unique_lock lock(m_mutex);
        uint64_t seen = m_cases;
        unsigned seconds = 0;
        while (!m_wake.wait_for(lock, std::chrono::seconds(1), [this] { return m_done; })) {
            const uint64_t now = m_cases;
            seconds = now == seen ? seconds + 1 : 0;
            seen = now;
            if (now == 0 || seconds < m_limit) continue;
            std::fprintf(stderr, "%s: case %llu, %llu hangs\n", m_what.c_str(),
                         static_cast<unsigned long long>(m_where), static_cast<unsigned long long>(m_how));
            std::abort();
        }
    }

    std::string m_what;
    unsigned m_limit;
    std::atomic<uint64_t> m_cases{0};
    std::atomic<uint64_t> m_where{0};
    std::atomic<uint64_t> m_how{0};
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_done = false;
    std::thread m_thread;
};

}  // namespace kxtest
