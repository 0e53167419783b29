// SPDX-License-Identifier: MIT
#include "ConversionInputs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>

#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "OutputFile.h"
#include "kxexchange/ScanSource.h"

namespace qsn {

namespace fs = std::filesystem;

namespace {

constexpr size_t kPieceBytes = size_t{1} << 20;

}  // namespace

TemporaryFile::TemporaryFile(const std::string& ending) {
    std::random_device random;
    m_path =
        ToUtf8(fs::temp_directory_path() / fmt::format("qsn-{:08x}{:08x}{}", random(), random(), ending));
}

TemporaryFile::~TemporaryFile() {
    try {
        std::error_code ignored;  // it may never have been created
        fs::remove(ToPath(m_path), ignored);
    } catch (...) {
        // Without memory for a name the file stays.
    }
}

std::vector<std::string> ExpandInputs(const std::vector<std::string>& names) {
    std::vector<std::string> files;
    for (const std::string& name : names) {
        std::error_code error;
        if (name == kStandardStream || !fs::is_directory(ToPath(name), error)) {
            files.push_back(name);
            continue;
        }
        std::vector<std::string> found;
        for (fs::directory_iterator entry(ToPath(name), error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code ignored;  // what cannot be looked at is no scan
            if (entry->is_regular_file(ignored) && kxexchange::IsImportable(entry->path()))
                found.push_back(ToUtf8(entry->path()));
        }
        if (error) throw Failure(fmt::format("{}: {}", name, error.message()), ExitCannotOpen);
        if (found.empty()) throw UsageError(fmt::format("{}: no scan in this folder", name));
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

std::unique_ptr<TemporaryFile> SpoolStandardInput() {
    auto file = std::make_unique<TemporaryFile>("");
    std::ofstream out(ToPath(file->Path()), std::ios::binary);
    std::vector<char> piece(kPieceBytes);
    while (const size_t count = std::fread(piece.data(), 1, piece.size(), stdin)) {
        CheckInterrupt();
        out.write(piece.data(), static_cast<std::streamsize>(count));
        if (!out) break;
    }
    CheckInterrupt();
    out.close();
    if (!out) throw Failure(fmt::format("{}: cannot be written", file->Path()), ExitWriteFailed);
    if (std::ferror(stdin) != 0) throw Failure("standard input cannot be read", ExitCannotOpen);
    return file;
}

void WriteFileToOutput(const std::string& path) {
    std::ifstream in(ToPath(path), std::ios::binary);
    std::vector<char> piece(kPieceBytes);
    while (in) {
        CheckInterrupt();
        in.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        WriteOutput({piece.data(), static_cast<size_t>(in.gcount())});
    }
    FlushOutput();
}

std::string NumberedName(const std::string& path, uint64_t number) {
    const fs::path whole = ToPath(path);
    fs::path name = whole.stem();
    name += fmt::format("_{}", number);
    name += whole.extension();
    return ToUtf8(whole.parent_path() / name);
}

std::string StemOf(const std::string& path) {
    const std::string name = ToUtf8(ToPath(path).filename());
    size_t longest = 0;
    for (const kxexchange::SourceFormat& format : kxexchange::SourceFormats()) {
        for (const std::string_view ending : format.endings) {
            if (name.size() > ending.size() && HasEnding(name, ending))
                longest = std::max(longest, ending.size());
        }
    }
    if (longest == 0) return ToUtf8(ToPath(name).stem());
    return name.substr(0, name.size() - longest);
}

}  // namespace qsn
