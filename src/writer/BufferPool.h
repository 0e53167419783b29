// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>
#include <utility>
#include <vector>

namespace kxio {

/// Byte buffers that keep their capacity from one use to the next; at most as many as were ever in use at
/// the same time. May be used from several threads.
class BufferPool {
public:
    using Buffer = std::vector<unsigned char>;

    /// A buffer on loan, with any content; it goes back when the loan ends.
    class Loan {
    public:
        explicit Loan(BufferPool& pool) : m_pool(pool), m_buffer(pool.Take()) {}
        ~Loan() { m_pool.GiveBack(std::move(m_buffer)); }
        Loan(const Loan&) = delete;
        Loan& operator=(const Loan&) = delete;
        Buffer& operator*() { return m_buffer; }
        Buffer* operator->() { return &m_buffer; }

    private:
        BufferPool& m_pool;
        Buffer m_buffer;
    };

private:
    Buffer Take() {
        const std::lock_guard lock(m_mutex);
        if (m_free.empty()) {
            m_free.reserve(++m_made);  // so that giving back needs no memory
            return {};
        }
        Buffer buffer = std::move(m_free.back());
        m_free.pop_back();
        return buffer;
    }

    void GiveBack(Buffer buffer) noexcept {
        const std::lock_guard lock(m_mutex);
        m_free.push_back(std::move(buffer));
    }

    std::mutex m_mutex;
    std::vector<Buffer> m_free;
    size_t m_made = 0;
};

}  // namespace kxio
