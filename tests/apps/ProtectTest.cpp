// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "DocumentedKeys.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

class Protect : public ImportedScan {
protected:
    void SetUp() override { Import(MakeSmallPtx(80, 60), {"--patch", "32x16", "--no-hashes"}); }
};

TEST_F(Protect, AddsHashesOnceAndKeepsTheBytesOfTheFile) {
    const std::string before = m_folder.Read("scan.qsn");
    const auto added = OutputJson({"protect", "scan.qsn"});
    const std::string after = m_folder.Read("scan.qsn");
    EXPECT_EQ(added["added"], true);
    ASSERT_EQ(after.size(), before.size() + added["bytes"].get<size_t>());
    EXPECT_TRUE(after.starts_with(before));
    const auto again = OutputJson({"protect", "scan.qsn"});
    EXPECT_EQ(again["added"], false);
    EXPECT_EQ(again["bytes"], 0);
    EXPECT_TRUE(m_folder.Read("scan.qsn") == after);
    ExpectDocumentedKeys({added, again}, "### JSON of `qsn protect`");
    EXPECT_EQ(Run({"verify", "--deep", "-q", "scan.qsn"}).exitCode, 0);
    EXPECT_EQ(Run({"edit", "-q", "--message", "more", "--speckle", "on", "scan.qsn"}).exitCode, 0);
    EXPECT_EQ(Run({"verify", "--deep", "-q", "scan.qsn"}).exitCode, 0);
}

TEST_F(Protect, ImportAndConvertWriteHashesUnlessTheyAreRefused) {
    const auto hasHashes = [this](const std::vector<std::string>& command) {
        std::vector<std::string> words = command;
        words.insert(words.end(), {"-q", "--force"});
        const ProgramResult result = Run(words);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return OutputJson({"protect", words[2]})["added"] == false;
    };
    m_folder.Write("scan.ptx", MakeSmallPtx(80, 60));
    EXPECT_TRUE(hasHashes({"import", "scan.ptx", "a.qsn"}));
    EXPECT_TRUE(hasHashes({"import", "scan.ptx", "b.qsn", "--fast"}));
    EXPECT_FALSE(hasHashes({"import", "scan.ptx", "c.qsn", "--plain"}));
    EXPECT_FALSE(hasHashes({"import", "scan.ptx", "d.qsn", "--no-hashes"}));
    EXPECT_TRUE(hasHashes({"convert", "scan.ptx", "e.qsn"}));
    ASSERT_EQ(Run({"convert", "-q", "--no-hashes", "a.qsn", "f.qsn"}).exitCode, 0);
    EXPECT_TRUE(hasHashes({"convert", "f.qsn", "g.qsn", "--fast"}));
    EXPECT_FALSE(hasHashes({"convert", "a.qsn", "h.qsn", "--no-hashes", "--fast"}));
    EXPECT_FALSE(hasHashes({"convert", "a.qsn", "i.qsn", "--plain"}));
}

TEST_F(Protect, ADamagedFileIsRefusedAndLeftAsItIs) {
    std::string bytes = m_folder.Read("scan.qsn");
    bytes[200] = static_cast<char>(bytes[200] ^ 0x55);
    m_folder.Write("scan.qsn", bytes);
    const ProgramResult result = Run({"protect", "scan.qsn"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_TRUE(result.err.starts_with("qsn: File is damaged (scan.qsn: ")) << result.err;
    EXPECT_TRUE(m_folder.Read("scan.qsn") == bytes);
}

}  // namespace
}  // namespace qsn
