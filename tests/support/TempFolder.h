// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "kxbase/UUID.h"

/// A folder of its own for one test, removed with everything in it at the end.
class TempFolder {
public:
    TempFolder() {
        std::string name = "kxbase-";
        for (const wchar_t c : kxbase::UUID::Generate().ToWString())
            name += static_cast<char>(c);
        m_path = std::filesystem::path(testing::TempDir()) / name;
        std::filesystem::create_directories(m_path);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};

/// The wide form of a path whose bytes are ASCII.
inline std::wstring Wide(const std::filesystem::path& path) {
    const std::string narrow = path.string();
    return std::wstring(narrow.begin(), narrow.end());
}
