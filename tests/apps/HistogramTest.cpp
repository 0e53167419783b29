// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "BareScan.h"
#include "DocumentedKeys.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

using Json = nlohmann::json;
using Counts = std::map<uint64_t, uint64_t>;

class Histogram : public ImportedScan {
protected:
    void SetUp() override { Import(MakeSmallPtx(), {"--patch", "16"}); }

    static Counts CountsOf(const Json& json) {
        Counts counts;
        uint64_t last = 0;
        for (const Json& row : json["values"]) {
            const auto value = row["value"].get<uint64_t>();
            EXPECT_TRUE(counts.empty() || value > last) << "not ascending";
            last = value;
            counts[value] = row["count"].get<uint64_t>();
        }
        return counts;
    }
    /// Counts what the file stores, taken out by another command.
    template <class T>
    Counts Counted(std::vector<std::string> options) {
        std::vector<std::string> line = {"lod", "-q", "-f", "--level", "0", "scan.qsn", "values.raw"};
        line.insert(line.end(), options.begin(), options.end());
        EXPECT_EQ(Run(line).exitCode, 0);
        const std::string raw = m_folder.Read("values.raw");
        Counts counts;
        for (size_t i = 0; i + sizeof(T) <= raw.size(); i += sizeof(T)) {
            T value;
            std::memcpy(&value, raw.data() + i, sizeof(T));
            ++counts[value];
        }
        return counts;
    }
};

TEST_F(Histogram, CountsEveryStoredValue) {
    const Json bytes = OutputJson({"histogram", "scan.qsn"});
    EXPECT_EQ(bytes["schema"], "qsn.histogram");
    EXPECT_EQ(bytes["version"], 1);
    EXPECT_EQ(bytes["component"], "intensity8");
    EXPECT_TRUE(bytes["patchRow"].is_null());
    EXPECT_EQ(bytes["total"], 1200);
    EXPECT_EQ(CountsOf(bytes), Counted<uint8_t>({"--component", "intensity8"}));
    const Json words = OutputJson({"histogram", "--component", "intensity", "scan.qsn"});
    EXPECT_EQ(words["component"], "intensity16");
    EXPECT_EQ(CountsOf(words), Counted<uint16_t>({"--component", "intensity16"}));
    ExpectDocumentedKeys({bytes}, "### JSON of `qsn histogram`");
}

TEST_F(Histogram, OfAPatchCountsItsCellsOnly) {
    const Json json = OutputJson({"histogram", "--patch", "0,1", "--component", "5", "scan.qsn"});
    EXPECT_EQ(json["patchRow"], 0);
    EXPECT_EQ(json["patchColumn"], 1);
    EXPECT_EQ(json["total"], 16 * 16);
    EXPECT_EQ(CountsOf(json), Counted<uint16_t>({"--component", "5", "--row", "0", "--column", "1"}));
}

TEST_F(Histogram, TextIsATable) {
    const std::string text = Output({"histogram", "--component", "intensity8", "scan.qsn"});
    EXPECT_TRUE(text.starts_with("intensity8: ")) << text;
    EXPECT_NE(text.find("1,200 cells"), std::string::npos) << text;
    EXPECT_NE(text.find("value  count"), std::string::npos) << text;
    EXPECT_NE(text.find("0     66  5.500 %"), std::string::npos) << text;  // 36 holes, 30 dark cells
    EXPECT_NE(Output({"histogram", "--patch", "1,2", "scan.qsn"}).find("the patch at row 1, column 2"),
              std::string::npos);
}

TEST_F(Histogram, AComponentOrAFileWithoutOneIsNamed) {
    ExpectFailure({"histogram", "--component", "range", "scan.qsn"}, 2,
                  "scan.qsn: no histogram of component range");
    m_folder.Write("bare.qsn", FileText(BareScan()));
    ExpectFailure({"histogram", "bare.qsn"}, 2, "bare.qsn: the file has no histograms");
}

TEST_F(Histogram, WrongUseIsRefused) {
    ExpectFailure({"histogram", "--component", "height", "scan.qsn"}, 2, "height");
    ExpectFailure({"histogram", "--patch", "0,3", "scan.qsn"}, 2, "2 rows and 3 columns of patches");
    ExpectFailure({"histogram", "--patch", "7", "scan.qsn"}, 2, "--patch 7");
}

}  // namespace
}  // namespace qsn
