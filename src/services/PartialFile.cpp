// SPDX-License-Identifier: MIT
#include "services/PartialFile.h"

#include <system_error>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/UUID.h"

namespace kxio {

namespace {

namespace fs = std::filesystem;

kxbase::ErrorContext Context(const std::wstring& path, std::string detail) {
    kxbase::ErrorContext context;
    context.file = kxbase::Encode_UTF8(path);
    context.detail = std::move(detail);
    return context;
}

// A hidden name of its own, short whatever the output is called.
std::wstring PathBeside(const std::wstring& output) {
    const std::wstring name = L"." + kxbase::UUID::Generate().ToWString() + L".partial";
    const std::u8string path = (SystemPath(output).parent_path() / SystemPath(name)).u8string();
    return kxbase::Decode_UTF8(std::string(path.begin(), path.end()));
}

}  // namespace

fs::path SystemPath(const std::wstring& path) {
    const std::string text = kxbase::Encode_UTF8(path);
    return {std::u8string(text.begin(), text.end())};
}

PartialFile::PartialFile(const std::wstring& output)
    : m_output(output),
      m_path(PathBeside(output)),
      m_systemPath(SystemPath(m_path)),
      m_file(std::make_unique<kxbase::kxOutFile>(m_path)) {
    if (!m_file->IsOpen()) {
        throw kxbase::KXFileNotOpenException("Cannot file not open",
                                             Context(output, "nothing can be written into its folder"));
    }
}

PartialFile::~PartialFile() {
    if (!m_file) return;
    m_file.reset();
    std::error_code ignored;
    fs::remove(m_systemPath, ignored);
}

void PartialFile::Complete() {
    // A name may reach the medium before the bytes that it stands for.
    if (m_file->IsOpen()) m_file->Sync();
    m_file->Close();
    std::error_code error;
    fs::rename(m_systemPath, SystemPath(m_output), error);
    if (error) throw kxbase::KXWritingException("Cannot write file", Context(m_output, error.message()));
    m_file.reset();
}

}  // namespace kxio
