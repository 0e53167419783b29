// SPDX-License-Identifier: MIT
// qsn verify, diff, dump and stats.
#include <gtest/gtest.h>

#include <cmath>

#include "BareScan.h"
#include "DocumentedKeys.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

using Json = nlohmann::json;

class Checks : public ImportedScan {
protected:
    void SetUp() override {
        Import(MakeSmallPtx(), {"--patch", "16", "--no-hashes"});
        m_whole = m_folder.Read("scan.qsn");
    }
    /// broken.qsn: the scan with one byte changed.
    void WriteBroken(size_t place) const {
        std::string bytes = m_whole;
        bytes.at(place) = static_cast<char>(bytes[place] ^ 0x5a);
        m_folder.Write("broken.qsn", bytes);
    }
    std::string m_whole;
};

constexpr size_t kDataOfFirstChunk = 92 + 32 + 40;

TEST_F(Checks, VerifyFindsNothingInAnImportedScanAtAnyLevel) {
    for (const char* level : {"--quick", "--full", "--deep"}) {
        const Json json = Json::parse(Output({"verify", level, "--json", "scan.qsn"}));
        EXPECT_EQ(json["level"], std::string(level).substr(2));
        const Json file = json["files"].at(0);
        EXPECT_EQ(file["verdict"], "clean");
        EXPECT_EQ(file["findings"], Json::array()) << level;
        EXPECT_EQ(file["chunks"]["all"], 36);
        EXPECT_EQ(file["recomputedPatches"], level == std::string("--deep") ? 36 : 0);
    }
    EXPECT_EQ(Output({"verify", "scan.qsn"}),
              "scan.qsn: clean (full); 36 chunks, 0 damaged; 0 of 36 patches empty, 0 absent\n");
}

TEST_F(Checks, VerifyNamesTheDamagedPatchAndExitsWithOne) {
    WriteBroken(kDataOfFirstChunk);
    const ProgramResult result = Run({"verify", "--json", "broken.qsn"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "");
    const Json file = Json::parse(result.out)["files"].at(0);
    EXPECT_EQ(file["verdict"], "errors");
    EXPECT_EQ(file["chunks"]["damaged"], 1);
    const Json finding = file["findings"].at(0);
    EXPECT_EQ(finding["severity"], "error");
    EXPECT_EQ(finding["component"], "range");
    EXPECT_EQ(finding["patch"], (Json{{"row", 0}, {"column", 0}}));
    EXPECT_EQ(finding["offset"], 92 + 32);
    // The tables are whole.
    EXPECT_EQ(Run({"verify", "--quick", "broken.qsn"}).exitCode, 0);
    EXPECT_EQ(m_folder.Read("scan.qsn"), m_whole);
}

TEST_F(Checks, VerifyOfSeveralFilesGoesOnAndReturnsTheWorst) {
    WriteBroken(kDataOfFirstChunk);
    m_folder.Write("letter.qsn", "This is a letter, not a scan.\n");
    m_folder.Write("chunkless.qsn", m_whole.substr(0, 100));
    EXPECT_EQ(Run({"verify", "scan.qsn", "broken.qsn"}).exitCode, 1);
    EXPECT_EQ(Run({"verify", "letter.qsn"}).exitCode, 4);
    EXPECT_EQ(Run({"verify", "chunkless.qsn"}).exitCode, 5);
    const ProgramResult all = Run({"verify", "--json", "missing.qsn", "broken.qsn", "scan.qsn"});
    EXPECT_EQ(all.exitCode, 3);
    EXPECT_NE(all.err.find("missing.qsn"), std::string::npos) << all.err;
    const Json json = Json::parse(all.out);
    EXPECT_EQ(json["files"].size(), 2U);
    EXPECT_EQ(json["files"][1]["verdict"], "clean");
    EXPECT_EQ(json["failures"].at(0)["file"], "missing.qsn");
    EXPECT_EQ(json["failures"].at(0)["exitCode"], 3);
}

TEST_F(Checks, WarningsCountUnderStrictOnly) {
    std::string bytes = m_whole;
    bytes[16 + 72] = 0x41;  // a newer writer revision
    bytes[16 + 73] = 0x01;
    m_folder.Write("odd.qsn", bytes);
    EXPECT_EQ(Run({"verify", "odd.qsn"}).exitCode, 0);
    const ProgramResult strict = Run({"verify", "--strict", "odd.qsn"});
    EXPECT_EQ(strict.exitCode, 1);
    EXPECT_EQ(Run({"verify", "--quick", "--deep", "odd.qsn"}).exitCode, 2);
    EXPECT_NE(strict.out.find("warning: MainFileHeader, byte 88, writer revision: 321"), std::string::npos)
        << strict.out;
}

TEST_F(Checks, VerifyJsonHasExactlyTheDocumentedKeys) {
    WriteBroken(kDataOfFirstChunk);
    ExpectDocumentedKeys({Json::parse(Run({"verify", "--json", "broken.qsn", "missing.qsn"}).out)},
                         "### JSON of `qsn verify`");
}

TEST_F(Checks, DiffOfAScanStoredInAnotherWayIsEqual) {
    ImportFile("source.ptx", {"--patch", "7x9", "--codec", "range=snappy,angles=snappy"}, "other.qsn");
    const ProgramResult result = Run({"diff", "--json", "scan.qsn", "other.qsn"});
    const Json json = Json::parse(result.out);
    EXPECT_EQ(json["cellsEqual"], true);
    EXPECT_EQ(json["equal"], false);  // each import makes an identifier of its own
    EXPECT_EQ(result.exitCode, 1);
    for (const Json& property : json["properties"])
        EXPECT_TRUE(property["storage"] == true || property["name"] == "scan.uuid") << property;
    for (const Json& component : json["components"]) {
        EXPECT_EQ(component["cells"], 1200) << component;
        EXPECT_EQ(component["different"], 0) << component;
        EXPECT_EQ(component["largest"], 0.0) << component;
    }
    EXPECT_EQ(Run({"diff", "--cells", "scan.qsn", "other.qsn"}).exitCode, 0);
    m_folder.Write("copy.qsn", m_whole);
    EXPECT_EQ(Output({"diff", "scan.qsn", "copy.qsn"}).substr(0, 28), "scan.qsn and copy.qsn: equal");
}

TEST_F(Checks, DiffCountsCellsBeyondTheToleranceAndNamesTheFirst) {
    m_folder.Write("a.qsn", FileText(BareScan(1000.0F)));
    m_folder.Write("b.qsn", FileText(BareScan(1000.5F)));
    const auto range = [&](const std::vector<std::string>& options, int exitCode) {
        std::vector<std::string> line = {"diff", "--json", "a.qsn", "b.qsn"};
        line.insert(line.end(), options.begin(), options.end());
        const ProgramResult result = Run(line);
        EXPECT_EQ(result.exitCode, exitCode);
        return Json::parse(result.out)["components"].at(0);
    };
    const Json exact = range({}, 1);
    EXPECT_EQ(exact["different"], 16);
    EXPECT_EQ(exact["firstDifferent"], (Json{{"row", 0}, {"column", 0}}));
    EXPECT_EQ(exact["largest"], 0.5);
    EXPECT_EQ(range({"--tolerance", "range=0.4"}, 1)["different"], 16);
    const Json within = range({"--tolerance", "range=0.5"}, 0);
    EXPECT_EQ(within["different"], 0);
    EXPECT_EQ(within["largest"], 0.5);
    EXPECT_TRUE(within["firstDifferent"].is_null());
    // No tolerance makes a return of no return.
    m_folder.Write("b.qsn", FileText(BareScan(0.0F)));
    EXPECT_EQ(range({"--tolerance", "range=5000"}, 1)["different"], 16);
    for (const char* value : {"range", "range=", "range=-1", "range=x", "height=1"})
        ExpectFailure({"diff", "--tolerance", value, "a.qsn", "b.qsn"}, 2,
                      value == std::string("height=1") ? "height" : value);
}

TEST_F(Checks, DiffOfADamagedScanSaysWhatItCouldNotCompare) {
    WriteBroken(kDataOfFirstChunk);
    const ProgramResult result = Run({"diff", "--json", "scan.qsn", "broken.qsn"});
    EXPECT_EQ(result.exitCode, 1);
    const Json range = Json::parse(result.out)["components"].at(0);
    EXPECT_EQ(range["notCompared"], 256);
    EXPECT_EQ(range["cells"], 1200 - 256);
    EXPECT_NE(range["problem"].get<std::string>().find("second scan"), std::string::npos);
}

TEST_F(Checks, DiffShowsLongTextsFromWhereTheyDiffer) {
    m_folder.Write("copy.qsn", m_whole);
    const std::string same(100, 'x');
    ASSERT_EQ(Run({"edit", "-q", "--warning", same + "here", "scan.qsn"}).exitCode, 0);
    ASSERT_EQ(Run({"edit", "-q", "--warning", same + "there", "copy.qsn"}).exitCode, 0);
    const std::string out = Run({"diff", "scan.qsn", "copy.qsn"}).out;
    const std::string shown(20, 'x');
    EXPECT_NE(out.find("warnings: ..." + shown + "here | ..." + shown + "there\n"), std::string::npos) << out;
}

TEST_F(Checks, DiffJsonHasExactlyTheDocumentedKeys) {
    ImportFile("source.ptx", {"--patch", "16", "--scale", "range=50"}, "coarse.qsn");
    ExpectDocumentedKeys({Json::parse(Run({"diff", "--json", "scan.qsn", "coarse.qsn"}).out)},
                         "### JSON of `qsn diff`");
}

TEST_F(Checks, DumpCoversEveryByteOnce) {
    WriteBroken(96);  // the tag of the first chunk record
    for (const std::string name : {"scan.qsn", "broken.qsn"}) {
        const Json json = Json::parse(Output({"dump", "--json", name}));
        uint64_t end = 0;
        for (const Json& record : json["records"]) {
            EXPECT_EQ(record["offset"], end) << record;
            end += record["bytes"].get<uint64_t>();
        }
        EXPECT_EQ(end, m_whole.size()) << name;
        EXPECT_EQ(json["count"], json["records"].size());
        EXPECT_EQ(json["damaged"], name == "scan.qsn" ? 0 : 1);
    }
    const std::string damaged = Output({"dump", "--damaged", "broken.qsn"});
    EXPECT_NE(damaged.find("DAMAGED"), std::string::npos) << damaged;
    EXPECT_EQ(Output({"dump", "--damaged", "scan.qsn"}), "");
}

TEST_F(Checks, DumpTellsFieldsAtTheirPlaces) {
    const Json records = Json::parse(Output({"dump", "--json", "scan.qsn"}))["records"];
    const Json revision = records.at(0)["fields"].at(9);
    EXPECT_EQ(revision["name"], "writer revision");
    EXPECT_EQ(revision["offset"], 88);
    EXPECT_EQ(revision["value"], 240);
    const auto record = [&](const std::string& kind) {
        for (const Json& candidate : records) {
            if (candidate["kind"] == kind) return candidate;
        }
        return Json();
    };
    const Json scan = record("ScanHeader");
    EXPECT_EQ(scan["version"], 270);
    for (const Json& field : scan["fields"]) {
        if (field["name"] == "column count") {
            EXPECT_EQ(field["value"], 40);
        }
        if (field["name"] == "patch width") {
            EXPECT_EQ(field["value"], 16);
        }
    }
    EXPECT_FALSE(record("ExtendedHeader (identifiers)").is_null());
    EXPECT_EQ(record("ExtendedHeader (identifiers)")["fields"].at(3)["name"], "scan UUID");
    EXPECT_FALSE(record("Preview").is_null());
    EXPECT_FALSE(record("ThumbnailHeader").is_null());
}

TEST_F(Checks, DumpShowsAsManyEntriesAsAsked) {
    const auto entries = [&](const std::string& count) {
        const Json json = Json::parse(Output({"dump", "--json", "--entries", count, "scan.qsn"}));
        uint64_t positions = 0;
        uint64_t leftOut = 0;
        for (const Json& record : json["records"]) {
            if (record["kind"] != "LookupTableHeader") continue;
            leftOut += record["fieldsLeftOut"].get<uint64_t>();
            for (const Json& field : record["fields"])
                positions += field["name"] == "position" ? 1U : 0U;
        }
        return std::pair(positions, leftOut);
    };
    EXPECT_EQ(entries("100"), std::pair(uint64_t{36 + 6}, uint64_t{0}));  // patches and previews
    EXPECT_EQ(entries("2"), std::pair(uint64_t{6 * 2 + 6}, uint64_t{6 * 4 * 2}));
}

TEST_F(Checks, DumpJsonHasExactlyTheDocumentedKeys) {
    ExpectDocumentedKeys({Json::parse(Output({"dump", "--json", "scan.qsn"}))}, "### JSON of `qsn dump`");
}

TEST_F(Checks, DumpOfWhatIsNoScanSaysSo) {
    m_folder.Write("letter.qsn", "This is a letter, not a scan.\n");
    const ProgramResult result = Run({"dump", "letter.qsn"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_NE(result.out.find("Unknown bytes"), std::string::npos) << result.out;
    EXPECT_EQ(Run({"dump", "missing.qsn"}).exitCode, 3);
}

TEST_F(Checks, StatsTellTheValues) {
    const Json json = Json::parse(Output({"stats", "--json", "scan.qsn"}));
    const Json range = json["components"].at(0);
    EXPECT_EQ(range["name"], "range");
    EXPECT_EQ(range["cells"], 1200);
    EXPECT_EQ(range["values"], 1200 - 36);
    EXPECT_DOUBLE_EQ(range["noReturnShare"].get<double>(), 36.0 / 1200);
    EXPECT_NEAR(range["channels"].at(0)["minimum"].get<double>(), 2000, 0.1);
    EXPECT_NEAR(range["channels"].at(0)["maximum"].get<double>(), 2000 + 3000 * (39.0 / 40) * (29.0 / 30),
                0.1);
    const Json info = OutputJson({"info", "scan.qsn"});
    for (size_t i = 0; i < json["components"].size(); ++i) {
        EXPECT_EQ(json["components"][i]["bytes"], info["components"][i]["bytes"]);
        EXPECT_EQ(json["components"][i]["notRead"], 0);
        EXPECT_GE(json["components"][i]["entropyBits"].get<double>(), 0);
        EXPECT_LE(json["components"][i]["entropyBits"].get<double>(), std::log2(1200));
    }
    EXPECT_EQ(json["components"].at(5)["channels"].size(), 3U);
    ExpectDocumentedKeys({json}, "### JSON of `qsn stats`");
    // One value everywhere tells nothing.
    m_folder.Write("bare.qsn", FileText(BareScan()));
    EXPECT_EQ(OutputJson({"stats", "bare.qsn"})["components"].at(0)["entropyBits"], 0.0);
}

TEST_F(Checks, StatsOfADamagedScanTellTheRestAndExitWithSix) {
    WriteBroken(kDataOfFirstChunk);
    const ProgramResult result = Run({"stats", "--json", "broken.qsn"});
    EXPECT_EQ(result.exitCode, 6);
    const Json range = Json::parse(result.out)["components"].at(0);
    EXPECT_EQ(range["notRead"], 256);
    EXPECT_EQ(range["cells"], 1200 - 256);
}

TEST_F(Checks, ResultsDoNotDependOnTheNumberOfThreads) {
    WriteBroken(kDataOfFirstChunk);
    for (const std::vector<std::string>& line :
         {std::vector<std::string>{"verify", "--deep", "--json", "broken.qsn"},
          std::vector<std::string>{"diff", "--json", "scan.qsn", "broken.qsn"},
          std::vector<std::string>{"stats", "--json", "broken.qsn"}}) {
        std::vector<std::string> one = line;
        std::vector<std::string> many = line;
        one.insert(one.end(), {"--threads", "1"});
        many.insert(many.end(), {"--threads", "7"});
        EXPECT_EQ(Run(one).out, Run(many).out) << line[0];
    }
}

}  // namespace
}  // namespace qsn
