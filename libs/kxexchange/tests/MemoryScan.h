// SPDX-License-Identifier: MIT
// A source over cells in memory that can be made to break its word, and a caller who stops.
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kxexchange/Progress.h"
#include "kxexchange/ScanSource.h"

namespace kxexchange::testing {

/// Gives the cells of its description column by column. `adjust` may change what each opening, counted from
/// 1, says of them; the cells stay as they are.
class MemoryScan final : public ScanSource {
public:
    MemoryScan(ScanDescription description, std::vector<Cell> cells)
        : m_description(std::move(description)), m_cells(std::move(cells)) {}

    std::function<void(int opening, ScanDescription&)> adjust;
    std::vector<std::string> warnings;

    std::string FormatName() const override { return "TEST"; }
    std::string Name() const override { return "memory.test"; }
    uint64_t ScanCount() override { return 1; }
    ScanDescription OpenScan(uint64_t /*index*/) override {
        m_next = 0;
        ScanDescription said = m_description;
        if (adjust) adjust(++m_openings, said);
        return said;
    }
    uint64_t ReadColumns(uint64_t maxColumns, std::vector<Cell>& cells) override {
        const uint64_t columns = std::min(maxColumns, m_description.columns - m_next);
        const auto first = m_cells.begin() + static_cast<std::ptrdiff_t>(m_next * m_description.rows);
        cells.assign(first, first + static_cast<std::ptrdiff_t>(columns * m_description.rows));
        m_next += columns;
        return columns;
    }
    std::vector<std::string> Warnings() const override { return warnings; }
    uint64_t BytesRead() const override { return 0; }
    uint64_t FileBytes() const override { return 1; }

private:
    ScanDescription m_description;
    std::vector<Cell> m_cells;
    uint64_t m_next = 0;
    int m_openings = 0;
};

/// Asks to stop at the n-th call.
class CancelAt final : public ProgressSink {
public:
    explicit CancelAt(int call) : m_calls(call) {}
    bool Update(uint64_t, uint64_t, uint64_t) override { return --m_calls > 0; }

private:
    int m_calls;
};

}  // namespace kxexchange::testing
