// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>

namespace kxexchange {

/// Items from one thread to another, a few at a time; either side can end it, the producer also with an
/// exception that the consumer then meets.
template <class Item>
class Handover {
public:
    explicit Handover(size_t capacity) : m_capacity(capacity) {}

    /// Waits for room. \return false when the consumer has given up: stop producing
    bool Put(Item item) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_items.size() < m_capacity || m_abandoned; });
        if (m_abandoned) return false;
        m_items.push_back(std::move(item));
        m_changed.notify_all();
        return true;
    }
    /// Nothing more will come.
    void End(std::exception_ptr error = nullptr) {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        m_error = std::move(error);
        m_changed.notify_all();
    }

    enum class State { Ready, Waiting, Ended };
    /// Waits for an item at most so long. Items put before the end are delivered before it.
    /// \throws what the producer ended with
    State Take(std::optional<Item>& item, std::chrono::milliseconds patience) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, patience, [&] { return !m_items.empty() || m_ended; });
        if (!m_items.empty()) {
            item = std::move(m_items.front());
            m_items.pop_front();
            m_changed.notify_all();
            return State::Ready;
        }
        if (!m_ended) return State::Waiting;
        if (m_error) std::rethrow_exception(m_error);
        return State::Ended;
    }
    /// The consumer gives up.
    void Abandon() {
        const std::lock_guard lock(m_mutex);
        m_abandoned = true;
        m_items.clear();
        m_changed.notify_all();
    }
    bool Abandoned() {
        const std::lock_guard lock(m_mutex);
        return m_abandoned;
    }

private:
    const size_t m_capacity;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Item> m_items;
    std::exception_ptr m_error;
    bool m_ended = false;
    bool m_abandoned = false;
};

}  // namespace kxexchange
