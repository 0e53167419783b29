// SPDX-License-Identifier: MIT
#include "OutputFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <system_error>

#include "Errors.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxOutFile.h"

namespace qsn {

namespace fs = std::filesystem;

namespace {

/// What file systems take for one name, not for the path as a whole.
constexpr size_t kMostNameBytes = 255;

fs::path FolderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

/// A short name: one that grows with the output's could be too long for the file system.
std::string PartialName(const fs::path& extension) {
    static std::atomic<unsigned> counter{0};
    std::random_device random;
    return fmt::format(".qsn-{:08x}-{}.part{}", random(), counter++, ToUtf8(extension));
}

}  // namespace

fs::path ToPath(const std::string& utf8) {
    return fs::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string ToUtf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

bool IsSameFile(const std::string& one, const std::string& other) {
    std::error_code ignored;  // a name that leads nowhere is not the same file
    return fs::equivalent(ToPath(one), ToPath(other), ignored);
}

bool HasEnding(const std::string& path, std::string_view ending) {
    // ASCII only: endings are, and the locale must not matter.
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return path.size() >= ending.size() && std::equal(ending.rbegin(), ending.rend(), path.rbegin(),
                                                      [&](char a, char b) { return lower(a) == lower(b); });
}

void RequireOutputAllowed(const std::string& path, bool force, const std::vector<std::string>& inputs) {
    for (const std::string& input : inputs) {
        if (path == input || IsSameFile(path, input))
            throw UsageError(fmt::format("{}: the output is the input itself", path));
    }
    if (!ToPath(path).has_filename())
        throw Failure(fmt::format("'{}': no name of a file", path), ExitWriteFailed);
    const size_t nameBytes = ToUtf8(ToPath(path).filename()).size();
    if (nameBytes > kMostNameBytes) {
        throw Failure(fmt::format("{}: a name of {} bytes; file systems take names of up to {}", path,
                                  nameBytes, kMostNameBytes),
                      ExitWriteFailed);
    }
    std::error_code error;
    const fs::file_status status = fs::status(ToPath(path), error);
    if (fs::exists(status)) {
        if (!fs::is_regular_file(status))
            throw Failure(fmt::format("{}: exists and is no regular file; choose another name", path),
                          ExitWriteFailed);
        if (!force)
            throw Failure(fmt::format("{}: exists already; --force replaces it", path), ExitWriteFailed);
    } else if (status.type() != fs::file_type::not_found) {
        throw Failure(fmt::format("{}: {}", path, error.message()), ExitWriteFailed);
    }
    const fs::path folder = FolderOf(ToPath(path));
    if (!fs::is_directory(folder, error))
        throw Failure(fmt::format("{}: the folder {} does not exist", path, ToUtf8(folder)), ExitWriteFailed);
}

OutputFile::OutputFile(const std::string& path, bool force, const std::vector<std::string>& inputs)
    : m_path(path), m_inputs(inputs), m_force(force) {
    RequireOutputAllowed(path, force, inputs);
    const fs::path whole = ToPath(path);
    m_partialPath = ToUtf8(FolderOf(whole) / PartialName(whole.extension()));
}

OutputFile::~OutputFile() {
    try {
        std::error_code ignored;  // it may never have been created
        if (!m_committed) fs::remove(ToPath(m_partialPath), ignored);
    } catch (...) {
        // Without memory for a name the file stays.
    }
}

void OutputFile::RethrowWithPath(const kxbase::KXException& error) const {
    const ExitCode code = ExitCodeOf(error);
    if (code == ExitInterrupted) return;
    std::string text = error.Describe();
    const size_t at = text.find(m_partialPath);
    if (at == std::string::npos) return;
    // Whatever failed with this file is a failure to write it.
    const bool opening = dynamic_cast<const kxbase::KXFileNotOpenException*>(&error) != nullptr;
    throw Failure(text.replace(at, m_partialPath.size(), m_path), opening ? ExitWriteFailed : code);
}

void OutputFile::Write(std::span<const unsigned char> bytes) const {
    Guard([&] {
        kxbase::kxOutFile out(kxbase::Decode_UTF8(m_partialPath));
        if (!out.IsOpen()) throw Failure(m_path + ": cannot be written", ExitWriteFailed);
        out.Write(bytes.data(), bytes.size());
        out.Close();
    });
}

void OutputFile::Commit() {
    CommitAs(m_path);
}

void OutputFile::CommitAs(const std::string& path) {
    RequireOutputAllowed(path, m_force, m_inputs);  // again: the work may have taken hours
    // A name may reach the medium before the bytes that it stands for.
    Guard([&] {
        kxbase::kxOutFile written(kxbase::Decode_UTF8(m_partialPath), kxbase::kxOutFile::KeepContent);
        if (!written.IsOpen()) {
            throw Failure(fmt::format("{}: cannot be given its name: what was written is gone", path),
                          ExitWriteFailed);
        }
        written.Sync();
        written.Close();
    });
    std::error_code error;
    fs::rename(ToPath(m_partialPath), ToPath(path), error);
    if (error)
        throw Failure(fmt::format("{}: cannot be given its name: {}", path, error.message()),
                      ExitWriteFailed);
    m_committed = true;
}

}  // namespace qsn
