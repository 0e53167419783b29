// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>

#include "kxbase/UTF8.h"
#include "kxbase/kxOutFile.h"
#include "support/Hex.h"

namespace kxtest {

/// A path of its own in the folder for temporary files, with content or not; removed at the end.
class TemporaryFile {
public:
    /// \param name  ends the file's name, so that a test can ask for odd characters or an extension
    explicit TemporaryFile(const std::wstring& name) {
        std::random_device random;
        const std::u8string folder = std::filesystem::temp_directory_path().u8string();
        m_path = kxbase::Decode_UTF8(std::string(folder.begin(), folder.end())) + L"/kxio_" +
                 std::to_wstring((uint64_t{random()} << 32) | random()) + L"_" + name;
    }
    TemporaryFile(const std::wstring& name, const Bytes& bytes) : TemporaryFile(name) { Write(bytes); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        const std::string utf8 = kxbase::Encode_UTF8(m_path);
        std::error_code ignored;
        std::filesystem::remove(std::filesystem::path(std::u8string(utf8.begin(), utf8.end())), ignored);
    }

    const std::wstring& Path() const { return m_path; }
    /// Replaces the content.
    void Write(const Bytes& bytes) const {
        kxbase::kxOutFile out(m_path);
        out.Write(bytes.data(), bytes.size());
        out.Close();
    }

private:
    std::wstring m_path;
};

}  // namespace kxtest
