// SPDX-License-Identifier: MIT
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace qsn {

/// What the program returns to its caller.
enum ExitCode : int {
    ExitFine = 0,
    ExitFailed = 1,
    ExitWrongUsage = 2,
    ExitInterrupted = 130,
};

/// The command line cannot be meant like this.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Something outside went wrong that no library reports: a file in the way, a full disk.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The user asked to stop.
class Interrupted : public std::exception {
public:
    const char* what() const noexcept override { return "interrupted"; }
};

/// One line for people about a caught exception: what failed, and all that is known of where.
std::string DescribeError(const std::exception& error);

/// The exit code that belongs to a caught exception.
ExitCode ExitCodeOf(const std::exception& error);

}  // namespace qsn
