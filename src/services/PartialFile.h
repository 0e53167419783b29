// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "kxbase/kxOutFile.h"

namespace kxio {

/// The path as the file system takes it.
std::filesystem::path SystemPath(const std::wstring& path);

/// A file beside the output that becomes it when it is complete, and is removed otherwise.
class PartialFile {
public:
    /// \throws kxbase::KXFileNotOpenException "Cannot file not open": nothing can be written beside `output`
    explicit PartialFile(const std::wstring& output);
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    kxbase::kxOutFile& File() { return *m_file; }
    /// Where it lies until it is complete.
    const std::wstring& Path() const { return m_path; }
    /// Brings the file to the medium, closes it and gives it its name.
    /// \throws kxbase::KXWritingException "Cannot write file"
    void Complete();

private:
    std::wstring m_output;
    std::wstring m_path;
    std::filesystem::path m_systemPath;         // of it, made while it may fail: the destructor must not
    std::unique_ptr<kxbase::kxOutFile> m_file;  // none once the file has its name
};

}  // namespace kxio
