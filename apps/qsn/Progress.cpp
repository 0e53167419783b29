// SPDX-License-Identifier: MIT
#include "Progress.h"

#include <fmt/format.h>

#include <algorithm>

#include "Console.h"
#include "Numbers.h"
#include "ProgramSettings.h"

namespace qsn {

namespace {

constexpr auto kInterval = std::chrono::milliseconds(100);
// Rates of the first moments say nothing.
constexpr double kSecondsBeforeRates = 0.5;

double DoneShare(const ProgressState& state) {
    if (state.totalCells > 0) return static_cast<double>(state.cells) / static_cast<double>(state.totalCells);
    if (state.totalBytes > 0) return static_cast<double>(state.bytes) / static_cast<double>(state.totalBytes);
    return -1;
}

}  // namespace

std::string ProgressLine(const std::string& label, const ProgressState& state, unsigned columns) {
    const double share = std::min(DoneShare(state), 1.0);
    std::string line = label;
    if (share >= 0) line += fmt::format(" {:3.0f} %", std::floor(100 * share));
    // Some work counts bytes alone.
    const bool countsCells = state.totalCells > 0 || state.totalBytes == 0 || state.cells > 0;
    if (countsCells) line += fmt::format("  {} cells", ShortCount(static_cast<double>(state.cells)));
    if (state.seconds >= kSecondsBeforeRates) {
        if (countsCells)
            line += fmt::format("  {} cells/s", ShortCount(static_cast<double>(state.cells) / state.seconds));
        if (state.bytes > 0)
            line += fmt::format("  {:.1f} MB/s", static_cast<double>(state.bytes) / state.seconds / 1e6);
        if (share > 0 && share < 1)
            line += "  " + ShortDuration(state.seconds * (1 - share) / share) + " left";
    }
    // The last column stays free: some terminals break the line when it is filled.
    if (columns > 0 && line.size() >= columns) line.resize(columns - 1);
    return line;
}

namespace {

bool IsShown(bool visible) {
    const ProgressMode mode = ChosenProgressMode();
    return visible && mode != ProgressMode::Never && (mode == ProgressMode::JsonLines || ErrorIsTerminal());
}

}  // namespace

Progress::Progress(std::string label, bool visible)
    : m_label(std::move(label)), m_visible(IsShown(visible)), m_start(Clock::now()), m_lastShown(m_start) {}

Progress::~Progress() {
    try {
        Finish();
    } catch (...) {
        // A line that stays on the terminal harms nobody.
    }
}

void Progress::Update(uint64_t cells, uint64_t totalCells, uint64_t bytes, uint64_t totalBytes) {
    if (!m_visible) return;
    const std::unique_lock lock(m_mutex, std::try_to_lock);
    if (!lock) return;
    const Clock::time_point now = Clock::now();
    if (now - m_lastShown < kInterval) return;
    m_lastShown = now;
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const ProgressState state{cells, totalCells, bytes, totalBytes, seconds};
    if (ChosenProgressMode() == ProgressMode::JsonLines) return WriteError(ProgressJson(m_label, state));
    Show(ProgressLine(m_label, state, ErrorTerminalColumns()));
}

void Progress::Finish() {
    if (!m_visible) return;
    const std::lock_guard lock(m_mutex);
    if (m_shownColumns == 0) return;
    WriteError("\r" + std::string(m_shownColumns, ' ') + "\r");
    m_shownColumns = 0;
}

void Progress::Show(const std::string& line) {
    // One write per line, and blanks only over what is left of a longer one: nothing flickers.
    std::string text = "\r" + line;
    if (line.size() < m_shownColumns) text.append(m_shownColumns - line.size(), ' ');
    WriteError(text);
    m_shownColumns = line.size();
}

}  // namespace qsn
