// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace kxexchange {

/// UTF-8 of a path.
std::string PathText(const std::filesystem::path& path);

/// The path of a UTF-8 text.
std::filesystem::path TextPath(const std::string& text);

/// A path as the streams want it.
std::wstring WidePath(const std::filesystem::path& path);

/// ASCII letters lowered, whatever the locale.
std::string LowerCase(std::string text);

/// A file that is written under a temporary name beside its target, so that nobody ever sees half of it
/// under the target's name. Removed unless committed.
class PendingFile {
public:
    explicit PendingFile(std::filesystem::path target);
    ~PendingFile();
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    /// The temporary name.
    const std::filesystem::path& Path() const { return m_path; }
    /// Gives the file, closed by now, its name; an older file of that name is replaced.
    /// \throws kxbase::KXWritingException
    void Commit();

private:
    std::filesystem::path m_target;
    std::filesystem::path m_path;
    bool m_committed = false;
};

}  // namespace kxexchange
