// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>

/// Where a program that makes seeds puts them: the folder that its one argument names.
class SeedFolder {
public:
    /// Ends the program when there is not one argument.
    SeedFolder(int argc, char** argv) {
        if (argc != 2) {
            std::fprintf(stderr, "usage: %s FOLDER\n", argc > 0 ? argv[0] : "seeds");
            std::exit(2);
        }
        m_folder = argv[1];
        std::filesystem::create_directories(m_folder);
    }
    const std::filesystem::path& Path() const { return m_folder; }

    /// Writes one seed; `name` may lead through folders, which are made.
    /// \throws std::runtime_error  it cannot be written
    void operator()(const std::string& name, std::span<const unsigned char> bytes) const {
        std::filesystem::create_directories((m_folder / name).parent_path());
        std::ofstream file(m_folder / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        file.close();
        if (!file) throw std::runtime_error("cannot write " + name);
    }

private:
    std::filesystem::path m_folder;
};
