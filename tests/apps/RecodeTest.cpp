// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "DocumentedKeys.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

class Recode : public ImportedScan {
protected:
    void SetUp() override { Import(MakeSmallPtx(80, 60), {"--patch", "32x16", "--plain"}); }
    std::string CodecOf(const std::string& file, const std::string& component) const {
        const nlohmann::json info = OutputJson({"info", file});
        for (const auto& entry : info["components"])
            if (entry["name"] == component) return entry["codec"];
        return "none";
    }
};

TEST_F(Recode, MakesTheFileSmallerAndKeepsTheScan) {
    const auto json = OutputJson({"recode", "scan.qsn", "small.qsn"});
    EXPECT_EQ(json["bytesBefore"], m_folder.Read("scan.qsn").size());
    EXPECT_EQ(json["bytesAfter"], m_folder.Read("small.qsn").size());
    EXPECT_LT(json["bytesAfter"], json["bytesBefore"]);
    ExpectDocumentedKeys({json}, "### JSON of `qsn recode`");
    EXPECT_EQ(CodecOf("scan.qsn", "range"), "ZLib");
    EXPECT_EQ(CodecOf("small.qsn", "range"), "Grid");
    EXPECT_EQ(Run({"diff", "-q", "scan.qsn", "small.qsn"}).exitCode, 0);
    EXPECT_EQ(Run({"verify", "--deep", "-q", "small.qsn"}).exitCode, 0);
    // And back: zlib at the same level is the same file.
    EXPECT_EQ(Run({"recode", "-q", "--plain", "small.qsn", "back.qsn"}).exitCode, 0);
    EXPECT_TRUE(m_folder.Read("back.qsn") == m_folder.Read("scan.qsn"));
}

TEST_F(Recode, ACodecAloneLeavesTheOtherComponentsAsTheyAre) {
    const ProgramResult result = Run({"recode", "--codec", "range=snappy", "scan.qsn", "other.qsn"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.err.find("scan.qsn -> other.qsn"), std::string::npos) << result.err;
    EXPECT_EQ(CodecOf("other.qsn", "range"), "Snappy");
    EXPECT_EQ(CodecOf("other.qsn", "vertical"), "ZLib");
    EXPECT_EQ(Run({"recode", "-q", "--fast", "--codec", "range=zstd", "scan.qsn", "both.qsn"}).exitCode, 0);
    EXPECT_EQ(CodecOf("both.qsn", "range"), "Zstd");
    EXPECT_EQ(CodecOf("both.qsn", "vertical"), "Grid");
}

TEST_F(Recode, StoredJpegStaysUnlessColourIsNamed) {
    Import(MakeSmallPtx(80, 60), {"--color", "jpeg"}, "jpeg.qsn");
    EXPECT_EQ(Run({"recode", "-q", "jpeg.qsn", "kept.qsn"}).exitCode, 0);
    EXPECT_EQ(CodecOf("kept.qsn", "color"), "JPEG");
    EXPECT_EQ(Run({"recode", "-q", "--codec", "color=zstd", "jpeg.qsn", "other.qsn"}).exitCode, 0);
    EXPECT_EQ(CodecOf("other.qsn", "color"), "Zstd");
    EXPECT_EQ(Run({"diff", "-q", "jpeg.qsn", "other.qsn"}).exitCode, 0);
}

TEST_F(Recode, RefusesWhatItCannotDo) {
    ExpectFailure({"recode", "--codec", "color=jpeg", "scan.qsn", "o.qsn"}, 2, "would change the colours");
    ExpectFailure({"recode", "--fast", "--small", "scan.qsn", "o.qsn"}, 2, "exclude each other");
    ExpectFailure({"recode", "scan.qsn", "scan.qsn"}, 2, "scan.qsn");
    std::string bytes = m_folder.Read("scan.qsn");
    bytes.at(92 + 32 + 28 + 20) ^= 0x55;
    m_folder.Write("broken.qsn", bytes);
    ExpectFailure({"recode", "broken.qsn", "o.qsn"}, 5, "Patch cannot be decoded");
    EXPECT_FALSE(m_folder.Has("o.qsn"));
}

}  // namespace
}  // namespace qsn
