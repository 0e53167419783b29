// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "DocumentedKeys.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

using Json = nlohmann::json;

class Info : public ImportedScan {
protected:
    void SetUp() override { Import(MakeSmallPtx(), {"--patch", "16"}); }
    Json ReadJson() const { return OutputJson({"info", "scan.qsn"}); }
};

TEST_F(Info, JsonNamesItsSchema) {
    const Json json = ReadJson();
    EXPECT_EQ(json["schema"], "qsn.info");
    EXPECT_EQ(json["version"], 1);
}

TEST_F(Info, JsonTellsTheGridThatWasImported) {
    const Json json = ReadJson();
    EXPECT_EQ(json["grid"]["columns"], 40);
    EXPECT_EQ(json["grid"]["rows"], 30);
    EXPECT_EQ(json["grid"]["cells"], 1200);
    EXPECT_EQ(json["grid"]["patchWidth"], 16);
    EXPECT_EQ(json["grid"]["patchesPerRow"], 3);
    EXPECT_EQ(json["grid"]["patchesPerColumn"], 2);
    EXPECT_EQ(json["grid"]["patches"], 6);
    EXPECT_NEAR(json["grid"]["horizontal"]["stepDegrees"].get<double>(), 1, 1e-5);
    EXPECT_NEAR(json["grid"]["vertical"]["stepDegrees"].get<double>(), 1, 1e-5);
    EXPECT_NEAR(json["grid"]["horizontal"]["startRadians"].get<double>(), 1, 1e-5);
    EXPECT_NEAR(json["grid"]["vertical"]["startDegrees"].get<double>(), 90 - 14.5, 1e-4);
}

TEST_F(Info, JsonTellsPointsLimitsAndPose) {
    const Json json = ReadJson();
    // Holes: 6 columns (3, 10, ... 38) x 6 rows (2, 7, ... 27).
    EXPECT_EQ(json["scan"]["validPoints"], 1200 - 6 * 6);
    EXPECT_NEAR(json["limits"]["minimumRange"].get<double>(), 2000, 0.1);
    EXPECT_NEAR(json["limits"]["maximumRange"].get<double>(), 2000 + 3000 * (39.0 / 40) * (29.0 / 30), 0.1);
    EXPECT_EQ(json["registration"]["translation"], Json::array({10, 20, 3}));
    EXPECT_EQ(json["registration"]["xAxis"], Json::array({1, 0, 0}));
    EXPECT_EQ(json["registration"]["modified"], true);
    EXPECT_FALSE(json["scan"]["uuid"].is_null());
    EXPECT_TRUE(json["scan"]["parentUuid"].is_null());
}

TEST_F(Info, JsonTellsEveryComponentAndItsSize) {
    const Json json = ReadJson();
    std::set<int> numbers;
    uint64_t bytes = 0;
    for (const Json& component : json["components"]) {
        numbers.insert(component["number"].get<int>());
        EXPECT_EQ(component["codec"], component["number"] == 6 ? "Color" : "Grid") << component;
        EXPECT_EQ(component["storedPatches"].get<int>() + component["emptyPatches"].get<int>(), 6)
            << component;
        EXPECT_EQ(component["absentPatches"], 0) << component;
        EXPECT_GT(component["bytes"], 0) << component;
        EXPECT_DOUBLE_EQ(component["bitsPerCell"].get<double>(), component["bytes"].get<double>() * 8 / 1200);
        EXPECT_GT(component["preview"]["width"], 0) << component;
        bytes += component["bytes"].get<uint64_t>();
    }
    EXPECT_EQ(numbers, (std::set<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_LT(bytes, json["file"]["bytes"].get<uint64_t>());
    EXPECT_EQ(json["file"]["bytes"], std::filesystem::file_size(m_folder.Path() / "scan.qsn"));
    EXPECT_NEAR(json["components"][0]["scale"].get<double>(), 0.1, 1e-8);
    EXPECT_TRUE(json["components"][3]["scale"].is_null());
}

TEST_F(Info, JsonHasExactlyTheDocumentedKeys) {
    ExpectDocumentedKeys({ReadJson()}, "## JSON of `qsn info`");
}

TEST_F(Info, TextTellsTheSameForPeople) {
    const ProgramResult result = RunQsn({"info", "scan.qsn"}, Here());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    for (const char* piece :
         {"40 x 30 = 1,200 cells", "3 x 2 of 16 x 16 cells", "1,164", "range", "intensity16", "color", "Grid",
          "Color", "2.0000 to 4.8275 m", "0.1 mm", "main header 210, scan header 270", "20.000000"})
        EXPECT_NE(result.out.find(piece), std::string::npos) << piece << "\n" << result.out;
    EXPECT_EQ(result.out.find('\t'), std::string::npos);
    EXPECT_EQ(result.out.find(" \n"), std::string::npos) << "blanks at the end of a line";
}

}  // namespace
}  // namespace qsn
