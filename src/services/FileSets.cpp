// SPDX-License-Identifier: MIT
// The file-set members of QSNInfo: which files beside a scan belong to it, told from names alone.
#include <algorithm>
#include <filesystem>
#include <regex>
#include <stdexcept>
#include <vector>

#include "kxbase/UTF8.h"
#include "kxio/QSNInfo.h"

namespace kxio {

namespace {

bool IsSeparator(wchar_t c) {
    return c == L'/' || c == L'\\';
}

struct SplitPath {
    std::wstring directory;  // with its closing separator; empty when the path has none
    std::wstring name;
    wchar_t separator = L'/';
};

SplitPath Split(const std::wstring& path) {
    const size_t last = path.find_last_of(L"/\\");
    if (last == std::wstring::npos) return {L"", path, L'/'};
    return {path.substr(0, last + 1), path.substr(last + 1), path[last]};
}

// Where the extension begins: the last dot, unless it is the first character or the name is "." or "..".
size_t ExtensionPlace(const std::wstring& name) {
    const size_t dot = name.rfind(L'.');
    if (dot == std::wstring::npos || dot == 0 || name == L"..") return name.size();
    return dot;
}

std::wstring Stem(const std::wstring& name) {
    return name.substr(0, ExtensionPlace(name));
}
std::wstring Extension(const std::wstring& path) {
    const std::wstring name = Split(path).name;
    return name.substr(ExtensionPlace(name));
}

// The narrow form of an extension; a lone surrogate has none.
std::string Narrow(const std::wstring& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<uint32_t>(text[i]);
        const bool high = c >= 0xD800 && c <= 0xDBFF;
        const bool low = c >= 0xDC00 && c <= 0xDFFF;
        const bool paired = sizeof(wchar_t) == 2 && high && i + 1 < text.size() &&
                            static_cast<uint32_t>(text[i + 1]) >= 0xDC00 &&
                            static_cast<uint32_t>(text[i + 1]) <= 0xDFFF;
        if (paired) {
            ++i;
        } else if (high || low) {
            throw std::range_error("file extension cannot be converted: lone surrogate");
        }
    }
    return kxbase::Encode_UTF8(text);
}

std::vector<std::wstring> Elements(const std::wstring& path) {
    std::vector<std::wstring> elements(1);
    for (const wchar_t c : path) {
        if (IsSeparator(c)) {
            elements.emplace_back();
        } else {
            elements.back() += c;
        }
    }
    return elements;
}

// The main file leads; all others follow in plain path order, without numeric ordering of part numbers.
bool ComesBefore(const std::wstring& a, const std::wstring& b) {
    const std::wstring extensionA = Extension(a);
    const std::wstring extensionB = Extension(b);
    if (extensionA != extensionB) {
        if (Narrow(extensionA) == ".qsn") return true;
        if (Narrow(extensionB) == ".qsn") return false;
    }
    return Elements(a) < Elements(b);
}

std::filesystem::path NativeDirectory(const SplitPath& split) {
    if (split.directory.empty()) return ".";
#ifdef _WIN32
    return split.directory;
#else
    std::wstring slashes = split.directory;
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    return kxbase::Encode_UTF8(slashes);
#endif
}

std::wstring NativeName(const std::filesystem::path& entry) {
#ifdef _WIN32
    return entry.filename().wstring();
#else
    return kxbase::Decode_UTF8(entry.filename().string());
#endif
}

// Every entry beside `path` with the same stem, the file itself included, in set order.
std::vector<std::wstring> ListSet(const std::wstring& path) {
    const SplitPath split = Split(path);
    const std::wstring stem = Stem(split.name);
    std::vector<std::wstring> set;
    for (const auto& entry : std::filesystem::directory_iterator(NativeDirectory(split))) {
        const std::wstring name = NativeName(entry.path());
        if (Stem(name) == stem) set.push_back(split.directory + name);
    }
    if (set.size() > 1) std::sort(set.begin(), set.end(), ComesBefore);
    return set;
}

}  // namespace

std::list<std::wstring> QSNInfo::GetAllDependencyFileList(const std::wstring& path) {
    const std::vector<std::wstring> own = Elements(path);
    std::list<std::wstring> others;
    for (const std::wstring& file : ListSet(path)) {
        if (Elements(file) != own) others.push_back(file);
    }
    return others;
}

std::list<std::wstring> QSNInfo::GetQSNtoMergeList(const std::wstring& path) {
    const std::regex pattern(".qsn[0-9]*");
    std::list<std::wstring> parts;
    for (const std::wstring& file : GetAllDependencyFileList(path)) {
        if (std::regex_match(Narrow(Extension(file)), pattern)) parts.push_back(file);
    }
    return parts;
}

bool QSNInfo::IsMergeNeeded(const std::wstring& path) {
    return !GetQSNtoMergeList(path).empty();
}

}  // namespace kxio
