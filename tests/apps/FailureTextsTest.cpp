// SPDX-License-Identifier: MIT
// What the command says, word by word, when a file keeps it from doing what was asked.
#include <gtest/gtest.h>

#include "BareScan.h"
#include "ImportedScan.h"
#include "OutputFile.h"
#include "kxio/QSNInfo.h"

namespace qsn {
namespace {

class FailureTexts : public ImportedScan {
protected:
    void SetUp() override { Import(MakeSmallPtx(40, 30), {"--patch", "16", "--plain"}); }

    /// `said` is the whole first line but for the program's name.
    static void ExpectSaid(const ProgramResult& result, int exitCode, const std::string& said) {
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        EXPECT_EQ(result.err.substr(0, result.err.find('\n')), "qsn: " + said);
    }
    void ExpectSaid(const std::vector<std::string>& arguments, int exitCode, const std::string& said) const {
        ExpectSaid(Run(arguments), exitCode, said);
    }
    /// The bytes of the file behind `first` become zeros, up to `end`.
    void Clear(uint64_t first, uint64_t end) const {
        std::string bytes = m_folder.Read("scan.qsn");
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(first),
                  bytes.begin() + static_cast<std::ptrdiff_t>(end), '\0');
        m_folder.Write("scan.qsn", bytes);
    }
    void Append(const std::string& more) const {
        m_folder.Write("scan.qsn", m_folder.Read("scan.qsn") + more);
    }
};

TEST_F(FailureTexts, OfInputsThatAreNotThereOrSomethingElse) {
    ExpectSaid({"recover", "nowhere.qsn", "--ascii", "out.txt"}, 3, "nowhere.qsn: cannot be opened");
    ExpectSaid({"dump", "source.ptx"}, 4, "source.ptx: no record of a scan file");
    ExpectSaid({"thumbnail", "scan.qsn", "--set", "nowhere.jpg"}, 3, "nowhere.jpg: cannot be opened");
    m_folder.Write("large.jpg", "");
    std::filesystem::resize_file(m_folder.File("large.jpg"), 67108865);  // sparse
    ExpectSaid({"thumbnail", "scan.qsn", "--set", "large.jpg"}, 8, "large.jpg: larger than 67108864 bytes");
}

TEST_F(FailureTexts, OfStandardInput) {
    ExpectSaid(RunShellLine("qsn convert --from ptx - out.xyz < .", Here()), 3,
               "standard input cannot be read");
    EXPECT_FALSE(m_folder.Has("out.xyz"));
}

TEST_F(FailureTexts, OfOutputs) {
    std::filesystem::create_directory(m_folder.File("folder.png"));
    m_folder.Write("there.png", "");
    ExpectSaid({"preview", "scan.qsn", ""}, 7, "'': no name of a file");
    ExpectSaid({"preview", "scan.qsn", "folder.png"}, 7,
               "folder.png: exists and is no regular file; choose another name");
    ExpectSaid({"preview", "scan.qsn", "there.png"}, 7, "there.png: exists already; --force replaces it");
    ExpectSaid({"preview", "scan.qsn", "nowhere/out.png"}, 7,
               "nowhere/out.png: the folder nowhere does not exist");
}

TEST_F(FailureTexts, OfOutputsThatTheSystemRefuses) {
    if (!std::filesystem::exists("/proc/self"))
        GTEST_SKIP() << "this system has no folder that takes no files";
    ExpectSaid({"thumbnail", "scan.qsn", "/proc/out.jpg"}, 7, "/proc/out.jpg: cannot be written");
    // Standard input goes through a temporary file.
    ProgramOptions options = Here();
    options.environment["TMPDIR"] = "/proc";
    const ProgramResult result = RunShellLine("qsn convert --from ptx - out.xyz < source.ptx", options);
    EXPECT_EQ(result.exitCode, 7) << result.err;
    EXPECT_TRUE(result.err.starts_with("qsn: /proc/")) << result.err;
    EXPECT_NE(result.err.find(": cannot be written\n"), std::string::npos) << result.err;
}

TEST_F(FailureTexts, OfAStandardOutputThatIsFull) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "this system has no /dev/full";
    ExpectSaid(RunShellLine("qsn info scan.qsn > /dev/full", Here()), 7,
               "standard output: not everything could be written");
}

TEST_F(FailureTexts, OfAppendingWhereNobodyWouldLook) {
    const std::string size = std::to_string(m_folder.Read("scan.qsn").size());
    Append("x");
    ExpectSaid({"edit", "scan.qsn", "--message", "hello"}, 5,
               "scan.qsn: the chain of extended records ends at byte " + size + ", the file at byte " +
                   std::to_string(m_folder.Read("scan.qsn").size()) + "; nobody would find what is appended");
    m_folder.Write("bare.qsn", FileText(BareScan()));
    ExpectSaid({"edit", "bare.qsn", "--message", "hello"}, 4,
               "bare.qsn: the file has no chain of extended records; nobody would find what is appended");
}

TEST_F(FailureTexts, OfOldScanHeaders) {
    std::string bytes = m_folder.Read("scan.qsn");
    const size_t version = static_cast<unsigned char>(bytes[16]) +
                           size_t{256} * static_cast<unsigned char>(bytes[17]) +
                           size_t{65536} * static_cast<unsigned char>(bytes[18]) + 8;
    bytes[version] = static_cast<char>(200);
    bytes[version + 1] = 0;
    m_folder.Write("scan.qsn", bytes);
    ExpectSaid({"edit", "scan.qsn", "--registration", "identity"}, 4,
               "scan.qsn: its scan header, version 200, has no registration that can be set");
    ExpectSaid({"edit", "scan.qsn", "--speckle", "on"}, 4,
               "scan.qsn: its scan header, version 200, has no speckle flag");
}

TEST_F(FailureTexts, OfRegistrationsThatCannotBeUndone) {
    const double flat[12] = {1, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0};
    kxio::QSNInfo::SetRegistrationInfo(ToPath(m_folder.File("scan.qsn")).wstring(),
                                       kxbase::RegistrationInformation::FromValues(flat));
    ExpectSaid({"locate", "scan.qsn", "--registered", "--point", "1,2,3"}, 2,
               "scan.qsn: the registration is no rotation with a shift and cannot be undone");
}

TEST_F(FailureTexts, OfLevelsTooLargeForMemory) {
    kxtest::ScanFileBuilder file(100000, 100000, 100000, 100000);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>(1, 1.0F), 1, 1));
    m_folder.Write("wide.qsn", FileText(file));
    ExpectSaid({"lod", "wide.qsn", "out.raw", "--level", "0"}, 8,
               "100000 x 100000 elements are too many; take a higher --level, one --row or one --column too");
}

TEST_F(FailureTexts, OfDamagedPatches) {
    Clear(92 + 32 + 28, 92 + 32 + 28 + 60);  // data of the first chunk: ranges of patch 0
    const auto first = [&](const std::vector<std::string>& arguments, const std::string& said) {
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 6) << result.err;
        EXPECT_NE(("\n" + result.err).find("\nqsn: scan.qsn" + said), std::string::npos) << result.err;
    };
    first({"preview", "scan.qsn", "out.png"},
          ": 1 patches could not be read and are left empty in the picture; first: ");
    first({"lod", "scan.qsn", "out.raw", "--level", "0"}, ": 1 patches could not be read and are left empty");
    first({"stats", "scan.qsn"}, ": patches could not be read and do not count; first: ");
    ExpectSaid({"locate", "scan.qsn", "--cell", "3,4"}, 5,
               "scan.qsn: the patch of row 3, column 4 cannot be read");
}

TEST_F(FailureTexts, OfDamagedThumbnails) {
    ASSERT_EQ(Run({"thumbnail", "-q", "scan.qsn", "whole.jpg"}).exitCode, 0);
    const std::string jpeg = m_folder.Read("whole.jpg");
    const size_t at = m_folder.Read("scan.qsn").find(jpeg);
    ASSERT_NE(at, std::string::npos);
    Clear(at, at + jpeg.size());
    for (const char* output : {"out.png", "out.jpg"}) {
        ExpectSaid({"thumbnail", "scan.qsn", output}, 5,
                   "scan.qsn: the stored thumbnail is no readable JPEG image");
        EXPECT_FALSE(m_folder.Has(output));
    }
}

}  // namespace
}  // namespace qsn
