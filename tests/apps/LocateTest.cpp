// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>

#include "BareScan.h"
#include "DocumentedKeys.h"
#include "ImportedScan.h"
#include "SampleRegistration.h"

namespace qsn {
namespace {

using Json = nlohmann::json;
using Point = std::array<double, 3>;

/// As an option's value.
std::string Numbers(const Json& values) {
    std::string text;
    for (const Json& value : values)
        text += (text.empty() ? "" : ",") + value.dump();
    return text;
}

double Distance(const Point& a, const Point& b) {
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

/// 40 x 30 cells of one degree; the scanner stands at (10, 20, 3).
class Locate : public ImportedScan {
protected:
    void SetUp() override { Import(MakeSmallPtx(), {"--patch", "16"}); }
    Json At(const std::string& option, const std::string& value, bool registered = false) const {
        std::vector<std::string> line = {"locate", "scan.qsn", option, value};
        if (registered) line.emplace_back("--registered");
        return OutputJson(line);
    }
};

TEST_F(Locate, ACellTellsWhereItIsAndWhatItStores) {
    const Json json = At("--cell", "17,36");
    EXPECT_EQ(json["schema"], "qsn.locate");
    EXPECT_EQ(json["version"], 1);
    EXPECT_EQ(json["file"], "scan.qsn");
    EXPECT_EQ(json["row"], 17);
    EXPECT_EQ(json["column"], 36);
    EXPECT_EQ(json["patchRow"], 1);
    EXPECT_EQ(json["patchColumn"], 2);
    EXPECT_EQ(json["patchIndex"], 5);
    EXPECT_EQ(json["rowInPatch"], 1);
    EXPECT_EQ(json["columnInPatch"], 4);
    EXPECT_EQ(json["indexInPatch"], 20);
    EXPECT_EQ(json["hasReturn"], true);
    const double range = 2 + 3 * (36.0 / 40) * (17.0 / 30);
    EXPECT_NEAR(json["rangeMetres"].get<double>(), range, 1e-4);
    const double horizontal = 180 / std::numbers::pi - 36;
    EXPECT_NEAR(json["horizontalDegrees"].get<double>(), horizontal, 1e-3);
    EXPECT_NEAR(json["verticalDegrees"].get<double>(), 75.5 + 17, 1e-3);
    // The radians are the shortest text of a number in single precision.
    EXPECT_NEAR(json["verticalRadians"].get<double>() * 180 / std::numbers::pi,
                json["verticalDegrees"].get<double>(), 1e-5);
    const auto local = json["localMetres"].get<Point>();
    EXPECT_NEAR(Distance(local, {0, 0, 0}), range, 2e-4);
    EXPECT_NEAR(std::atan2(local[1], local[0]) * 180 / std::numbers::pi, horizontal, 1e-3);
    const auto registered = json["registeredMetres"].get<Point>();
    EXPECT_LT(Distance(registered, {local[0] + 10, local[1] + 20, local[2] + 3}), 1e-6);
    for (const char* key : {"exact", "distanceMetres", "offDirectionDegrees"})
        EXPECT_TRUE(json[key].is_null()) << key;
    ExpectDocumentedKeys({json}, "### JSON of `qsn locate`");
}

TEST_F(Locate, ACellWithoutAReturnSaysSo) {
    const Json json = At("--cell", "7,10");
    EXPECT_EQ(json["hasReturn"], false);
    for (const char* key : {"rangeMetres", "localMetres", "registeredMetres"})
        EXPECT_TRUE(json[key].is_null()) << key;
    EXPECT_NEAR(json["verticalDegrees"].get<double>(), 75.5 + 7, 0.5);
    const std::string text = Output({"locate", "--cell", "7,10", "scan.qsn"});
    EXPECT_NE(text.find("no return"), std::string::npos) << text;
    EXPECT_EQ(text.find("frame"), std::string::npos) << text;
}

TEST_F(Locate, ADirectionFindsTheNearestReturn) {
    // 0.3 degrees beside the cell of row 20, column 15, then of a hole.
    const double column15 = 180 / std::numbers::pi - 15;
    Json json = At("--direction", std::to_string(column15 + 0.3) + ", 95.5");
    EXPECT_EQ(json["row"], 20);
    EXPECT_EQ(json["column"], 15);
    EXPECT_NEAR(json["offDirectionDegrees"].get<double>(), 0.3 * std::sin(95.5 * std::numbers::pi / 180),
                1e-3);
    json = At("--direction", std::to_string(180 / std::numbers::pi - 10) + ",82.5");
    EXPECT_NE(std::pair(json["row"].get<int>(), json["column"].get<int>()), std::pair(7, 10));
    EXPECT_EQ(json["hasReturn"], true);
    EXPECT_NEAR(json["offDirectionDegrees"].get<double>(), 1, 0.05);
    // Whole turns do not matter.
    EXPECT_EQ(At("--direction", std::to_string(column15 + 720) + ",95.5")["column"], 15);
}

TEST_F(Locate, APointThatNoCellStoresGivesTheReturnBehindIt) {
    const auto stored = At("--cell", "20,15")["localMetres"].get<Point>();
    const Point nearer = {stored[0] * 0.9, stored[1] * 0.9, stored[2] * 0.9};
    const Json json = At("--point", Numbers(nearer));
    EXPECT_EQ(json["row"], 20);
    EXPECT_EQ(json["column"], 15);
    EXPECT_EQ(json["exact"], false);
    EXPECT_NEAR(json["distanceMetres"].get<double>(), 0.1 * Distance(stored, {0, 0, 0}), 1e-5);
    const std::string text = Output({"locate", "--point", Numbers(nearer), "scan.qsn"});
    EXPECT_NE(text.find("the nearest return in its direction"), std::string::npos) << text;
    EXPECT_NE(Output({"locate", "--point", Numbers(stored), "scan.qsn"}).find("is stored here"),
              std::string::npos);
}

TEST_F(Locate, PointsAndDirectionsOfTheProjectAreTurnedBack) {
    const auto values = TurnedAndMoved();
    ASSERT_EQ(Run({"edit", "--registration", RegistrationOption(values), "scan.qsn"}).exitCode, 0);
    const Json cell = At("--cell", "20,15");
    const auto registered = cell["registeredMetres"].get<Point>();
    const Json found = At("--point", Numbers(registered), true);
    EXPECT_EQ(found["row"], 20);
    EXPECT_EQ(found["column"], 15);
    EXPECT_EQ(found["exact"], true);
    EXPECT_LT(found["distanceMetres"].get<double>(), 1e-5);
    // From the scanner to the point, as angles in the project.
    const Point way = {registered[0] - values[9], registered[1] - values[10], registered[2] - values[11]};
    const double h = std::atan2(way[1], way[0]) * 180 / std::numbers::pi;
    const double v = std::acos(way[2] / Distance(way, {0, 0, 0})) * 180 / std::numbers::pi;
    const Json seen = At("--direction", Numbers(std::array{h, v}), true);
    EXPECT_EQ(seen["row"], 20);
    EXPECT_EQ(seen["column"], 15);
    EXPECT_LT(seen["offDirectionDegrees"].get<double>(), 1e-4);
    // In the scanner's own frame the same numbers lie elsewhere.
    ExpectFailure({"locate", "--point", Numbers(registered), "scan.qsn"}, 2, "scan.qsn");
}

TEST_F(Locate, ARegistrationThatCannotBeUndoneIsSaid) {
    std::string bytes = m_folder.Read("scan.qsn");
    size_t scanHeader = 0;
    for (size_t i = 8; i-- > 0;)
        scanHeader = scanHeader << 8 | static_cast<unsigned char>(bytes[16 + i]);
    for (size_t i = 0; i < 24; ++i)
        bytes[scanHeader + 68 + i] = 0;  // no X axis
    m_folder.Write("scan.qsn", bytes);
    ExpectFailure({"locate", "--registered", "--point", "11,21,3", "scan.qsn"}, 2, "cannot be undone");
}

TEST_F(Locate, WhatLiesOutsideTheScanIsNotFound) {
    ExpectFailure({"locate", "--direction", "-120,90", "scan.qsn"}, 2, "outside the grid of 30 rows and 40");
    ExpectFailure({"locate", "--point", "-1,-2,0", "scan.qsn"}, 2, "scan.qsn");
    ExpectFailure({"locate", "--point", "0,0,0", "scan.qsn"}, 2, "the scanner's own place");
    ExpectFailure({"locate", "--cell", "30,0", "scan.qsn"}, 2, "30 rows and 40 columns");
    ExpectFailure({"locate", "--cell", "0,40", "scan.qsn"}, 2, "30 rows and 40 columns");
}

TEST_F(Locate, WrongUseIsRefused) {
    ExpectFailure({"locate", "scan.qsn"}, 2, "one of --point");
    ExpectFailure({"locate", "--cell", "1,1", "--point", "1,1,1", "scan.qsn"}, 2, "one of --point");
    ExpectFailure({"locate", "--cell", "1,1", "--registered", "scan.qsn"}, 2, "--registered");
    for (const char* value : {"1,2", "1,2,3,4", "1,2,x", "1,2,nan", "1;2;3"})
        ExpectFailure({"locate", "--point", value, "scan.qsn"}, 2, std::string("--point ") + value);
    for (const char* value : {"1", "1,2,3", "10,-1", "10,180.5", "inf,90"})
        ExpectFailure({"locate", "--direction", value, "scan.qsn"}, 2, std::string("--direction ") + value);
    for (const char* value : {"1", "-1,2", "1.5,2", "1,2,3"})
        ExpectFailure({"locate", "--cell", value, "scan.qsn"}, 2, std::string("--cell ") + value);
}

TEST_F(Locate, AScanWithoutAnglesSaysWhatIsMissing) {
    m_folder.Write("bare.qsn", FileText(BareScan()));
    ExpectFailure({"locate", "--cell", "1,1", "bare.qsn"}, 2, "bare.qsn: the file has no component vertical");
}

/// The pump room, with its registration as it is and with one that turns and moves.
class LocateOnThePump : public ImportedScan {
protected:
    void SetUp() override { ImportFile(KXIO_SOURCE_DIR "/tests/data/pump_345x1074.ptx.gz"); }

    /// Cells all over the scan: what they store leads back to them.
    void ExpectRoundTrips(bool registered) const {
        unsigned returns = 0;
        for (uint32_t i = 0; i < 24; ++i) {
            const uint32_t row = (i * 389 + 40) % 1074;
            const uint32_t column = (i * 127 + 30) % 345;
            const std::string cell = std::to_string(row) + "," + std::to_string(column);
            const Json stored = OutputJson({"locate", "--cell", cell, "scan.qsn"});
            if (!stored["hasReturn"].get<bool>()) continue;
            ++returns;
            std::vector<std::string> line = {
                "locate", "scan.qsn", "--point",
                Numbers(stored[registered ? "registeredMetres" : "localMetres"])};
            if (registered) line.emplace_back("--registered");
            const Json found = OutputJson(line);
            EXPECT_EQ(found["exact"], true) << cell << " " << found;
            EXPECT_EQ(found["row"], row) << cell;
            EXPECT_EQ(found["column"], column) << cell;
            for (const char* key : {"rangeMetres", "horizontalRadians", "verticalRadians", "localMetres"})
                EXPECT_EQ(found[key], stored[key]) << cell << " " << key;
        }
        EXPECT_GE(returns, 6U);
    }
};

TEST_F(LocateOnThePump, PointsLeadBackToTheirCells) {
    ExpectRoundTrips(false);
}

TEST_F(LocateOnThePump, PointsOfTheProjectLeadBackToTheirCells) {
    ASSERT_EQ(
        Run({"edit", "-q", "--registration", RegistrationOption(TurnedAndMoved()), "scan.qsn"}).exitCode, 0);
    ExpectRoundTrips(true);
}

}  // namespace
}  // namespace qsn
