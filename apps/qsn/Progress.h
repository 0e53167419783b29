// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace qsn {

/// How far a piece of work is. A total of 0 means that it is not known.
struct ProgressState {
    uint64_t cells = 0;
    uint64_t totalCells = 0;
    uint64_t bytes = 0;
    uint64_t totalBytes = 0;
    double seconds = 0;  ///< since the start
};

/// The line shown for `state`: percent, cells and bytes per second, time left; at most `columns` characters.
std::string ProgressLine(const std::string& label, const ProgressState& state, unsigned columns);

/// One line on the terminal that is rewritten in place at most ten times a second, and taken away at the
/// end. Shows nothing when `visible` is false or standard error is no terminal. May be updated from
/// several threads at once; an update that meets another one is dropped.
class Progress {
public:
    Progress(std::string label, bool visible);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Update(uint64_t cells, uint64_t totalCells, uint64_t bytes, uint64_t totalBytes);
    /// Takes the line away, so that other text can follow.
    void Finish();

private:
    using Clock = std::chrono::steady_clock;

    void Show(const std::string& line);

    std::mutex m_mutex;
    const std::string m_label;
    const bool m_visible;
    const Clock::time_point m_start;
    Clock::time_point m_lastShown;
    size_t m_shownColumns = 0;
};

}  // namespace qsn
