// SPDX-License-Identifier: MIT
// Command lines. The input is a list of words, one after each zero byte; a word of one byte stands for a word
// of the program's own or the name of one of the files that are there. All else is taken as it is, without
// '/'.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "Command.h"
#include "FuzzCheck.h"
#include "kxbase/UTF8.h"
#include "kxcodecs/JPEG.h"
#include "support/StoredFile.h"
#include "support/TinyScan.h"

namespace {

constexpr std::array kWords = {"box",
                               "convert",
                               "diff",
                               "dump",
                               "edit",
                               "export",
                               "histogram",
                               "import",
                               "info",
                               "locate",
                               "lod",
                               "parts",
                               "preview",
                               "protect",
                               "recode",
                               "recover",
                               "stats",
                               "thumbnail",
                               "verify",
                               "tiny.qsn",
                               "cut.qsn",
                               "out.qsn",
                               "out.ptx",
                               "out.e57",
                               "out.ply",
                               "out.pcd",
                               "out.png",
                               "out.xyz",
                               "in.ptx",
                               "in.jpg",
                               "none",
                               "--help",
                               "0",
                               "1",
                               "2",
                               "5",
                               "0,0",
                               "1,1",
                               "on",
                               "off",
                               "hello",
                               "range",
                               "intensity",
                               "zlib",
                               "grid",
                               "0.1",
                               "-0.5",
                               "nan",
                               "1e300",
                               "1 2 3",
                               "{}",
                               "[",
                               "--angle-precision",
                               "--ascii",
                               "--cell",
                               "--cells",
                               "--codec",
                               "--color",
                               "--column",
                               "--component",
                               "--coordinates",
                               "--damaged",
                               "--decimals",
                               "--deep",
                               "--direction",
                               "--dry-run",
                               "--entries",
                               "--fast",
                               "--from",
                               "--full",
                               "--json",
                               "--level",
                               "--local",
                               "--no-color",
                               "--no-decode",
                               "--no-hashes",
                               "--no-intensity",
                               "--only-returns",
                               "--patch",
                               "--plain",
                               "--plane",
                               "--point",
                               "--quick",
                               "--registered",
                               "--registration",
                               "--regrid",
                               "--row",
                               "--scale",
                               "--scan",
                               "--set",
                               "--size",
                               "--small",
                               "--speckle",
                               "--strict",
                               "--threads",
                               "--to",
                               "--tolerance",
                               "--force",
                               "--quiet",
                               "--verbose",
                               "--message",
                               "--warning",
                               "--version"};

class Folder {
public:
    Folder() {
        m_path = std::filesystem::temp_directory_path() / ("fuzz-command-" + std::to_string(::getpid()));
        std::filesystem::create_directories(m_path);
        std::filesystem::current_path(m_path);
        // Sizes of progress and colours must not depend on where the fuzzer runs.
        ::setenv("NO_COLOR", "1", 1);
        ::setenv("OMP_NUM_THREADS", "1", 1);
        m_tiny = kxtest::TinyScan().Build();
        m_cut.assign(m_tiny.begin(), m_tiny.begin() + 600);
        const std::string ptx =
            "2\n2\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n"
            "1 0 0 0.5\n1 0 1 0.5\n0 1 0 0.5\n0 1 1 0.5\n";
        m_ptx.assign(ptx.begin(), ptx.end());
        kxcodecs::JPEG::Encode(kxtest::Bytes(192, 90).data(), 8, 8, 50, m_jpeg);
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::current_path(std::filesystem::temp_directory_path(), ignored);
        std::filesystem::remove_all(m_path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    void Fill() const {
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            std::error_code ignored;
            std::filesystem::remove_all(entry.path(), ignored);
        }
        kxtest::StoreFile(L"tiny.qsn", m_tiny);
        kxtest::StoreFile(L"cut.qsn", m_cut);
        kxtest::StoreFile(L"in.ptx", m_ptx);
        kxtest::StoreFile(L"in.jpg", m_jpeg);
    }
    /// Whether the files that are there are as they were; the scan aside where it may be edited.
    bool Unchanged(bool scanAside) const {
        return (scanAside || kxtest::LoadFile("tiny.qsn") == m_tiny) &&
               (scanAside || kxtest::LoadFile("cut.qsn") == m_cut) && kxtest::LoadFile("in.ptx") == m_ptx &&
               kxtest::LoadFile("in.jpg") == m_jpeg;
    }

private:
    std::filesystem::path m_path;
    kxtest::Bytes m_tiny;
    kxtest::Bytes m_cut;
    kxtest::Bytes m_ptx;
    kxtest::Bytes m_jpeg;
};

/// What the program says goes nowhere; what the fuzzer says stays.
class Silence {
public:
    Silence() : m_out(::dup(1)), m_error(::dup(2)) {
        const int nowhere = ::open("/dev/null", O_WRONLY);
        ::dup2(nowhere, 1);
        ::dup2(nowhere, 2);
        ::close(nowhere);
    }
    ~Silence() {
        std::fflush(nullptr);
        ::dup2(m_out, 1);
        ::dup2(m_error, 2);
        ::close(m_out);
        ::close(m_error);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    int m_out;
    int m_error;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Folder folder;
    folder.Fill();
    std::vector<std::string> words;
    std::string word;
    const auto end = [&] {
        if (word.size() == 1) word = kWords[static_cast<unsigned char>(word[0]) % kWords.size()];
        words.push_back(word);
        word.clear();
    };
    for (size_t i = 0; i < size && words.size() < 24; ++i) {
        if (data[i] == 0) {
            end();
        } else if (data[i] != '/' && !(data[i] == '.' && word.ends_with('.'))) {  // no way out of the folder
            word += static_cast<char>(data[i]);
        }
    }
    if (!word.empty()) end();
    // Standard output and input as files would end the fuzzer or wait for ever.
    std::erase(words, "-");
    // A limit on memory would stay, and the fuzzer needs more.
    std::erase_if(words, [](const std::string& w) { return w.starts_with("--limit-memory"); });
    int code = 0;
    {
        const Silence silence;
        code = qsn::RunCommandLine(words);
    }
    Require(code >= 0 && code <= 8, "the exit code is one of those that are documented");
    const auto has = [&](auto... any) {
        return std::any_of(words.begin(), words.end(),
                           [&](const std::string& w) { return (... || (w == any)); });
    };
    const bool mayReplace = std::any_of(words.begin(), words.end(), [](const std::string& w) {
        return w.starts_with("--force") ||
               (w.size() > 1 && w[0] == '-' && w[1] != '-' && w.find('f') != w.npos);
    });
    Require(mayReplace || folder.Unchanged(has("edit", "protect", "thumbnail")),
            "nothing that is there is changed unless that was asked for");
    return 0;
}
