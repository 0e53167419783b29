// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>

#include "RunProgram.h"
#include "SamplePtx.h"
#include "TemporaryFolder.h"

namespace qsn {
namespace {

using Json = nlohmann::json;

class Info : public testing::Test {
protected:
    void SetUp() override {
        m_folder.Write("source.ptx", MakeSmallPtx());
        const ProgramResult import =
            RunQsn({"import", "-q", "--patch", "16", "source.ptx", "scan.qsn"}, Here());
        ASSERT_EQ(import.exitCode, 0) << import.err;
    }
    ProgramOptions Here() const { return {m_folder.Path(), {}, false}; }
    Json ReadJson() const {
        const ProgramResult result = RunQsn({"info", "--json", "scan.qsn"}, Here());
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return Json::parse(result.out);
    }

    TemporaryFolder m_folder;
};

/// "grid.columns", "components[].codec": every key of the document. Arrays of plain values end the path.
void CollectKeys(const Json& json, const std::string& prefix, std::set<std::string>& keys) {
    for (const auto& [key, value] : json.items()) {
        const std::string name = prefix.empty() ? key : prefix + "." + key;
        if (value.is_object()) {
            CollectKeys(value, name, keys);
        } else if (value.is_array() && !value.empty() && value[0].is_object()) {
            for (const Json& element : value)
                CollectKeys(element, name + "[]", keys);
        } else {
            keys.insert(name);
        }
    }
}

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
        EXPECT_EQ(component["codec"], "ZLib") << component;
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
    std::set<std::string> present;
    CollectKeys(ReadJson(), "", present);
    // The guide lists each key in a table row: | `key` | ...
    std::ifstream guide(KXIO_SOURCE_DIR "/docs/guide-qsn.md");
    const std::string text((std::istreambuf_iterator<char>(guide)), {});
    const size_t begin = text.find("## JSON of `qsn info`");
    ASSERT_NE(begin, std::string::npos);
    const std::string section = text.substr(begin, text.find("\n## ", begin + 1) - begin);
    std::set<std::string> documented;
    std::set<std::string> sometimesNull;
    const std::string rowStart = "\n| `";
    for (size_t at = section.find(rowStart); at != std::string::npos; at = section.find(rowStart, at + 1)) {
        const size_t key = at + rowStart.size();
        documented.insert(section.substr(key, section.find('`', key) - key));
    }
    // An object that is null has none of its keys; the guide lists both.
    for (const std::string& key : documented) {
        const size_t dot = key.rfind('.');
        if (dot != std::string::npos && present.count(key.substr(0, dot)) != 0) sometimesNull.insert(key);
        const bool isObject =
            std::any_of(documented.begin(), documented.end(),
                        [&](const std::string& other) { return other.starts_with(key + "."); });
        if (isObject && present.count(key) == 0) sometimesNull.insert(key);
    }
    for (const std::string& key : present)
        EXPECT_EQ(documented.count(key), 1U) << key << " is not documented";
    for (const std::string& key : documented)
        EXPECT_TRUE(present.count(key) == 1 || sometimesNull.count(key) == 1)
            << key << " is documented but not there";
}

TEST_F(Info, TextTellsTheSameForPeople) {
    const ProgramResult result = RunQsn({"info", "scan.qsn"}, Here());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    for (const char* piece :
         {"40 x 30 = 1,200 cells", "3 x 2 of 16 x 16 cells", "1,164", "range", "intensity16", "color", "ZLib",
          "2.0000 to 4.8275 m", "0.1 mm", "main header 210, scan header 270", "20.000000"})
        EXPECT_NE(result.out.find(piece), std::string::npos) << piece << "\n" << result.out;
    EXPECT_EQ(result.out.find('\t'), std::string::npos);
    EXPECT_EQ(result.out.find(" \n"), std::string::npos) << "blanks at the end of a line";
}

}  // namespace
}  // namespace qsn
