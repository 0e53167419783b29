// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>

#include "BareScan.h"
#include "DocumentedKeys.h"
#include "ImportedScan.h"

namespace qsn {
namespace {

using Json = nlohmann::json;
using Point = std::array<double, 3>;

class BoundingBox : public ImportedScan {
protected:
    /// The upper left patch of 16 x 16 has returns, the one below it and all others have none.
    void ImportOneFullPatch() {
        Import(MakePtx(40, 30,
                       [](uint32_t column, uint32_t row) {
                           SampleCell cell;
                           if (column < 16 && row < 16) cell.range = 4;
                           return cell;
                       }),
               {"--patch", "16"});
    }
};

TEST_F(BoundingBox, OfAScanHoldsItsPointsInBothFrames) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx(), {"--patch", "16"}));
    const Json json = OutputJson({"bbox", "scan.qsn"});
    EXPECT_EQ(json["schema"], "qsn.bbox");
    EXPECT_EQ(json["version"], 1);
    EXPECT_EQ(json["hasReturns"], true);
    EXPECT_NEAR(json["start"]["rangeMetres"].get<double>(), 2, 1e-4);
    EXPECT_NEAR(json["end"]["rangeMetres"].get<double>(), 2 + 3 * (39.0 / 40) * (29.0 / 30), 1e-4);
    // Half a step beyond the first and the last cell.
    EXPECT_NEAR(json["start"]["horizontalDegrees"].get<double>(), 180 / std::numbers::pi + 0.5, 1e-3);
    EXPECT_NEAR(json["end"]["horizontalDegrees"].get<double>(), 180 / std::numbers::pi - 39.5, 1e-3);
    EXPECT_NEAR(json["start"]["verticalDegrees"].get<double>(), 75, 1e-3);
    EXPECT_NEAR(json["end"]["verticalDegrees"].get<double>(), 105, 1e-3);

    // Registered is 10, 20, 3 away.
    for (const auto& [frame, key] :
         {std::pair("local", "localMetres"), std::pair("registered", "registeredMetres")}) {
        const auto minimum = json[frame]["minimumMetres"].get<Point>();
        const auto maximum = json[frame]["maximumMetres"].get<Point>();
        for (const char* cell : {"0,0", "0,39", "29,0", "29,39", "15,20", "16,15"}) {
            const auto point = OutputJson({"locate", "--cell", cell, "scan.qsn"})[key].get<Point>();
            for (size_t i = 0; i < 3; ++i) {
                EXPECT_LE(minimum[i], point[i]) << frame << " " << cell;
                EXPECT_GE(maximum[i], point[i]) << frame << " " << cell;
            }
        }
    }
    const auto local = json["local"]["minimumMetres"].get<Point>();
    const auto registered = json["registered"]["minimumMetres"].get<Point>();
    EXPECT_NEAR(registered[0] - local[0], 10, 1e-5);
    EXPECT_NEAR(registered[1] - local[1], 20, 1e-5);
    EXPECT_NEAR(registered[2] - local[2], 3, 1e-5);
    ExpectDocumentedKeys({json, OutputJson({"bbox", "--patch", "0,0", "scan.qsn"})},
                         "### JSON of `qsn bbox`");
}

TEST_F(BoundingBox, AQuarterTurnSwapsTheSides) {
    ASSERT_NO_FATAL_FAILURE(Import(MakeSmallPtx(), {"--patch", "16"}));
    ASSERT_EQ(Run({"edit", "-q", "--registration", "0,1,0,-1,0,0,0,0,1,100,0,0", "scan.qsn"}).exitCode, 0);
    const Json json = OutputJson({"bbox", "scan.qsn"});
    const auto minimum = json["local"]["minimumMetres"].get<Point>();
    const auto maximum = json["local"]["maximumMetres"].get<Point>();
    EXPECT_EQ(json["registered"]["minimumMetres"].get<Point>(),
              (Point{100 - maximum[1], minimum[0], minimum[2]}));
    EXPECT_EQ(json["registered"]["maximumMetres"].get<Point>(),
              (Point{100 - minimum[1], maximum[0], maximum[2]}));
}

TEST_F(BoundingBox, APatchHasEightCorners) {
    ASSERT_NO_FATAL_FAILURE(ImportOneFullPatch());
    const Json json = OutputJson({"bbox", "--patch", "0,0", "scan.qsn"});
    EXPECT_EQ(json["patchRow"], 0);
    EXPECT_EQ(json["patchColumn"], 0);
    EXPECT_TRUE(json["local"].is_null());
    ASSERT_EQ(json["verticesMetres"].size(), 8U);
    // Near the scanner 4 m, beyond it more, for the far face must enclose the sphere.
    for (size_t i = 0; i < 8; ++i) {
        const auto vertex = json["verticesMetres"][i].get<Point>();
        const double distance = std::hypot(vertex[0], vertex[1], vertex[2]);
        if (i < 4) {
            EXPECT_GT(distance, 4.0);
        } else {
            EXPECT_NEAR(distance, 4.0, 1e-3);
        }
    }
    const std::string text = Output({"bbox", "--patch", "0,0", "scan.qsn"});
    EXPECT_NE(text.find("4.0000 to 4.0000 m"), std::string::npos) << text;
    EXPECT_NE(text.find("\n  8"), std::string::npos) << text;
}

TEST_F(BoundingBox, APatchWithoutReturnsIsSaidInWords) {
    ASSERT_NO_FATAL_FAILURE(ImportOneFullPatch());
    const std::string text = Output({"bbox", "--patch", "1,2", "scan.qsn"});
    EXPECT_NE(text.find("no returns"), std::string::npos) << text;
    EXPECT_EQ(text.find("Corners"), std::string::npos) << text;
    const Json json = OutputJson({"bbox", "--patch", "1,2", "scan.qsn"});
    EXPECT_EQ(json["hasReturns"], false);
    EXPECT_TRUE(json["start"]["rangeMetres"].is_null());
    EXPECT_TRUE(json["end"]["rangeMetres"].is_null());
    EXPECT_TRUE(json["verticesMetres"].is_null());
    EXPECT_NEAR(json["start"]["verticalDegrees"].get<double>(), 75 + 16, 0.1);
    // The box of the whole scan is that of its one patch with returns, not stretched to the scanner.
    const Json whole = OutputJson({"bbox", "scan.qsn"});
    EXPECT_GT(whole["local"]["minimumMetres"][0].get<double>(), 0.5);
}

TEST_F(BoundingBox, NoNumberIsNegativeZero) {
    ASSERT_NO_FATAL_FAILURE(ImportOneFullPatch());
    for (const char* patch : {"0,0", "1,2"}) {
        const std::string json = Output({"bbox", "--json", "--patch", patch, "scan.qsn"});
        EXPECT_EQ(json.find("-0.0,"), std::string::npos) << json;
        EXPECT_EQ(json.find("-0.0\n"), std::string::npos) << json;
        EXPECT_EQ(Output({"bbox", "--patch", patch, "scan.qsn"}).find("-0.0000 "), std::string::npos);
    }
}

TEST_F(BoundingBox, AScanWithoutReturnsHasNoBox) {
    m_folder.Write("empty.qsn", FileText(BareScan(0).Limits(0, 0, {{0.0F, 0.0F}})));
    const Json json = OutputJson({"bbox", "empty.qsn"});
    EXPECT_EQ(json["hasReturns"], false);
    EXPECT_TRUE(json["local"].is_null());
    EXPECT_TRUE(json["registered"].is_null());
    const std::string text = Output({"bbox", "empty.qsn"});
    EXPECT_NE(text.find("no returns"), std::string::npos) << text;
    EXPECT_EQ(text.find("Box"), std::string::npos) << text;
}

TEST_F(BoundingBox, AFileWithoutLimitsIsNamed) {
    m_folder.Write("bare.qsn", FileText(BareScan()));
    ExpectFailure({"bbox", "bare.qsn"}, 5, "No bounding information found (bare.qsn");
    ExpectFailure({"bbox", "--patch", "0,0", "bare.qsn"}, 5, "No bounding information found (bare.qsn");
}

TEST_F(BoundingBox, WrongUseIsRefused) {
    ASSERT_NO_FATAL_FAILURE(ImportOneFullPatch());
    ExpectFailure({"bbox", "--patch", "2,0", "scan.qsn"}, 2, "2 rows and 3 columns of patches");
    ExpectFailure({"bbox", "--patch", "0,3", "scan.qsn"}, 2, "2 rows and 3 columns of patches");
    for (const char* value : {"1", "-1,0", "a,b", "0,0,0"})
        ExpectFailure({"bbox", "--patch", value, "scan.qsn"}, 2, std::string("--patch ") + value);
}

}  // namespace
}  // namespace qsn
