// SPDX-License-Identifier: MIT
// The whole way of two real scans: in, told about, drawn, out again.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Legend.h"
#include "ReadPng.h"
#include "RunProgram.h"
#include "SamplePtx.h"
#include "TemporaryFolder.h"

namespace qsn {
namespace {

using Names = std::vector<std::string>;

struct RealScan {
    const char* name;
    uint32_t columns;
    uint32_t rows;
    uint64_t returns;
};
void PrintTo(const RealScan& scan, std::ostream* out) {
    *out << scan.name;
}

class RealScans : public testing::TestWithParam<RealScan> {};

/// The fields of the header of a PLY file: "element vertex 5", "property float x" ...
std::vector<std::string> PlyHeader(const std::string& file) {
    std::vector<std::string> lines;
    std::istringstream in(file);
    for (std::string line; std::getline(in, line) && line != "end_header";)
        lines.push_back(line);
    return lines;
}

TEST_P(RealScans, ImportInfoPreviewAndExportAgree) {
    const RealScan& scan = GetParam();
    const TemporaryFolder folder;
    const ProgramOptions here{folder.Path(), {}, false};
    const std::string source = std::string(KXIO_SOURCE_DIR "/tests/data/") + scan.name;

    ProgramResult result = RunQsn({"import", source, "scan.qsn"}, here);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err.find('\r'), std::string::npos);

    result = RunQsn({"info", "--json", "scan.qsn"}, here);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const nlohmann::json info = nlohmann::json::parse(result.out);
    EXPECT_EQ(info["grid"]["columns"], scan.columns);
    EXPECT_EQ(info["grid"]["rows"], scan.rows);
    EXPECT_EQ(info["scan"]["validPoints"], scan.returns);
    EXPECT_EQ(info["components"].size(), 6U);

    for (const char* component : {"range", "intensity16", "color"}) {
        result = RunQsn({"preview", "--force", "--component", component, "scan.qsn", "scan.png"}, here);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const Picture picture = ReadPng(folder.File("scan.png"));
        const bool legend = std::string(component) == "range";
        const uint32_t height = picture.Height() - (legend ? LegendHeight(picture.Width()) : 0);
        uint64_t opaque = 0;
        for (uint32_t y = 0; y < height; ++y) {
            for (uint32_t x = 0; x < picture.Width(); ++x)
                opaque += picture.At(x, y).alpha == 255;
        }
        const double share = static_cast<double>(opaque) / (static_cast<double>(picture.Width()) * height);
        EXPECT_NEAR(share,
                    static_cast<double>(scan.returns) / (static_cast<double>(scan.columns) * scan.rows), 0.01)
            << component;
        const double width = info["grid"]["horizontal"]["stepDegrees"].get<double>() * scan.columns;
        const double high = info["grid"]["vertical"]["stepDegrees"].get<double>() * scan.rows;
        EXPECT_NEAR(picture.Width() / static_cast<double>(height), width / high, 0.01 * width / high)
            << component;
    }

    result = RunQsn({"export", "scan.qsn", "scan.ply"}, here);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::string ply = folder.Read("scan.ply");
    const std::vector<std::string> header = PlyHeader(ply);
    EXPECT_NE(std::find(header.begin(), header.end(), "element vertex " + std::to_string(scan.returns)),
              header.end());

    result = RunQsn({"export", "scan.qsn", "scan.ptx"}, here);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::istringstream ptx(folder.Read("scan.ptx"));
    uint32_t columns = 0, rows = 0;
    ptx >> columns >> rows;
    EXPECT_EQ(columns, scan.columns);
    EXPECT_EQ(rows, scan.rows);
    EXPECT_EQ(folder.Names(), (Names{"scan.ply", "scan.png", "scan.ptx", "scan.qsn"}));
}

INSTANTIATE_TEST_SUITE_P(InTree, RealScans,
                         testing::Values(RealScan{"pump_345x1074.ptx.gz", 345, 1074, 155201},
                                         RealScan{"street_a_1024x128.ptx.gz", 1024, 128, 107647}),
                         [](const auto& tested) {
                             const std::string name = tested.param.name;
                             return name.substr(0, name.find('_'));
                         });

TEST(ImportCommand, SeveralScansOfAFileAreNumbered) {
    const TemporaryFolder folder;
    const ProgramOptions here{folder.Path(), {}, false};
    folder.Write("three.ptx", MakeSmallPtx(12, 10) + MakeSmallPtx(13, 10) + MakeSmallPtx(14, 10));
    const ProgramResult result = RunQsn({"import", "three.ptx", "out.qsn"}, here);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(folder.Names(), (Names{"out_1.qsn", "out_2.qsn", "out_3.qsn", "three.ptx"}));
    for (int i = 1; i <= 3; ++i) {
        const std::string name = "out_" + std::to_string(i) + ".qsn";
        const ProgramResult info = RunQsn({"info", "--json", name}, here);
        EXPECT_EQ(nlohmann::json::parse(info.out)["grid"]["columns"], 11 + i) << name;
        EXPECT_NE(result.err.find("-> " + name), std::string::npos) << result.err;
    }
}

TEST(ImportCommand, OneScanOfSeveralKeepsTheNameGiven) {
    const TemporaryFolder folder;
    const ProgramOptions here{folder.Path(), {}, false};
    folder.Write("two.ptx", MakeSmallPtx(12, 10) + MakeSmallPtx(13, 10));
    ASSERT_EQ(RunQsn({"import", "--scan", "2", "two.ptx", "out.qsn"}, here).exitCode, 0);
    EXPECT_EQ(folder.Names(), (Names{"out.qsn", "two.ptx"}));
    EXPECT_EQ(nlohmann::json::parse(RunQsn({"info", "--json", "out.qsn"}, here).out)["grid"]["columns"], 13);
    const ProgramResult beyond = RunQsn({"import", "--scan", "3", "two.ptx", "third.qsn"}, here);
    EXPECT_EQ(beyond.exitCode, 2);
    EXPECT_NE(beyond.err.find("two.ptx"), std::string::npos) << beyond.err;
    EXPECT_FALSE(folder.Has("third.qsn"));
}

TEST(ImportCommand, AFileWithADamagedSecondScanKeepsTheFirst) {
    const TemporaryFolder folder;
    const ProgramOptions here{folder.Path(), {}, false};
    const std::string second = MakeSmallPtx(13, 10);
    folder.Write("two.ptx", MakeSmallPtx(12, 10) + second.substr(0, second.size() / 2));
    const ProgramResult result = RunQsn({"import", "two.ptx", "out.qsn"}, here);
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_NE(result.err.find("two.ptx"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("line "), std::string::npos) << result.err;
    EXPECT_EQ(folder.Names(), (Names{"out_1.qsn", "two.ptx"}));
}

TEST(ImportCommand, ABrokenLineIsNamedAndNothingIsLeft) {
    const TemporaryFolder folder;
    const ProgramOptions here{folder.Path(), {}, false};
    std::string text = MakeSmallPtx(12, 10);
    text.replace(text.rfind("\n", text.size() - 2) + 1, 3, "abc");
    folder.Write("bad.ptx", text);
    const ProgramResult result = RunQsn({"import", "bad.ptx", "out.qsn"}, here);
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_NE(result.err.find("line 130"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("bad.ptx"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("byte "), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("abc"), std::string::npos) << result.err;
    EXPECT_EQ(folder.Names(), Names{"bad.ptx"});
}

TEST(ImportCommand, OptionsReachTheFile) {
    const TemporaryFolder folder;
    const ProgramOptions here{folder.Path(), {}, false};
    folder.Write("source.ptx", MakeSmallPtx());
    const ProgramResult result = RunQsn(
        {"import", "--patch", "10x8", "--codec", "range=snappy,angles=snappy", "--codec", "intensity=snappy",
         "--scale", "range=1", "--scale", "angles=1e-5", "--color", "jpeg", "source.ptx", "out.qsn"},
        here);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto info = nlohmann::json::parse(RunQsn({"info", "--json", "out.qsn"}, here).out);
    EXPECT_EQ(info["grid"]["patchWidth"], 10);
    EXPECT_EQ(info["grid"]["patchHeight"], 8);
    const std::vector<std::string> codecs = {"Snappy", "Snappy", "Snappy", "Snappy", "Snappy", "JPEG"};
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(info["components"][i]["codec"], codecs[i]) << i;
    EXPECT_NEAR(info["components"][0]["scale"].get<double>(), 1, 1e-6);
    EXPECT_NEAR(info["components"][2]["scale"].get<double>(), 1e-5, 1e-11);
}

TEST(ExportCommand, RegistrationIsAppliedOrNotAsAsked) {
    const TemporaryFolder folder;
    const ProgramOptions here{folder.Path(), {}, false};
    // One cell each 3 m away, instrument at (10, 20, 3).
    folder.Write("source.ptx", MakePtx(4, 4, [](uint32_t, uint32_t) { return SampleCell{3, 0.5, 1, 2, 3}; }));
    ASSERT_EQ(RunQsn({"import", "source.ptx", "scan.qsn"}, here).exitCode, 0);
    const auto firstPoint = [&](const std::string& name, const std::vector<std::string>& options) {
        std::vector<std::string> arguments = {"export", "scan.qsn", name};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const ProgramResult result = RunQsn(arguments, here);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        std::istringstream in(folder.Read(name));
        double x = 0, y = 0, z = 0;
        in >> x >> y >> z;
        return std::array<double, 3>{x, y, z};
    };
    const auto local = firstPoint("local.xyz", {"--local"});
    const auto registered = firstPoint("registered.xyz", {"--registered"});
    EXPECT_NEAR(std::hypot(local[0], local[1], local[2]), 3, 1e-3);
    EXPECT_NEAR(std::hypot(registered[0] - 10, registered[1] - 20, registered[2] - 3), 3, 1e-3);
    EXPECT_EQ(firstPoint("default.xyz", {}), registered);
}

TEST(ExportCommand, ResultsDoNotDependOnTheNumberOfThreads) {
    const TemporaryFolder folder;
    const ProgramOptions here{folder.Path(), {}, false};
    folder.Write("source.ptx", MakeSmallPtx(200, 150));
    ASSERT_EQ(RunQsn({"import", "--patch", "32", "source.ptx", "scan.qsn"}, here).exitCode, 0);
    for (const std::string ending : {".ply", ".xyz", ".ptx"}) {
        ASSERT_EQ(RunQsn({"export", "--threads", "1", "scan.qsn", "one" + ending}, here).exitCode, 0);
        ASSERT_EQ(RunQsn({"export", "--threads", "4", "scan.qsn", "four" + ending}, here).exitCode, 0);
        EXPECT_EQ(folder.Read("one" + ending), folder.Read("four" + ending)) << ending;
    }
}

}  // namespace
}  // namespace qsn
