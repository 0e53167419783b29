// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>

#include "ImportedScan.h"

namespace qsn {
namespace {

using Json = nlohmann::json;

/// Forty by thirty cells in patches of eight: 5 x 4 patches, six components.
class Recover : public ImportedScan {
protected:
    void SetUp() override {
        Import(MakeSmallPtx(), {"--patch", "8"});
        m_whole = m_folder.Read("scan.qsn");
    }
    /// Zeros over part of a file's name-given copy.
    void WriteDamaged(size_t first, size_t count) {
        std::string damaged = m_whole;
        std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(first), count, '\0');
        m_folder.Write("broken.qsn", damaged);
    }

    std::string m_whole;
};

TEST_F(Recover, CutFileBecomesAWholeOneAgain) {
    m_folder.Write("broken.qsn", m_whole.substr(0, m_whole.size() - 500));
    const ProgramResult result = RunQsn({"recover", "broken.qsn", "saved.qsn"}, Here());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("120 of 120 chunks saved, 0 lost; 1,164 points saved"), std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("grid of 40 x 30 cells from the scan header"), std::string::npos);
    EXPECT_EQ(m_folder.Read("broken.qsn"), m_whole.substr(0, m_whole.size() - 500));
    const ProgramResult info = RunQsn({"info", "--json", "saved.qsn"}, Here());
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_EQ(Json::parse(info.out)["scan"]["validPoints"], 1164);
    // The picture is that of the undamaged file.
    ASSERT_EQ(RunQsn({"preview", "-q", "scan.qsn", "before.png"}, Here()).exitCode, 0);
    ASSERT_EQ(RunQsn({"preview", "-q", "saved.qsn", "after.png"}, Here()).exitCode, 0);
    EXPECT_EQ(m_folder.Read("after.png"), m_folder.Read("before.png"));
}

TEST_F(Recover, JsonTellsWhatWasLost) {
    WriteDamaged(92 + 32 + 40, 60);  // in the data of the first chunk
    const ProgramResult result = RunQsn({"recover", "--json", "broken.qsn", "saved.qsn"}, Here());
    ASSERT_EQ(result.exitCode, 6) << result.err;
    EXPECT_EQ(result.err, "");
    const Json json = Json::parse(result.out);
    EXPECT_EQ(json["schema"], "qsn.recover");
    EXPECT_EQ(json["version"], 1);
    EXPECT_EQ(json["mode"], "rebuild");
    EXPECT_EQ(json["input"], "broken.qsn");
    EXPECT_EQ(json["output"], "saved.qsn");
    EXPECT_EQ(json["chunks"], Json({{"found", 120}, {"recovered", 119}, {"lost", 1}}));
    EXPECT_EQ(json["fileBytes"], m_whole.size());
    EXPECT_EQ(json["grid"]["source"], "scan header");
    EXPECT_EQ(json["grid"]["columns"], 40);
    EXPECT_EQ(json["survived"]["lookupTable"], true);
    ASSERT_EQ(json["components"].size(), 6U);
    uint64_t lost = 0;
    for (const Json& component : json["components"]) {
        EXPECT_EQ(component["found"], 20);
        lost += component["lost"].get<uint64_t>();
    }
    EXPECT_EQ(lost, 1U);
    EXPECT_EQ(json["components"][0]["name"], "range");
}

TEST_F(Recover, DerivedGridIsReportedAsSuch) {
    const size_t scanHeader = m_whole.find("\xd8\x02\xc5\x40\xfc\x82\xb2\x9c");
    ASSERT_NE(scanHeader, std::string::npos);
    m_folder.Write("broken.qsn", m_whole.substr(0, scanHeader));
    const ProgramResult result = RunQsn({"recover", "--json", "broken.qsn", "saved.qsn"}, Here());
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json json = Json::parse(result.out);
    EXPECT_EQ(json["grid"]["source"], "chunks");
    EXPECT_EQ(json["grid"]["anglesFitted"], true);
    EXPECT_EQ(json["grid"]["columns"], 40);
    EXPECT_EQ(json["grid"]["rows"], 30);
    EXPECT_EQ(json["survived"]["scanHeader"], false);
    EXPECT_FALSE(json["warnings"].empty());
    const Json info = Json::parse(RunQsn({"info", "--json", "saved.qsn"}, Here()).out);
    EXPECT_NEAR(info["grid"]["horizontal"]["stepDegrees"].get<double>(), 1, 1e-3);
    EXPECT_NEAR(info["grid"]["vertical"]["stepDegrees"].get<double>(), 1, 1e-3);
}

TEST_F(Recover, TextExportHasALinePerPoint) {
    const ProgramResult result = RunQsn({"recover", "scan.qsn", "--ascii", "points.txt"}, Here());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");  // the messages of the export are not for here
    const std::string text = m_folder.Read("points.txt");
    const auto lines = std::count(text.begin(), text.end(), '\n');
    EXPECT_GT(lines, 700);  // 32 x 24 cells less the holes: all but the last row and column of patches
    EXPECT_LE(lines, 32 * 24);
    EXPECT_NE(result.err.find("120 chunks found, 0 lost; " + std::to_string(lines) + " points saved"),
              std::string::npos)
        << result.err;
    const ProgramResult json =
        RunQsn({"recover", "-f", "--json", "scan.qsn", "--ascii", "points.txt"}, Here());
    const Json parsed = Json::parse(json.out);
    EXPECT_EQ(parsed["mode"], "ascii");
    EXPECT_EQ(parsed["pointsSaved"], lines);
    EXPECT_EQ(parsed["chunks"]["found"], 120);
    EXPECT_EQ(parsed["rowsMissing"], 0);
}

TEST_F(Recover, WrongUseAndHopelessFilesAreRefusedWithoutATrace) {
    m_folder.Write("junk.qsn", std::string(10000, 'x'));
    const auto names = m_folder.Names();
    EXPECT_EQ(RunQsn({"recover", "scan.qsn"}, Here()).exitCode, 2);
    EXPECT_EQ(RunQsn({"recover", "scan.qsn", "a.qsn", "--ascii", "b.txt"}, Here()).exitCode, 2);
    EXPECT_EQ(RunQsn({"recover", "-f", "scan.qsn", "scan.qsn"}, Here()).exitCode, 2);
    const ProgramResult junk = RunQsn({"recover", "junk.qsn", "saved.qsn"}, Here());
    EXPECT_EQ(junk.exitCode, 5);
    EXPECT_NE(junk.err.find("Nothing to recover"), std::string::npos) << junk.err;
    EXPECT_NE(junk.err.find("junk.qsn"), std::string::npos) << junk.err;
    for (const std::vector<std::string>& line :
         {std::vector<std::string>{"recover", "missing.qsn", "saved.qsn"},
          std::vector<std::string>{"recover", "missing.qsn", "--ascii", "saved.txt"},
          std::vector<std::string>{"recover", "scan.qsn", "source.ptx"}}) {
        const ProgramResult result = RunQsn(line, Here());
        EXPECT_EQ(result.exitCode, line[1] == "missing.qsn" ? 3 : 7);
        EXPECT_NE(result.err.find(line[1] == "scan.qsn" ? "source.ptx" : "missing.qsn"), std::string::npos)
            << result.err;
    }
    EXPECT_EQ(m_folder.Names(), names);
    EXPECT_EQ(m_folder.Read("scan.qsn"), m_whole);
}

}  // namespace
}  // namespace qsn
