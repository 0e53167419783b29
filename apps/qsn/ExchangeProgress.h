// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Interrupt.h"
#include "Progress.h"
#include "kxexchange/Progress.h"

namespace qsn {

/// Shows an import or export on the terminal and stops it at an interruption.
class ExchangeProgress : public kxexchange::ProgressSink {
public:
    ExchangeProgress(const std::string& label, bool visible) : m_progress(label, visible) {}

    bool Update(uint64_t cellsDone, uint64_t cellsTotal, uint64_t bytesDone) override {
        m_progress.Update(cellsDone, cellsTotal, bytesDone, 0);
        return !InterruptFlag().load(std::memory_order_relaxed);
    }
    void Finish() { m_progress.Finish(); }

private:
    Progress m_progress;
};

}  // namespace qsn
