// SPDX-License-Identifier: MIT
#pragma once

#include <exception>
#include <span>
#include <stdexcept>
#include <string>

namespace qsn {

/// What the program returns to its caller; the same for every subcommand.
enum ExitCode : int {
    ExitFine = 0,
    ExitDifferent = 1,      ///< the answer is no: differences, findings, warnings under --strict
    ExitWrongUsage = 2,     ///< the command line, or what it asks of this file, cannot be met
    ExitCannotOpen = 3,     ///< an input
    ExitUnknownFormat = 4,  ///< not this format, or a version or codec that is not supported
    ExitDamaged = 5,        ///< an input is damaged and nothing usable came out
    ExitPartial = 6,        ///< an input is damaged and a partial result was written
    ExitWriteFailed = 7,    ///< an output cannot be written, or is there and must not be replaced
    ExitLimit = 8,          ///< a limit was reached: memory, or sizes that the program handles
    ExitInterrupted = 130,
};

/// Exit code and meaning, in ascending order: for the help and the manual.
struct ExitCodeMeaning {
    ExitCode code;
    const char* meaning;
};
std::span<const ExitCodeMeaning> ExitCodeMeanings();

/// The command line cannot be meant like this.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Something went wrong that no library reports: a file in the way, a full disk, patches that are lost.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, ExitCode code = ExitDamaged)
        : std::runtime_error(text), m_code(code) {}
    ExitCode Code() const { return m_code; }

private:
    ExitCode m_code;
};

/// The work is done and reported; only the exit code is left to say.
class Ended : public std::exception {
public:
    explicit Ended(ExitCode code) : m_code(code) {}
    const char* what() const noexcept override { return "ended"; }
    ExitCode Code() const { return m_code; }

private:
    ExitCode m_code;
};

/// The user asked to stop.
class Interrupted : public std::exception {
public:
    const char* what() const noexcept override { return "interrupted"; }
};

/// One line for people about a caught exception: what failed, and all that is known of where.
std::string DescribeError(const std::exception& error);

/// A line about what could be done about it; mostly empty.
std::string AdviceFor(const std::exception& error);

/// The exit code that belongs to a caught exception.
ExitCode ExitCodeOf(const std::exception& error);

}  // namespace qsn
