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

}  // namespace

std::span<const ExitCodeMeaning> ExitCodeMeanings() {
    return kMeanings;
}

std::string DescribeError(const std::exception& error) {
    if (ExitCodeOf(error) == ExitInterrupted) return "interrupted";
    if (const auto* known = dynamic_cast<const kxbase::KXException*>(&error)) return known->Describe();
    if (Is<std::bad_alloc>(error)) return "not enough memory";
    if (const auto* files = dynamic_cast<const std::filesystem::filesystem_error*>(&error))
        return ToUtf8(files->path1()) + ": " + files->code().message();
    return error.what();
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
    if (const auto* system = dynamic_cast<const std::system_error*>(&error);
        system != nullptr && system->code() == std::errc::resource_unavailable_try_again)
        return ExitLimit;  // no memory for another thread
    if (Is<std::filesystem::filesystem_error>(error)) return ExitWriteFailed;
    return ExitDamaged;
}

}  // namespace qsn
