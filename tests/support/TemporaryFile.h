// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kxbase/kxOutFile.h"
#include "support/Hex.h"
#include "support/TempFolder.h"

namespace kxtest {

/// One file in a folder of its own, removed at the end; its name may hold any character.
class TemporaryFile {
public:
    /// Only a path: no file yet.
    explicit TemporaryFile(const std::wstring& name) : m_path(Wide(m_folder.Path()) + L"/" + name) {}
    TemporaryFile(const std::wstring& name, const Bytes& bytes) : TemporaryFile(name) { Write(bytes); }

    const std::wstring& Path() const { return m_path; }
    /// Creates the file or replaces its content.
    void Write(const Bytes& bytes) const {
        kxbase::kxOutFile out(m_path);
        out.Write(bytes.data(), bytes.size());
        out.Close();
    }

private:
    TempFolder m_folder;
    std::wstring m_path;
};

}  // namespace kxtest
