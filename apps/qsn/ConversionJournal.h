// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qsn {

/// Size and time of the last change of a file, as one text; empty when there is none.
std::string FileStamp(const std::filesystem::path& path);

/// What a conversion of several outputs has finished, so that it can go on after an interruption.
///
/// A hidden text file in the outputs' folder, named after a hash of the command and repeating the command in
/// full. A line per output tells source (size and time), scan, output name, and the output's size and time as
/// they were before it got its name, which renaming keeps. An output counts as finished only when all of this
/// still holds: a file that was changed, or comes from another source or command, never does. The journal is
/// removed when everything is done; it is not made for a single output.
class ConversionJournal {
public:
    /// \param folder   of the outputs
    /// \param command  all that shapes them
    ConversionJournal(const std::filesystem::path& folder, const std::string& command);

    /// Reads what an earlier run of the same command has left.
    void Load();
    /// The name of the output that this scan of the source became, if it is there and complete; else empty.
    std::string Finished(const std::string& source, uint64_t scan) const;
    /// Notes an output that is complete under the name `partial` and will be called `output`. Failure to
    /// write is no failure of the conversion.
    void Note(const std::string& source, uint64_t scan, const std::string& partial,
              const std::string& output);
    /// Everything is done.
    void Remove();

    const std::filesystem::path& Path() const { return m_path; }

private:
    struct Entry {
        std::string source, sourceStamp, output, outputStamp;
        uint64_t scan;
    };

    std::filesystem::path m_path;
    std::string m_command;
    std::vector<Entry> m_entries;
};

}  // namespace qsn
