// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "kxbase/kxInFile.h"
#include "kxbase/kxOutFile.h"

namespace kxexchange {

/// A file of one's own in a folder (empty: the system's for temporary files), made on first use and removed
/// with the object.
class TemporaryFile {
public:
    explicit TemporaryFile(std::filesystem::path folder) : m_folder(std::move(folder)) {}
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool Exists() const { return m_out != nullptr; }
    /// \throws kxbase::KXWritingException, kxbase::KXFileNotOpenException
    void Write(uint64_t offset, const void* data, uint64_t bytes);
    /// Reads exactly so many bytes. \throws kxbase::KXWritingException  they are not there any more
    void Read(uint64_t offset, void* out, uint64_t bytes);

private:
    std::filesystem::path m_folder;
    std::filesystem::path m_path;
    std::unique_ptr<kxbase::kxOutFile> m_out;
    std::unique_ptr<kxbase::kxInFile> m_in;
};

}  // namespace kxexchange
