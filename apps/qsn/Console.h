// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qsn {

/// The program's arguments as UTF-8, without its own name, whatever the locale.
std::vector<std::string> ArgumentsAsUtf8(int count, char** values);

/// True when standard error is a terminal that understands carriage returns.
bool ErrorIsTerminal();

/// Columns of the terminal behind standard error; 80 when it does not tell.
unsigned ErrorTerminalColumns();

/// Data: written to standard output as it is.
/// \throws Failure when not all of it could be written
void WriteOutput(std::string_view text);

/// Hands what standard output still holds to the system.
/// \throws Failure when that fails, for example on a full disk
void FlushOutput();

/// Everything else: to standard error.
void WriteError(std::string_view text);

/// "qsn: " and the text, printable, as a line on standard error; the word is coloured where that is wanted.
void WriteFailure(std::string_view text);

/// `text` with control characters (of a file's own texts) shown as \xNN: what a file says must not
/// steer the terminal. Line ends become " ".
std::string Printable(std::string_view text);

}  // namespace qsn
