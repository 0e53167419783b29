// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <clocale>
#include <csignal>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "kxbase/Exceptions.h"
#include "kxbase/kxInFile.h"
#include "kxbase/kxOutFile.h"
#include "support/TempFolder.h"

namespace kxbase {
namespace {

namespace fs = std::filesystem;

std::string Slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void Spill(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

TEST(kxInFile, MissingFileIsNotOpen) {
    const TempFolder folder;
    kxInFile in(Wide(folder / "missing"));
    EXPECT_FALSE(in.IsOpen());
    char byte = 'x';
    EXPECT_EQ(in.Read(&byte, 1), 0u);
    EXPECT_EQ(in.GetLastReadCount(), 0u);
    EXPECT_FALSE(in.HasDataLeft());
    EXPECT_NO_THROW(in.Close());
    EXPECT_FALSE(fs::exists(folder / "missing"));
}

TEST(kxInFile, DirectoryIsNotOpen) {
    const TempFolder folder;
    EXPECT_FALSE(kxInFile(Wide(folder.Path())).IsOpen());
    EXPECT_FALSE(kxInFile(L"").IsOpen());
}

TEST(kxInFile, PipeAndDeviceAreNotOpenAndDoNotBlock) {
    const TempFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(kxInFile(Wide(folder / "pipe")).IsOpen());
    EXPECT_FALSE(kxInFile(L"/dev/zero").IsOpen());
}

TEST(kxInFile, PathWithAnEmbeddedNulIsNotOpen) {
    const TempFolder folder;
    Spill(folder / "a", "content");
    EXPECT_FALSE(kxInFile(Wide(folder / "a") + std::wstring(L"\0b", 2)).IsOpen());
}

TEST(kxInFile, ReadsAreShortAtTheEndAndCounted) {
    const TempFolder folder;
    Spill(folder / "f", "0123456789");
    kxInFile in(Wide(folder / "f"));
    ASSERT_TRUE(in.IsOpen());
    EXPECT_EQ(in.GetSize(), 10u);
    EXPECT_EQ(in.Tell(), 0u);
    EXPECT_EQ(in.GetName(), Wide(folder / "f"));

    std::string buffer(6, '-');
    EXPECT_EQ(in.Read(buffer.data(), 6), 6u);
    EXPECT_EQ(buffer, "012345");
    EXPECT_EQ(in.GetLastReadCount(), 6u);
    EXPECT_TRUE(in.HasDataLeft());

    EXPECT_EQ(in.Read(buffer.data(), 6), 4u);
    EXPECT_EQ(buffer, "678945");
    EXPECT_EQ(in.GetLastReadCount(), 4u);
    EXPECT_EQ(in.Tell(), 10u);
    EXPECT_FALSE(in.HasDataLeft());

    EXPECT_EQ(in.Read(buffer.data(), 6), 0u);
    EXPECT_EQ(in.GetLastReadCount(), 0u);
    EXPECT_EQ(in.Tell(), 10u);
    EXPECT_EQ(in.Read(buffer.data(), 0), 0u);
}

TEST(kxInFile, SeeksKeepThePositionWhenTheyFail) {
    const TempFolder folder;
    Spill(folder / "f", "0123456789");
    kxInFile in(Wide(folder / "f"));
    ASSERT_TRUE(in.Seek(4));
    EXPECT_TRUE(in.SeekForward(3));
    EXPECT_EQ(in.Tell(), 7u);
    EXPECT_TRUE(in.SeekBackward(5));
    EXPECT_EQ(in.Tell(), 2u);
    EXPECT_FALSE(in.SeekBackward(3));
    EXPECT_EQ(in.Tell(), 2u);
    EXPECT_TRUE(in.SeekEnd(1));
    EXPECT_EQ(in.Tell(), 9u);
    EXPECT_TRUE(in.SeekEnd(10));
    EXPECT_EQ(in.Tell(), 0u);
    EXPECT_FALSE(in.SeekEnd(11));
    EXPECT_EQ(in.Tell(), 0u);
    EXPECT_TRUE(in.SeekEnd(0));
    EXPECT_EQ(in.Tell(), 10u);

    const uint64_t huge = std::numeric_limits<uint64_t>::max();
    EXPECT_FALSE(in.Seek(huge));
    EXPECT_FALSE(in.SeekForward(huge));
    EXPECT_FALSE(in.SeekForward(huge - 9));
    EXPECT_FALSE(in.SeekBackward(huge));
    EXPECT_FALSE(in.SeekEnd(huge));
    EXPECT_EQ(in.Tell(), 10u);
}

TEST(kxInFile, PositionsBehindTheEndGiveNoBytes) {
    const TempFolder folder;
    Spill(folder / "f", "0123456789");
    kxInFile in(Wide(folder / "f"));
    EXPECT_TRUE(in.Seek(1000));
    EXPECT_EQ(in.Tell(), 1000u);
    EXPECT_FALSE(in.HasDataLeft());
    char byte = 'x';
    EXPECT_EQ(in.Read(&byte, 1), 0u);
    EXPECT_EQ(byte, 'x');
    EXPECT_TRUE(in.Seek(3));
    EXPECT_EQ(in.Read(&byte, 1), 1u);
    EXPECT_EQ(byte, '3');
}

TEST(kxInFile, ClosedFileGivesNothing) {
    const TempFolder folder;
    Spill(folder / "f", "0123456789");
    kxInFile in(Wide(folder / "f"));
    in.Close();
    EXPECT_FALSE(in.IsOpen());
    EXPECT_FALSE(in.HasDataLeft());
    char byte = 'x';
    EXPECT_EQ(in.Read(&byte, 1), 0u);
    EXPECT_NO_THROW(in.Close());
}

TEST(kxInFile, AFileCutWhileOpenGivesAShortRead) {
    const TempFolder folder;
    Spill(folder / "f", std::string(10000, 'a'));
    kxInFile in(Wide(folder / "f"));
    ASSERT_TRUE(in.IsOpen());
    fs::resize_file(folder / "f", 100);
    std::string buffer(10000, '-');
    EXPECT_EQ(in.Read(buffer.data(), buffer.size()), 100u);
}

TEST(kxOutFile, CreatesOrTruncates) {
    const TempFolder folder;
    {
        kxOutFile out(Wide(folder / "f"));
        ASSERT_TRUE(out.IsOpen());
        EXPECT_EQ(out.GetName(), Wide(folder / "f"));
        EXPECT_EQ(out.Write("hello", 5), 5u);
        EXPECT_EQ(out.Tell(), 5u);
        out.Close();
        EXPECT_FALSE(out.IsOpen());
        EXPECT_NO_THROW(out.Close());
    }
    EXPECT_EQ(Slurp(folder / "f"), "hello");
    kxOutFile again(Wide(folder / "f"), kxOutFile::CreateOrTruncate);
    again.Close();
    EXPECT_EQ(Slurp(folder / "f"), "");
}

TEST(kxOutFile, IsNotEmptiedWhileAnotherOneWritesIt) {
    const TempFolder folder;
    const std::wstring path = Wide(folder / "f");
    kxOutFile first(path);
    first.Write("hello", 5);
    EXPECT_FALSE(first.IsHeldByAnother());
    {
        const kxOutFile second(path);
        EXPECT_FALSE(second.IsOpen());
        EXPECT_TRUE(second.IsHeldByAnother());
        kxOutFile editor(path, kxOutFile::KeepContent);
        ASSERT_TRUE(editor.IsOpen());
        EXPECT_THROW(editor.Lock(), KXFileLockedException);
    }
    EXPECT_EQ(Slurp(folder / "f"), "hello");
    first.Close();
    {
        kxOutFile editor(path, kxOutFile::KeepContent);
        editor.Lock();
        EXPECT_TRUE(kxOutFile(path).IsHeldByAnother());
        EXPECT_EQ(Slurp(folder / "f"), "hello");
    }
    EXPECT_TRUE(kxOutFile(path).IsOpen());
    EXPECT_EQ(Slurp(folder / "f"), "");
    EXPECT_FALSE(kxOutFile(Wide(folder.Path() / "no" / "such")).IsHeldByAnother());
}

TEST(kxOutFile, KeepContentWritesIntoWhatIsThere) {
    const TempFolder folder;
    Spill(folder / "f", "0123456789");
    kxOutFile out(Wide(folder / "f"), kxOutFile::KeepContent);
    ASSERT_TRUE(out.IsOpen());
    EXPECT_EQ(out.Tell(), 0u);
    ASSERT_TRUE(out.Seek(2));
    out.Write("ab", 2);
    ASSERT_TRUE(out.SeekEnd(0));
    EXPECT_EQ(out.Tell(), 10u);
    out.Write("cd", 2);
    ASSERT_TRUE(out.SeekEnd(3));
    out.Write("X", 1);
    out.Close();
    EXPECT_EQ(Slurp(folder / "f"), "01ab45678Xcd");
}

TEST(kxOutFile, KeepContentCreatesNothing) {
    const TempFolder folder;
    kxOutFile out(Wide(folder / "missing"), kxOutFile::KeepContent);
    EXPECT_FALSE(out.IsOpen());
    EXPECT_FALSE(fs::exists(folder / "missing"));
    EXPECT_THROW(out.Write("x", 1), KXWritingException);
}

TEST(kxOutFile, DirectoryOrMissingFolderIsNotOpen) {
    const TempFolder folder;
    for (const int mode : {0, 1}) {
        EXPECT_FALSE(kxOutFile(Wide(folder.Path()), mode).IsOpen());
        EXPECT_FALSE(kxOutFile(Wide(folder.Path() / "no" / "such"), mode).IsOpen());
        EXPECT_FALSE(kxOutFile(L"", mode).IsOpen());
    }
}

TEST(kxOutFile, SeeksKeepThePositionWhenTheyFail) {
    const TempFolder folder;
    kxOutFile out(Wide(folder / "f"));
    out.Write("0123456789", 10);
    EXPECT_TRUE(out.SeekBackward(4));
    EXPECT_EQ(out.Tell(), 6u);
    EXPECT_FALSE(out.SeekBackward(7));
    EXPECT_EQ(out.Tell(), 6u);
    EXPECT_TRUE(out.SeekForward(10));
    EXPECT_EQ(out.Tell(), 16u);
    EXPECT_FALSE(out.SeekEnd(11));
    EXPECT_FALSE(out.Seek(std::numeric_limits<uint64_t>::max()));
    EXPECT_FALSE(out.SeekForward(std::numeric_limits<uint64_t>::max() - 15));
    EXPECT_EQ(out.Tell(), 16u);
    out.Write("z", 1);
    out.Close();
    EXPECT_EQ(Slurp(folder / "f"), std::string("0123456789\0\0\0\0\0\0z", 17));
}

TEST(kxOutFile, SeekBackToTheStartRewritesWithoutTruncating) {
    const TempFolder folder;
    kxOutFile out(Wide(folder / "f"));
    out.Write("----tail", 8);
    ASSERT_TRUE(out.Seek(0));
    out.Write("head", 4);
    out.Close();
    EXPECT_EQ(Slurp(folder / "f"), "headtail");
}

TEST(kxOutFile, FullDiskIsReported) {
    if (!fs::exists("/dev/full"))
        GTEST_SKIP() << "this system has no /dev/full, a device that is always full";
    kxOutFile out(L"/dev/full", kxOutFile::KeepContent);
    ASSERT_TRUE(out.IsOpen());
    const std::vector<char> block(1 << 20, 'x');
    try {
        // A stream may hold bytes back; then closing must report.
        out.Write(block.data(), block.size());
        out.Close();
        FAIL() << "nothing reported that the device is full";
    } catch (const KXWritingException& e) {
        EXPECT_STREQ(e.what(), "Cannot write file");
        EXPECT_EQ(e.Context().file, "/dev/full");
    }
}

TEST(kxOutFile, AWriteThatTheSystemCutsShortIsReported) {
    // A file-size limit makes the system accept part of a write and refuse the rest.
    const TempFolder folder;
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{1000, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    bool reported = false;
    try {
        kxOutFile out(Wide(folder / "f"));
        const std::string block(1500, 'x');
        out.Write(block.data(), block.size());
        out.Close();
    } catch (const KXWritingException& e) {
        reported = true;
        EXPECT_STREQ(e.what(), "Cannot write file");
        EXPECT_FALSE(e.Context().detail.empty());
    }
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_TRUE(reported);
}

TEST(kxOutFile, ClosedFileRefusesWrites) {
    const TempFolder folder;
    kxOutFile out(Wide(folder / "f"));
    out.Close();
    EXPECT_THROW(out.Write("x", 1), KXWritingException);
}

TEST(FileStreams, PositionsAbove4GiB) {
    const TempFolder folder;
    const std::wstring path = Wide(folder / "large");
    const uint64_t far = (uint64_t{5} << 30) + 7;
    {
        kxOutFile out(path);
        out.Write("head", 4);
        ASSERT_TRUE(out.Seek(far));
        out.Write("tail", 4);  // a hole before it: the file takes a few blocks
        EXPECT_EQ(out.Tell(), far + 4);
        ASSERT_TRUE(out.SeekEnd(far));
        EXPECT_EQ(out.Tell(), 4u);
        out.Close();
    }
    kxInFile in(path);
    ASSERT_TRUE(in.IsOpen());
    EXPECT_EQ(in.GetSize(), far + 4);
    ASSERT_TRUE(in.Seek(far));
    EXPECT_TRUE(in.HasDataLeft());
    char text[5] = {};
    EXPECT_EQ(in.Read(text, 5), 4u);
    EXPECT_STREQ(text, "tail");
    EXPECT_EQ(in.Tell(), far + 4);
    ASSERT_TRUE(in.SeekBackward(far + 4));
    EXPECT_EQ(in.Read(text, 4), 4u);
    EXPECT_STREQ(text, "head");
    ASSERT_TRUE(in.SeekForward(uint64_t{1} << 32));
    EXPECT_EQ(in.Tell(), (uint64_t{1} << 32) + 4);
}

TEST(FileStreams, WidePathsAreUtf8WhateverTheLocale) {
    const TempFolder folder;
    const struct {
        const wchar_t* wide;
        const char* utf8;
    } rows[] = {
        {L"\u00fcber",
         "\xc3\xbc"
         "ber"},
        {L"\u20ac", "\xe2\x82\xac"},
        {L"\u6d4b\u8bd5", "\xe6\xb5\x8b\xe8\xaf\x95"},
        {L"\U0001f600", "\xf0\x9f\x98\x80"},  // above U+FFFF
    };
    const std::string oldLocale = std::setlocale(LC_ALL, nullptr);
    for (const char* locale : {"C", "C.UTF-8", "POSIX"}) {
        if (!std::setlocale(LC_ALL, locale)) continue;
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(locale) + " " + row.utf8);
            const std::wstring wide = Wide(folder.Path()) + L"/" + row.wide;
            const std::string narrow = folder.Path().string() + "/" + row.utf8;
            kxOutFile out(wide);
            ASSERT_TRUE(out.IsOpen());
            out.Write("x", 1);
            out.Close();
            struct stat info {};
            EXPECT_EQ(stat(narrow.c_str(), &info), 0);
            kxInFile in(wide);
            EXPECT_TRUE(in.IsOpen());
            EXPECT_EQ(in.GetSize(), 1u);
            EXPECT_EQ(in.GetName(), wide);
            std::remove(narrow.c_str());
        }
    }
    std::setlocale(LC_ALL, oldLocale.c_str());
}

TEST(FileStreams, AReaderSeesWhatAWriterHasWritten) {
    const TempFolder folder;
    kxOutFile out(Wide(folder / "f"));
    out.Write("first", 5);
    kxInFile in(Wide(folder / "f"));
    std::string buffer(5, '-');
    EXPECT_EQ(in.Read(buffer.data(), 5), 5u);
    EXPECT_EQ(buffer, "first");
}

}  // namespace
}  // namespace kxbase
