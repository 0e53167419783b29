// SPDX-License-Identifier: MIT
#include "TemporaryFile.h"

#include <system_error>

#include "Paths.h"
#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/UUID.h"

namespace kxexchange {

TemporaryFile::~TemporaryFile() {
    if (!m_out) return;
    m_in.reset();
    m_out.reset();
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
}

void TemporaryFile::Write(uint64_t offset, const void* data, uint64_t bytes) {
    if (!m_out) {
        m_path = m_folder.empty() ? std::filesystem::temp_directory_path() : m_folder;
        m_path /= "kxio-" + kxbase::Encode_UTF8(kxbase::UUID::Generate().ToWString()) + ".part";
        auto out = std::make_unique<kxbase::kxOutFile>(WidePath(m_path));
        if (!out->IsOpen()) {
            kxbase::ErrorContext context;
            context.file = PathText(m_path);
            context.detail = "a temporary file is needed to put the scan in order";
            throw kxbase::KXFileNotOpenException("Cannot open file", context);
        }
        m_out = std::move(out);
    }
    if (!m_out->Seek(offset))
        throw kxbase::KXWritingException("Cannot write file", {PathText(m_path), {}, {}, offset, {}});
    m_out->Write(data, bytes);
}

void TemporaryFile::Read(uint64_t offset, void* out, uint64_t bytes) {
    if (!m_in) m_in = std::make_unique<kxbase::kxInFile>(WidePath(m_path));
    if (!m_in->Seek(offset) || m_in->Read(out, bytes) != bytes) {
        kxbase::ErrorContext context;
        context.file = PathText(m_path);
        context.offset = offset;
        throw kxbase::KXWritingException("Temporary file lost its data", context);
    }
}

}  // namespace kxexchange
