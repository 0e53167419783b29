// SPDX-License-Identifier: MIT
#include "Errors.h"

#include <filesystem>
#include <new>

#include "OutputFile.h"
#include "kxbase/Exceptions.h"
#include "kxexchange/Errors.h"

namespace qsn {

std::string DescribeError(const std::exception& error) {
    if (ExitCodeOf(error) == ExitInterrupted) return "interrupted";
    if (const auto* known = dynamic_cast<const kxbase::KXException*>(&error)) return known->Describe();
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return "not enough memory";
    if (const auto* files = dynamic_cast<const std::filesystem::filesystem_error*>(&error))
        return ToUtf8(files->path1()) + ": " + files->code().message();
    return error.what();
}

ExitCode ExitCodeOf(const std::exception& error) {
    if (dynamic_cast<const Interrupted*>(&error) != nullptr) return ExitInterrupted;
    if (dynamic_cast<const kxexchange::CancelledException*>(&error) != nullptr) return ExitInterrupted;
    if (dynamic_cast<const UsageError*>(&error) != nullptr) return ExitWrongUsage;
    return ExitFailed;
}

}  // namespace qsn
