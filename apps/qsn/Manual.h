// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace qsn {

// All of them are made from the tables that --help shows, so they cannot say anything else.

/// The manual page qsn(1), for man.
std::string ManualPage(const CLI::App& program);
/// The manual page of one subcommand, qsn-VERB(1).
std::string ManualPage(const CLI::App& program, const CLI::App& subcommand);

/// What a shell reads to complete command lines of qsn.
std::string BashCompletion(const CLI::App& program);
std::string ZshCompletion(const CLI::App& program);
std::string FishCompletion(const CLI::App& program);

/// Calls `use` with the parser of the whole command line: for those who describe it.
void WithCommandLine(const std::function<void(const CLI::App& program)>& use);

/// Writes qsn.1 and qsn-VERB.1, qsn.bash, _qsn and qsn.fish into a folder that exists.
/// \throws Failure when one cannot be written
void WriteManual(const std::string& folder);

}  // namespace qsn
