// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "kxbase/kxOutFile.h"

namespace kxtest {

/// Writes a file. \returns its path
inline std::wstring StoreFile(const std::wstring& path, const std::vector<unsigned char>& bytes) {
    kxbase::kxOutFile out(path);
    out.Write(bytes.data(), bytes.size());
    out.Close();
    return path;
}

/// The bytes of a file; empty when there is none.
inline std::vector<unsigned char> LoadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace kxtest
