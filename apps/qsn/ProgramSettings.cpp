// SPDX-License-Identifier: MIT
#include "ProgramSettings.h"

#include <fmt/format.h>

#include <atomic>
#include <cmath>
#include <cstdlib>

#include "Console.h"
#include "Errors.h"
#include "JsonOutput.h"
#include "Numbers.h"

#ifndef _WIN32
#include <sys/resource.h>
#endif

namespace qsn {

namespace {

// Set once, before any thread starts.
ProgressMode chosenMode = ProgressMode::Auto;

std::atomic<bool> atWork{false};

/// Runs when the program ends, whoever ended it.
extern "C" void EndAtLimit() {
    if (!atWork) return;
    WriteFailure("not enough memory for another thread");
    std::_Exit(ExitLimit);
}

}  // namespace

ProgressMode ParseProgressMode(const std::string& text) {
    if (text == "auto") return ProgressMode::Auto;
    if (text == "never") return ProgressMode::Never;
    if (text == "json") return ProgressMode::JsonLines;
    throw UsageError(fmt::format("--progress {}: expected auto, never or json", text));
}

void SetProgressMode(ProgressMode mode) {
    chosenMode = mode;
}

ProgressMode ChosenProgressMode() {
    return chosenMode;
}

std::string ProgressJson(const std::string& label, const ProgressState& state) {
    const auto known = [](uint64_t total) { return total == 0 ? Json(nullptr) : Json(total); };
    const Json json = {{"schema", "qsn.progress"},
                       {"version", 1},
                       {"work", label},
                       {"cells", state.cells},
                       {"totalCells", known(state.totalCells)},
                       {"bytes", state.bytes},
                       {"totalBytes", known(state.totalBytes)},
                       {"seconds", std::round(state.seconds * 1000) / 1000}};
    return JsonLine(json) + "\n";
}

std::optional<uint64_t> ParseBytes(std::string_view text) {
    constexpr std::string_view kPowers = "KMGT";
    unsigned shift = 0;
    if (!text.empty()) {
        const char last = text.back();
        const size_t power =
            kPowers.find(last >= 'a' && last <= 'z' ? static_cast<char>(last - 'a' + 'A') : last);
        if (power != std::string_view::npos) {
            shift = 10 * (static_cast<unsigned>(power) + 1);
            text.remove_suffix(1);
        }
    }
    const auto number = ParseCount(text);  // 32 bits, so that no power overflows
    return number ? std::optional(uint64_t{*number} << shift) : std::nullopt;
}

bool LimitMemory(uint64_t bytes) {
#ifdef _WIN32
    (void)bytes;
    return false;
#else
    rlimit limit{};
    if (getrlimit(RLIMIT_DATA, &limit) != 0) return false;
    if (limit.rlim_max != RLIM_INFINITY && bytes > limit.rlim_max) return true;  // the system's is narrower
    limit.rlim_cur = static_cast<rlim_t>(bytes);
    return setrlimit(RLIMIT_DATA, &limit) == 0;
#endif
}

LimitGuard::LimitGuard() {
    static const bool registered = std::atexit(EndAtLimit) == 0;
    atWork = registered;
}

LimitGuard::~LimitGuard() {
    atWork = false;
}

uint64_t MostMemory() {
#ifdef _WIN32
    return 0;
#else
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0) return 0;
#ifdef __APPLE__
    return static_cast<uint64_t>(usage.ru_maxrss);
#else
    return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
#endif
#endif
}

bool ErrorTakesColor() {
    const char* refusal = std::getenv("NO_COLOR");
    return ErrorIsTerminal() && (refusal == nullptr || *refusal == '\0');
}

}  // namespace qsn
