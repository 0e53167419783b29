// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "DocumentedKeys.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

using Json = nlohmann::json;

class Parts : public ImportedScan {
protected:
    void SetUp() override {
        for (const char* name : {"scan.qsn", "scan.qsn1", "scan.qsn10", "scan.qsn2", "scan.jpg", "scan.qsn1a",
                                 "scanA.qsn1", "Scan.qsn2"})
            m_folder.Write(name, "");
    }
};

TEST_F(Parts, OfTheMainFileAreInTheOrderOfTheirNames) {
    const Json json = OutputJson({"parts", "./scan.qsn"});
    EXPECT_EQ(json["schema"], "qsn.parts");
    EXPECT_EQ(json["version"], 1);
    EXPECT_EQ(json["file"], "./scan.qsn");
    EXPECT_EQ(json["dependencies"],
              Json::array({"./scan.jpg", "./scan.qsn1", "./scan.qsn10", "./scan.qsn1a", "./scan.qsn2"}));
    EXPECT_EQ(json["parts"], Json::array({"./scan.qsn1", "./scan.qsn10", "./scan.qsn2"}));
    EXPECT_EQ(json["mergeNeeded"], true);
    ExpectDocumentedKeys({json}, "### JSON of `qsn parts`");
}

TEST_F(Parts, OfAPartBeginWithTheMainFile) {
    const Json json = OutputJson({"parts", m_folder.File("scan.qsn1")});
    ASSERT_EQ(json["parts"].size(), 3U);
    EXPECT_EQ(json["parts"][0], m_folder.File("scan.qsn"));
    EXPECT_EQ(json["parts"][1], m_folder.File("scan.qsn10"));
}

TEST_F(Parts, TextListsThemForPeople) {
    const std::string text = Output({"parts", m_folder.File("scan.qsn")});
    EXPECT_NE(text.find("Other files of the set:\n  " + m_folder.File("scan.jpg") + "\n"), std::string::npos);
    EXPECT_NE(text.find("Parts to merge:\n  " + m_folder.File("scan.qsn1") + "\n"), std::string::npos);
    EXPECT_NE(text.find("Merge needed: yes\n"), std::string::npos);
}

TEST_F(Parts, AFileWithoutCompanyHasNone) {
    m_folder.Write("alone.qsn", "");
    EXPECT_EQ(Output({"parts", "alone.qsn"}),
              "Other files of the set: none\nParts to merge: none\nMerge needed: no\n");
    const Json json = OutputJson({"parts", "alone.qsn"});
    EXPECT_EQ(json["dependencies"], Json::array());
    EXPECT_EQ(json["mergeNeeded"], false);
}

TEST_F(Parts, NamesInEveryScriptWork) {
    const std::string stem = "R\xc3\xa4ume \xe7\x82\xb9\xe7\xbe\xa4 \xf0\x9f\x93\xa1";
    m_folder.Write(stem + ".qsn", "");
    m_folder.Write(stem + ".qsn7", "");
    const ProgramResult result = RunQsn({"parts", "--json", m_folder.File(stem + ".qsn")},
                                        {m_folder.Path(), {{"LC_ALL", "C"}}, false});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(Json::parse(result.out)["parts"], Json::array({m_folder.File(stem + ".qsn7")}));
}

TEST_F(Parts, AMissingFileIsNamed) {
    ExpectFailure({"parts", "missing.qsn"}, 3, "missing.qsn");
    ExpectFailure({"parts", "no/folder/scan.qsn"}, 3, "no/folder/scan.qsn");
    ExpectFailure({"parts"}, 2, "FILE");
}

}  // namespace
}  // namespace qsn
