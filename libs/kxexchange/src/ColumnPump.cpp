// SPDX-License-Identifier: MIT
#include "ColumnPump.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "Handover.h"

namespace kxexchange {

namespace {

// Columns asked for at once; sources bound the cells.
constexpr uint64_t kColumnsPerRead = 64;
constexpr size_t kWaitingBlocks = 1;
constexpr std::chrono::milliseconds kPatience{1000};

struct Block {
    std::vector<Cell> cells;
    uint64_t columns = 0;
};

// Blocks that were written, for the next to be read into.
class SpareBlocks {
public:
    Block Take() {
        const std::lock_guard lock(m_mutex);
        if (m_blocks.empty()) return {};
        Block block = std::move(m_blocks.back());
        m_blocks.pop_back();
        return block;
    }
    void GiveBack(Block block) {
        const std::lock_guard lock(m_mutex);
        m_blocks.push_back(std::move(block));
    }

private:
    std::mutex m_mutex;
    std::vector<Block> m_blocks;
};

bool ReadBlock(ScanSource& source, const std::function<void(std::vector<Cell>&)>& prepare, Block& block) {
    block.columns = source.ReadColumns(kColumnsPerRead, block.cells);
    if (block.columns != 0) prepare(block.cells);
    return block.columns != 0;
}

}  // namespace

void PumpColumns(ScanSource& source, Reading reading, const std::function<void(std::vector<Cell>&)>& prepare,
                 const std::function<void(std::span<const Cell>, uint64_t)>& write) {
    if (reading == Reading::InTheCaller) {
        for (Block block; ReadBlock(source, prepare, block);)
            write(block.cells, block.columns);
        return;
    }
    Handover<Block> handover(kWaitingBlocks);
    SpareBlocks spare;
    std::thread reader([&] {
        try {
            for (Block block = spare.Take(); ReadBlock(source, prepare, block); block = spare.Take()) {
                if (!handover.Put(std::move(block))) break;
            }
            handover.End();
        } catch (...) {
            handover.End(std::current_exception());
        }
    });
    try {
        using State = Handover<Block>::State;
        std::optional<Block> block;
        for (State state = State::Waiting; state != State::Ended;) {
            state = handover.Take(block, kPatience);
            if (state != State::Ready) continue;
            write(block->cells, block->columns);
            spare.GiveBack(std::move(*block));
        }
    } catch (...) {
        handover.Abandon();
        reader.join();
        throw;
    }
    reader.join();
}

}  // namespace kxexchange
