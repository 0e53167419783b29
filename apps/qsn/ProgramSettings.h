// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Progress.h"

namespace qsn {

// What every subcommand's options say about the program as a whole.

/// Where progress is shown.
enum class ProgressMode {
    Auto,       ///< on a terminal
    Never,      ///< nowhere
    JsonLines,  ///< one JSON object per line on standard error
};

/// "auto", "never" or "json". \throws UsageError
ProgressMode ParseProgressMode(const std::string& text);
/// For the whole run of the program; set before any work begins.
void SetProgressMode(ProgressMode mode);
/// As it was set; `Auto` at first.
ProgressMode ChosenProgressMode();
/// One line of JSON for `state`, schema qsn.progress, version 1.
std::string ProgressJson(const std::string& label, const ProgressState& state);

/// "500M", "2G", "1000000": bytes, with K, M, G or T for powers of 1024; nothing for anything else.
std::optional<uint64_t> ParseBytes(std::string_view text);
/// From now on the program holds no more than this many bytes of data; what asks for more gets
/// std::bad_alloc. False where the system cannot do that.
bool LimitMemory(uint64_t bytes);
/// While it lives, a thread that cannot be started for lack of memory ends the program with the exit code of
/// a limit. The OpenMP runtime throws nothing then: it ends the program by itself, with exit code 1.
class LimitGuard {
public:
    LimitGuard();
    ~LimitGuard();
    LimitGuard(const LimitGuard&) = delete;
    LimitGuard& operator=(const LimitGuard&) = delete;
};
/// Most memory that the program held so far, in bytes; 0 where the system does not tell.
uint64_t MostMemory();

/// Whether messages on standard error may be coloured: a terminal, and NO_COLOR is not set (or empty).
bool ErrorTakesColor();

}  // namespace qsn
