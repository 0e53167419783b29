// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qsn {

/// What every subcommand can ask of the program around it.
struct Session {
    unsigned threads = 1;  ///< at least 1
    bool force = false;    ///< an existing output may be replaced
    bool quiet = false;    ///< no progress and no report
};

/// One subcommand: its options, and what it does with them.
class Command {
public:
    virtual ~Command();
    /// Adds the subcommand's own arguments and options to `app`; `this` must outlive the parsing.
    virtual void Define(CLI::App& app) = 0;
    /// Does the work. Failures leave as exceptions: see Errors.h for the exit codes.
    virtual void Run(const Session& session) = 0;
};

/// One command line shown by `--help`, and what it does.
struct Example {
    const char* commandLine;
    const char* meaning;
};

/// A row of the table of subcommands.
struct CommandDescription {
    const char* name;
    const char* summary;  ///< one line
    std::vector<Example> examples;
    bool writesFile;  ///< takes --force
    std::unique_ptr<Command> (*make)();
};

/// All subcommands, in the order of the help.
std::span<const CommandDescription> Commands();

/// Runs the program with `arguments` (UTF-8, without the program's own name) and returns its exit code.
/// Nothing is thrown.
int RunCommandLine(const std::vector<std::string>& arguments);

}  // namespace qsn
