// SPDX-License-Identifier: MIT
#include "Paths.h"

#include <random>
#include <system_error>

#include "kxbase/Exceptions.h"
#include "kxbase/UTF8.h"
#include "kxbase/kxOutFile.h"

namespace kxexchange {

namespace {

// What file systems allow for one name.
constexpr size_t kMostNameBytes = 255;

// The first bytes of a UTF-8 text, cut between two characters.
std::string Shortened(const std::string& text, size_t bytes) {
    if (text.size() <= bytes) return text;
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xc0) == 0x80)
        --bytes;
    return text.substr(0, bytes);
}

// A name that no other file has: two exports to one target do not write into each other.
std::filesystem::path TemporaryName(const std::filesystem::path& target) {
    constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    constexpr int kTries = 100;
    std::random_device random;
    std::filesystem::path path;
    for (int i = 0; i < kTries; ++i) {
        std::string ending = ".part-";
        for (int digit = 0; digit < 8; ++digit)
            ending += kDigits[random() % 36];
        path = target.parent_path() /
               TextPath(Shortened(PathText(target.filename()), kMostNameBytes - ending.size()) + ending);
        std::error_code error;
        if (!std::filesystem::exists(path, error)) break;
    }
    return path;
}

}  // namespace

std::string PathText(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

std::filesystem::path TextPath(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::wstring WidePath(const std::filesystem::path& path) {
    return kxbase::Decode_UTF8(PathText(path));
}

std::string LowerCase(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

PendingFile::PendingFile(std::filesystem::path target)
    : m_target(std::move(target)), m_path(TemporaryName(m_target)) {}

PendingFile::~PendingFile() {
    if (m_committed) return;
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
}

void PendingFile::Commit() {
    // A name may reach the medium before the bytes that it stands for.
    kxbase::kxOutFile written(WidePath(m_path), kxbase::kxOutFile::KeepContent);
    if (!written.IsOpen()) {
        kxbase::ErrorContext context;
        context.file = PathText(m_target);
        context.detail = "what was written cannot be opened again";
        throw kxbase::KXWritingException("Cannot write file", context);
    }
    written.Sync();
    written.Close();
    std::error_code error;
    std::filesystem::rename(m_path, m_target, error);
    if (error) {
        kxbase::ErrorContext context;
        context.file = PathText(m_target);
        context.detail = error.message();
        throw kxbase::KXWritingException("Cannot write file", context);
    }
    m_committed = true;
}

}  // namespace kxexchange
