// SPDX-License-Identifier: MIT
#include "Errors.h"

#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>

#include "OutputFile.h"
#include "kxbase/Exceptions.h"
#include "kxexchange/Errors.h"
#include "kxexchange/Regrid.h"

namespace qsn {

namespace fs = std::filesystem;

namespace {

constexpr ExitCodeMeaning kMeanings[] = {
    {ExitFine, "fine"},
    {ExitDifferent, "differences, findings, or warnings under --strict"},
    {ExitWrongUsage, "wrong usage, or something asked that the file does not have"},
    {ExitCannotOpen, "an input cannot be opened"},
    {ExitUnknownFormat, "not this format, or an unsupported version"},
    {ExitDamaged, "damaged, and nothing usable"},
    {ExitPartial, "damaged, and a partial result was written"},
    {ExitWriteFailed, "an output cannot be written, or exists and --force is missing"},
    {ExitLimit, "a limit was reached"},
    {ExitInterrupted, "interrupted; nothing half-written is left"},
};

template <class Exception>
bool Is(const std::exception& error) {
    return dynamic_cast<const Exception*>(&error) != nullptr;
}

ExitCode CodeOfLibraryError(const kxbase::KXException& error) {
    const auto says = [&](const char* text) { return std::strcmp(error.what(), text) == 0; };
    if (Is<kxbase::KXWritingException>(error)) return ExitWriteFailed;
    if (Is<kxbase::KXFileNotOpenException>(error))
        return says("Cannot open file") ? ExitCannotOpen : ExitWriteFailed;
    if (Is<kxbase::KXHeaderReadingException>(error)) {
        if (says("Cannot open file")) return ExitCannotOpen;
        // A file that does not even begin like a scan; one whose first record is cut short is a damaged one.
        const std::string& field = error.Context().field;
        if (says("Invalid main header"))
            return field == "tag" || field == "frame" ? ExitUnknownFormat : ExitDamaged;
        if (std::strncmp(error.what(), "Unsupported ", 12) == 0) return ExitUnknownFormat;
        return ExitDamaged;
    }
    if (Is<kxbase::KXUnkownCodecException>(error) || Is<kxbase::KXHeaderOperationException>(error))
        return ExitUnknownFormat;
    if (Is<kxbase::KXWrongDataSizeofException>(error))
        return std::strstr(error.what(), "too large") != nullptr ? ExitLimit : ExitWrongUsage;
    if (Is<kxbase::KXComponentNotInFileException>(error) || Is<kxbase::KXUnkownComponentException>(error) ||
        Is<kxbase::KXBadInputException>(error) || Is<kxbase::KXIndexOutOfBoundsException>(error))
        return ExitWrongUsage;
    return ExitDamaged;
}

bool IsLackOfThreads(const std::exception& error) {
    const auto* system = dynamic_cast<const std::system_error*>(&error);
    return system != nullptr && system->code() == std::errc::resource_unavailable_try_again;
}

/// Behind the message of the library, for people who know nothing of tags and frames.
std::string WhatThatMeans(const kxbase::KXException& error) {
    const ExitCode code = CodeOfLibraryError(error);
    if (code == ExitUnknownFormat && std::strcmp(error.what(), "Invalid main header") == 0)
        return ": this is no .qsn file";
    if (code != ExitCannotOpen || error.Context().file.empty()) return {};
    std::error_code problem;
    const fs::file_status status = fs::status(ToPath(error.Context().file), problem);
    if (status.type() == fs::file_type::not_found) return ": there is no such file";
    if (fs::is_directory(status)) return ": this is a folder";
    return problem ? ": " + problem.message() : ": it may not be read";
}

}  // namespace

std::span<const ExitCodeMeaning> ExitCodeMeanings() {
    return kMeanings;
}

std::string DescribeError(const std::exception& error) {
    if (ExitCodeOf(error) == ExitInterrupted) return "interrupted";
    if (const auto* known = dynamic_cast<const kxbase::KXException*>(&error))
        return known->Describe() + WhatThatMeans(*known);
    if (Is<std::bad_alloc>(error)) return "not enough memory";
    if (IsLackOfThreads(error)) return "not enough memory for another thread";
    if (const auto* files = dynamic_cast<const std::filesystem::filesystem_error*>(&error))
        return ToUtf8(files->path1()) + ": " + files->code().message();
    return error.what();
}

std::string AdviceFor(const std::exception& error) {
    const auto* known = dynamic_cast<const kxbase::KXException*>(&error);
    if (known == nullptr || CodeOfLibraryError(*known) != ExitDamaged) return {};
    if (!known->Context().file.ends_with(".qsn")) return {};
    return "'qsn verify' tells what is damaged, 'qsn recover' saves what survives.";
}

ExitCode ExitCodeOf(const std::exception& error) {
    if (Is<Interrupted>(error) || Is<kxexchange::CancelledException>(error)) return ExitInterrupted;
    if (Is<UsageError>(error)) return ExitWrongUsage;
    if (const auto* ended = dynamic_cast<const Ended*>(&error)) return ended->Code();
    if (const auto* failure = dynamic_cast<const Failure*>(&error)) return failure->Code();
    if (Is<kxexchange::LossException>(error)) return ExitDifferent;
    if (Is<kxexchange::NotOneStationException>(error)) return ExitUnknownFormat;
    if (const auto* known = dynamic_cast<const kxbase::KXException*>(&error))
        return CodeOfLibraryError(*known);
    if (Is<std::bad_alloc>(error)) return ExitLimit;
    if (IsLackOfThreads(error)) return ExitLimit;
    if (Is<std::filesystem::filesystem_error>(error)) return ExitWriteFailed;
    return ExitDamaged;
}

}  // namespace qsn
