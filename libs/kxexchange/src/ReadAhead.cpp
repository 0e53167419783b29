// SPDX-License-Identifier: MIT
#include "ReadAhead.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <thread>
#include <vector>

#include "Handover.h"

namespace kxexchange {

namespace {

constexpr size_t kBlockBytes = size_t{1} << 20;
constexpr size_t kWaitingBlocks = 2;
constexpr std::chrono::milliseconds kPatience{1000};

class ReadAhead final : public ByteFeed {
public:
    explicit ReadAhead(std::unique_ptr<ByteFeed> inner) : m_inner(std::move(inner)) {}
    ~ReadAhead() override { Stop(); }
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    size_t Read(char* out, size_t bytes) override {
        if (!m_blocks) Start();
        size_t done = 0;
        while (done < bytes && NextBlock()) {
            const size_t piece = std::min(bytes - done, m_block.size() - m_used);
            std::memcpy(out + done, m_block.data() + m_used, piece);
            m_used += piece;
            done += piece;
        }
        return done;
    }

    uint64_t GoTo(uint64_t offset) override {
        Stop();
        return m_inner->GoTo(offset);
    }

    uint64_t BytesTaken() const override { return m_taken; }

private:
    using Block = std::vector<char>;

    // Makes sure that some of the current block is left. \return false at the end
    bool NextBlock() {
        while (m_used == m_block.size()) {
            if (m_ended) return false;
            std::optional<Block> block;
            const auto state = m_blocks->Take(block, kPatience);
            if (state == Handover<Block>::State::Ended) m_ended = true;
            if (state == Handover<Block>::State::Ready) {
                m_block = std::move(*block);
                m_used = 0;
            }
        }
        return true;
    }

    void Start() {
        m_blocks = std::make_unique<Handover<Block>>(kWaitingBlocks);
        m_thread = std::thread([this, &blocks = *m_blocks] {
            try {
                for (bool more = true; more;) {
                    Block block(kBlockBytes);
                    const size_t got = m_inner->Read(block.data(), block.size());
                    m_taken = m_inner->BytesTaken();
                    more = got == block.size();
                    block.resize(got);
                    if (!blocks.Put(std::move(block))) return;
                }
                blocks.End();
            } catch (...) {
                m_taken = m_inner->BytesTaken();
                blocks.End(std::current_exception());
            }
        });
    }

    void Stop() {
        if (m_thread.joinable()) {
            m_blocks->Abandon();
            m_thread.join();
        }
        m_blocks.reset();
        m_block.clear();
        m_used = 0;
        m_ended = false;
    }

    std::unique_ptr<ByteFeed> m_inner;
    std::atomic<uint64_t> m_taken{0};
    std::unique_ptr<Handover<Block>> m_blocks;  // set while the thread exists
    std::thread m_thread;
    Block m_block;
    size_t m_used = 0;
    bool m_ended = false;
};

}  // namespace

std::unique_ptr<ByteFeed> MakeReadAhead(std::unique_ptr<ByteFeed> inner) {
    return std::make_unique<ReadAhead>(std::move(inner));
}

}  // namespace kxexchange
