// SPDX-License-Identifier: MIT
#include "Console.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Errors.h"
#include "ProgramSettings.h"

#ifdef _WIN32
#include <io.h>
#include <windows.h>

#include <shellapi.h>

#include "kxbase/UTF8.h"
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace qsn {

std::vector<std::string> ArgumentsAsUtf8(int count, char** values) {
    std::vector<std::string> arguments;
#ifdef _WIN32
    // The narrow arguments went through a code page; the wide ones did not.
    (void)count;
    (void)values;
    int wideCount = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &wideCount);
    for (int i = 1; wide != nullptr && i < wideCount; ++i)
        arguments.push_back(kxbase::Encode_UTF8(wide[i]));
    LocalFree(wide);
#else
    for (int i = 1; i < count; ++i)
        arguments.emplace_back(values[i]);
#endif
    return arguments;
}

bool ErrorIsTerminal() {
#ifdef _WIN32
    return _isatty(_fileno(stderr)) != 0;
#else
    const char* kind = std::getenv("TERM");
    return isatty(STDERR_FILENO) != 0 && (kind == nullptr || std::strcmp(kind, "dumb") != 0);
#endif
}

unsigned ErrorTerminalColumns() {
#ifndef _WIN32
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
#endif
    return 80;
}

void WriteOutput(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
        throw Failure("standard output: not everything could be written", ExitWriteFailed);
}

void FlushOutput() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw Failure("standard output: not everything could be written", ExitWriteFailed);
}

void WriteError(std::string_view text) {
    // Nobody is left to tell when this fails.
    (void)std::fwrite(text.data(), 1, text.size(), stderr);
}

void WriteFailure(std::string_view text) {
    const std::string prefix = ErrorTakesColor() ? "\033[1;31mqsn:\033[0m " : "qsn: ";
    WriteError(prefix + Printable(text) + "\n");
}

std::string Printable(std::string_view text) {
    static const char* const kDigits = "0123456789abcdef";
    std::string shown;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        // U+0080..U+009F, two bytes in UTF-8, steer terminals too.
        const bool c1 = byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
        if (byte == '\n' || byte == '\r' || byte == '\t') {
            shown += ' ';
        } else if (byte < 0x20 || byte == 0x7F || c1) {
            const auto code = c1 ? static_cast<unsigned char>(text[++i]) : byte;
            shown += "\\x";
            shown += kDigits[code >> 4];
            shown += kDigits[code & 15];
        } else {
            shown += text[i];
        }
    }
    return shown;
}

}  // namespace qsn
