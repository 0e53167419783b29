// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace qsn {

/// Stands for standard input or output among the names.
constexpr const char* kStandardStream = "-";

/// A file of the system's temporary folder that is gone with this object.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& ending);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

/// Files as they are named; of folders all files whose ending is that of a format that is read, by name.
/// \throws UsageError  a folder without such a file
/// \throws Failure     a folder cannot be read
std::vector<std::string> ExpandInputs(const std::vector<std::string>& names);

/// Standard input as a file, which readers go through more than once.
/// \throws Interrupted, Failure
std::unique_ptr<TemporaryFile> SpoolStandardInput();

/// Writes a whole file to standard output. \throws Interrupted, Failure
void WriteFileToOutput(const std::string& path);

/// "folder/scan.qsn" and 2 give "folder/scan_2.qsn".
std::string NumberedName(const std::string& path, uint64_t number);

/// The name of an input without its folder and the ending of its format: "folder/scan.ptx.gz" gives "scan".
std::string StemOf(const std::string& path);

}  // namespace qsn
