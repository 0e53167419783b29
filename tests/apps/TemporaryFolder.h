// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace qsn {

/// An empty folder of its own for one test, removed afterwards.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::random_device random;
        m_path = std::filesystem::temp_directory_path() / ("qsn-test-" + std::to_string(random()));
        std::filesystem::create_directories(m_path);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    /// The path of a file in it, UTF-8.
    std::string File(const std::string& name) const { return m_path.string() + "/" + name; }
    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(File(name), std::ios::binary) << content;
        return File(name);
    }
    std::string Read(const std::string& name) const {
        std::ifstream in(File(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    bool Has(const std::string& name) const { return std::filesystem::exists(File(name)); }
    /// Names of everything in it, sorted.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    /// Every file in it by its name, with its bytes.
    std::map<std::string, std::string> Contents() const {
        std::map<std::string, std::string> contents;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            if (!entry.is_regular_file()) continue;
            const std::string name = entry.path().filename().string();
            contents[name] = Read(name);
        }
        return contents;
    }

private:
    std::filesystem::path m_path;
};

}  // namespace qsn
