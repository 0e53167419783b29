// SPDX-License-Identifier: MIT
#include "RunProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

extern char** environ;

namespace qsn {

namespace {

/// A file without a name: what the program writes lands there, however much it is.
int AnonymousFile() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qsn-output-XXXXXX").string();
    const int descriptor = mkstemp(pattern.data());
    if (descriptor < 0) throw std::runtime_error("no temporary file");
    unlink(pattern.c_str());
    return descriptor;
}

std::string Content(int descriptor) {
    std::string text;
    char buffer[65536];
    lseek(descriptor, 0, SEEK_SET);
    for (ssize_t count; (count = read(descriptor, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(count));
    return text;
}

std::vector<std::string> Environment(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> texts;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (changes.count(text.substr(0, text.find('='))) == 0) texts.push_back(text);
    }
    for (const auto& [name, value] : changes)
        texts.push_back(name + "=" + value);
    return texts;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// The two ends of a pseudo terminal.
std::pair<int, int> OpenTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) throw std::runtime_error("no terminal");
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
    winsize size{};
    size.ws_row = 25;
    size.ws_col = 100;
    ioctl(slave, TIOCSWINSZ, &size);
    return {master, slave};
}

}  // namespace

Program::Program(const std::string& path, const std::vector<std::string>& arguments,
                 const ProgramOptions& options) {
    std::vector<std::string> words = {path};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> environment = Environment(options.environment);
    std::vector<char*> wordPointers = Pointers(words);
    std::vector<char*> environmentPointers = Pointers(environment);
    const std::string folder = options.folder.string();

    m_outFile = AnonymousFile();
    m_errorFile = AnonymousFile();
    int errorTarget = m_errorFile;
    if (options.errorOnTerminal) std::tie(m_terminal, errorTarget) = OpenTerminal();

    m_process = fork();
    if (m_process < 0) throw std::runtime_error("no new process");
    if (m_process == 0) {
        // Only calls that are safe between fork and exec.
        const int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, STDIN_FILENO);
        dup2(m_outFile, STDOUT_FILENO);
        dup2(errorTarget, STDERR_FILENO);
        if (!folder.empty() && chdir(folder.c_str()) != 0) _exit(126);
        execve(wordPointers[0], wordPointers.data(), environmentPointers.data());
        _exit(127);
    }
    if (options.errorOnTerminal) close(errorTarget);
}

Program::~Program() {
    Wait();
    close(m_outFile);
    close(m_errorFile);
    if (m_terminal >= 0) close(m_terminal);
}

void Program::Signal(int number) const {
    kill(m_process, number);
}

bool Program::IsRunning() {
    if (!m_ended) m_ended = waitpid(m_process, &m_status, WNOHANG) == m_process;
    return !m_ended;
}

ProgramResult Program::Wait() {
    if (m_terminal >= 0 && !m_ended) {
        // The other end must be read, or the program would stand still once the terminal is full.
        char buffer[4096];
        for (ssize_t count;
             (count = read(m_terminal, buffer, sizeof buffer)) > 0 || (count < 0 && errno == EINTR);) {
            if (count > 0) m_terminalText.append(buffer, static_cast<size_t>(count));
        }
    }
    if (!m_ended) {
        while (waitpid(m_process, &m_status, 0) < 0 && errno == EINTR) {
        }
        m_ended = true;
    }
    ProgramResult result;
    result.exitCode = WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -WTERMSIG(m_status);
    result.out = Content(m_outFile);
    result.err = m_terminal >= 0 ? m_terminalText : Content(m_errorFile);
    return result;
}

std::string QsnPath() {
    return QSN_PROGRAM;
}

ProgramResult RunQsn(const std::vector<std::string>& arguments, const ProgramOptions& options) {
    return Program(QsnPath(), arguments, options).Wait();
}

ProgramResult RunShellLine(const std::string& line, const ProgramOptions& options) {
    ProgramOptions withPath = options;
    const char* path = std::getenv("PATH");
    withPath.environment["PATH"] =
        std::filesystem::path(QsnPath()).parent_path().string() + ":" + (path == nullptr ? "" : path);
    return Program("/bin/sh", {"-c", line}, withPath).Wait();
}

}  // namespace qsn
