// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kxbase/Exceptions.h"

namespace qsn {

/// A path of UTF-8 text, whatever the locale; and back.
std::filesystem::path ToPath(const std::string& utf8);
std::string ToUtf8(const std::filesystem::path& path);

/// True when both names lead to one existing file.
bool IsSameFile(const std::string& one, const std::string& other);

/// True when the path ends with `ending` (".png"), in upper or lower case.
bool HasEnding(const std::string& path, std::string_view ending);

/// Refuses an output before any work is done.
/// \param path    the name asked for, UTF-8
/// \param inputs  files that must not be replaced
/// \throws UsageError when `path` is one of the inputs
/// \throws Failure    when it exists and `force` is false, is no regular file, or its folder is missing
void RequireOutputAllowed(const std::string& path, bool force, const std::vector<std::string>& inputs);

/// A file that appears under its name only when it is complete.
///
/// Until `Commit` the content lies in a hidden file of the same folder, which the destructor removes:
/// neither a failure nor an interruption leaves half a file, and neither costs the file that was there.
class OutputFile {
public:
    /// \throws as RequireOutputAllowed
    OutputFile(const std::string& path, bool force, const std::vector<std::string>& inputs);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& Path() const { return m_path; }
    /// Where to write; has the same extension as the path.
    const std::string& PartialPath() const { return m_partialPath; }
    /// Makes `bytes` the content. \throws Failure when they cannot be written
    void Write(std::span<const unsigned char> bytes) const;
    /// Gives the file its name. \throws Failure
    void Commit();
    /// Gives the file another name of the same folder instead. \throws as RequireOutputAllowed
    void CommitAs(const std::string& path);

    /// Does `write`; a library's error that names the partial file comes out naming the path asked for.
    /// \throws Failure for such an error, and what else `write` throws
    template <class Write>
    auto Guard(Write write) const {
        try {
            return write();
        } catch (const kxbase::KXException& error) {
            RethrowWithPath(error);
            throw;
        }
    }

private:
    void RethrowWithPath(const kxbase::KXException& error) const;

    std::string m_path;
    std::string m_partialPath;
    std::vector<std::string> m_inputs;
    bool m_force;
    bool m_committed = false;
};

}  // namespace qsn
