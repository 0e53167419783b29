// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace qsn {

/// How a program ended and what it said.
struct ProgramResult {
    int exitCode = 0;  ///< negative: the number of the signal that ended it
    std::string out;
    std::string err;
};

struct ProgramOptions {
    std::filesystem::path folder;                    ///< working folder; the present one when empty
    std::map<std::string, std::string> environment;  ///< on top of the test's own
    bool errorOnTerminal = false;                    ///< standard error is a pseudo terminal of 100 columns
};

/// A running program; the destructor waits for it.
class Program {
public:
    /// `arguments` without the program's name.
    Program(const std::string& path, const std::vector<std::string>& arguments,
            const ProgramOptions& options = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void Signal(int number) const;
    bool IsRunning();
    ProgramResult Wait();

private:
    int m_process = -1;
    int m_status = 0;
    bool m_ended = false;
    int m_terminal = -1;
    int m_outFile = -1;
    int m_errorFile = -1;
    std::string m_terminalText;
};

/// Runs the command under test to its end.
ProgramResult RunQsn(const std::vector<std::string>& arguments, const ProgramOptions& options = {});

/// Runs one line with the shell, with the command under test found as `qsn`.
ProgramResult RunShellLine(const std::string& line, const ProgramOptions& options = {});

/// Path of the command under test.
std::string QsnPath();

}  // namespace qsn
