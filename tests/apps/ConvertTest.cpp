// SPDX-License-Identifier: MIT
// qsn convert: many to many, many to one, folders, standard streams, going on after an interruption, losses.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "DocumentedKeys.h"
#include "RunProgram.h"
#include "SamplePtx.h"
#include "TemporaryFolder.h"

namespace qsn {
namespace {

using Names = std::vector<std::string>;
namespace fs = std::filesystem;

class Convert : public testing::Test {
protected:
    ProgramResult Run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "convert");
        return RunQsn(arguments, Here());
    }
    nlohmann::json Json(std::vector<std::string> arguments, int exitCode = 0) const {
        arguments.insert(arguments.begin(), "--json");
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        return nlohmann::json::parse(result.out, nullptr, false);
    }
    ProgramOptions Here() const { return {folder.Path(), {}, false}; }
    void MakeFolder(const std::string& name) const { fs::create_directory(folder.File(name)); }
    Names NamesIn(const std::string& name) const {
        Names names;
        for (const auto& entry : fs::directory_iterator(folder.File(name)))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    static bool Contains(const std::string& text, const std::string& piece) {
        return text.find(piece) != std::string::npos;
    }

    TemporaryFolder folder;
};

// A sweep of a room, as a text of points: nothing says their columns and rows.
std::string Sweep(double aside) {
    std::string text;
    for (int column = 0; column < 90; ++column) {
        for (int row = 0; row < 60; ++row) {
            const double azimuth = 0.02 * column, elevation = 0.02 * (row - 30),
                         range = 5 + std::sin(column * 0.3);
            text +=
                fmt::format("{:.6f} {:.6f} {:.6f}\n", range * std::cos(elevation) * std::cos(azimuth) + aside,
                            range * std::cos(elevation) * std::sin(azimuth), range * std::sin(elevation));
        }
    }
    return text;
}

TEST_F(Convert, PointsWithoutAGridArePutOnOneWhenAskedFor) {
    folder.Write("room.xyz", Sweep(0));
    const ProgramResult untold = Run({"room.xyz", "room.qsn"});
    EXPECT_EQ(untold.exitCode, 2);
    EXPECT_TRUE(Contains(untold.err, "--regrid")) << untold.err;
    const auto json = Json({"--regrid", "room.xyz", "room.qsn"});
    EXPECT_EQ(json["scans"][0]["points"], 90 * 60);
    EXPECT_EQ(json["scans"][0]["columns"], 90);
    EXPECT_EQ(json["scans"][0]["rows"], 60);
    EXPECT_TRUE(
        Contains(json["scans"][0]["warnings"].dump(), "Put on a grid of 90 x 60 cells: 5400 of 5400 points"));
    EXPECT_EQ(RunQsn({"import", "--regrid", "room.xyz", "again.qsn"}, Here()).exitCode, 0);
    EXPECT_EQ(Run({"--regrid", "room.xyz", "room.ptx"}).exitCode, 0);
    EXPECT_EQ(Run({"--regrid", "room.ptx", "same.ptx"}).exitCode, 0);
}

TEST_F(Convert, PointsOfNoSinglePlaceAreRefusedAGrid) {
    folder.Write("two.xyz", Sweep(0) + Sweep(3));
    folder.Write("one.xyz", Sweep(0));
    const ProgramResult refused = Run({"--regrid", "two.xyz", "two.qsn"});
    EXPECT_EQ(refused.exitCode, 4) << refused.err;
    EXPECT_TRUE(Contains(refused.err, "Cloud is no scan from one place")) << refused.err;
    EXPECT_FALSE(fs::exists(folder.File("two.qsn")));
    // The others are made all the same.
    EXPECT_EQ(Run({"--regrid", "--to", "qsn", "two.xyz", "one.xyz", "out/"}).exitCode, 6);
    EXPECT_EQ(NamesIn("out").back(), "one.qsn");
}

TEST_F(Convert, APlaneIsChosenByItsName) {
    folder.Write(
        "a.ptx",
        "2\n1\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n1 2 2 0.25\n2 4 4 0.75\n");
    ASSERT_EQ(Run({"a.ptx", "range.npy"}).exitCode, 0);
    ASSERT_EQ(Run({"--plane", "intensity", "a.ptx", "intensity.npy"}).exitCode, 0);
    const std::string range = folder.Read("range.npy"), intensity = folder.Read("intensity.npy");
    ASSERT_EQ(range.size(), 128U + 2 * 4);
    ASSERT_EQ(intensity.size(), 128U + 2 * 8);
    EXPECT_TRUE(Contains(range, "'descr': '<f4', 'fortran_order': True, 'shape': (1, 2)"));
    float ranges[2];
    std::memcpy(ranges, range.data() + 128, sizeof ranges);
    EXPECT_EQ(ranges[0], 3.0F);
    EXPECT_EQ(ranges[1], 6.0F);
    double intensities[2];
    std::memcpy(intensities, intensity.data() + 128, sizeof intensities);
    EXPECT_EQ(intensities[0], 0.25);
    EXPECT_EQ(intensities[1], 0.75);
    const ProgramResult unknown = Run({"--plane", "temperature", "a.ptx", "b.npy"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_TRUE(Contains(unknown.err, "found temperature, expected one of range")) << unknown.err;
}

TEST_F(Convert, AnyFormatToAnyOther) {
    folder.Write("a.ptx", MakeSmallPtx());
    EXPECT_EQ(Run({"a.ptx", "b.qsn"}).exitCode, 0);
    EXPECT_EQ(Run({"b.qsn", "c.ptx"}).exitCode, 0);
    EXPECT_EQ(Run({"c.ptx", "d.ply"}).exitCode, 0);  // past .qsn
    EXPECT_EQ(Run({"b.qsn", "d2.ply"}).exitCode, 0);
    EXPECT_EQ(Run({"b.qsn", "e.qsn"}).exitCode, 0);
    EXPECT_EQ(Run({"e.qsn", "f.ptx"}).exitCode, 0);
    EXPECT_EQ(folder.Read("f.ptx"), folder.Read("c.ptx"));
    EXPECT_EQ(folder.Names(), (Names{"a.ptx", "b.qsn", "c.ptx", "d.ply", "d2.ply", "e.qsn", "f.ptx"}));
}

TEST_F(Convert, ImportAndExportAreTheSameCode) {
    folder.Write("a.ptx", MakeSmallPtx());
    ASSERT_EQ(RunQsn({"import", "a.ptx", "b.qsn"}, Here()).exitCode, 0);
    ASSERT_EQ(Run({"a.ptx", "c.qsn"}).exitCode, 0);
    ASSERT_EQ(RunQsn({"export", "b.qsn", "b.ptx"}, Here()).exitCode, 0);
    ASSERT_EQ(Run({"c.qsn", "c.ptx"}).exitCode, 0);
    EXPECT_EQ(folder.Read("b.ptx"), folder.Read("c.ptx"));
}

TEST_F(Convert, AFileOfSeveralScansBecomesSeveralFiles) {
    folder.Write("two.ptx", MakeSmallPtx(12, 10) + MakeSmallPtx(13, 10));
    EXPECT_EQ(Run({"two.ptx", "room.qsn"}).exitCode, 0);
    EXPECT_EQ(folder.Names(), (Names{"room_1.qsn", "room_2.qsn", "two.ptx"}));
    EXPECT_EQ(Run({"--scan", "2", "two.ptx", "second.ply"}).exitCode, 0);
    EXPECT_TRUE(folder.Has("second.ply"));
    const ProgramResult beyond = Run({"--scan", "3", "two.ptx", "third.ply"});
    EXPECT_EQ(beyond.exitCode, 2) << beyond.err;
    const ProgramResult name = Run({"--scan", "kitchen", "two.ptx", "third.ply"});
    EXPECT_EQ(name.exitCode, 2);
    EXPECT_TRUE(Contains(name.err, "'kitchen'")) << name.err;
    EXPECT_FALSE(folder.Has("third.ply"));
}

TEST_F(Convert, SeveralFilesBecomeOneWhereTheFormatCan) {
    folder.Write("one.ptx", MakeSmallPtx(12, 10));
    folder.Write("two.ptx", MakeSmallPtx(13, 10) + MakeSmallPtx(14, 10));
    const auto json = Json({"one.ptx", "two.ptx", "all.ptx"});
    ASSERT_EQ(json["scans"].size(), 3U);
    EXPECT_EQ(json["scans"][2]["source"], "two.ptx");
    EXPECT_EQ(json["scans"][2]["scan"], 2);
    EXPECT_EQ(Json({"all.ptx", "back.qsn"})["scans"].size(), 3U);
    EXPECT_EQ(Json({"back_1.qsn", "back_2.qsn", "back_3.qsn", "again.ptx"})["scans"].size(), 3U);
    // Where it cannot, the files are numbered.
    EXPECT_EQ(Run({"back_1.qsn", "back_2.qsn", "point.ply"}).exitCode, 0);
    EXPECT_TRUE(folder.Has("point_1.ply") && folder.Has("point_2.ply"));
}

TEST_F(Convert, FoldersAreInputsAndOutputs) {
    MakeFolder("in");
    folder.Write("in/a.ptx", MakeSmallPtx(12, 10));
    folder.Write("in/b.c.ptx", MakeSmallPtx(12, 10) + MakeSmallPtx(13, 10));
    folder.Write("in/readme.txt", "no scan");
    EXPECT_EQ(Run({"--to", "qsn", "in", "out/"}).exitCode, 0);
    EXPECT_EQ(NamesIn("out"), (Names{"a.qsn", "b.c_1.qsn", "b.c_2.qsn"}));
    const ProgramResult untold = Run({"in", "out"});
    EXPECT_EQ(untold.exitCode, 2);
    EXPECT_TRUE(Contains(untold.err, "--to")) << untold.err;
    MakeFolder("empty");
    EXPECT_EQ(Run({"--to", "qsn", "empty", "out"}).exitCode, 2);
}

TEST_F(Convert, TwoInputsThatWouldBecomeOneFileAreRefused) {
    MakeFolder("x");
    MakeFolder("y");
    folder.Write("x/a.ptx", MakeSmallPtx(12, 10));
    folder.Write("y/a.ptx", MakeSmallPtx(12, 10));
    const ProgramResult result = Run({"--to", "qsn", "x", "y", "out/"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(Contains(result.err, "two scans")) << result.err;
}

TEST_F(Convert, StandardStreamsCarryAScanEitherWay) {
    folder.Write("a.ptx", MakeSmallPtx());
    ASSERT_EQ(Run({"a.ptx", "a.qsn"}).exitCode, 0);
    ASSERT_EQ(Run({"a.qsn", "plain.ptx"}).exitCode, 0);
    EXPECT_EQ(RunShellLine("qsn convert --from ptx --to qsn - - < a.ptx > b.qsn", Here()).exitCode, 0);
    // .qsn files are known by their first bytes.
    const ProgramResult piped = RunShellLine("qsn convert -q --to ptx - - < b.qsn", Here());
    EXPECT_EQ(piped.exitCode, 0) << piped.err;
    EXPECT_EQ(piped.out, folder.Read("plain.ptx"));
    EXPECT_EQ(RunShellLine("qsn import -q --from ptx - - < a.ptx > c.qsn", Here()).exitCode, 0);
    EXPECT_EQ(RunShellLine("qsn export -q --to ptx - - < c.qsn > c.ptx", Here()).exitCode, 0);
    EXPECT_EQ(folder.Read("c.ptx"), folder.Read("plain.ptx"));
    EXPECT_EQ(Run({"a.qsn", "-"}).exitCode, 2);
    EXPECT_EQ(Run({"--json", "--to", "ptx", "a.qsn", "-"}).exitCode, 2);
    EXPECT_EQ(folder.Names(), (Names{"a.ptx", "a.qsn", "b.qsn", "c.ptx", "c.qsn", "plain.ptx"}));
}

TEST_F(Convert, OneBadInputDoesNotCostTheOthers) {
    folder.Write("a.ptx", MakeSmallPtx(12, 10));
    folder.Write("bad.ptx", "12\n10\nnonsense\n");
    folder.Write("c.ptx", MakeSmallPtx(12, 10));
    const auto json = Json({"--to", "qsn", "a.ptx", "bad.ptx", "c.ptx", "."}, 6);
    EXPECT_EQ(json["scans"].size(), 2U);
    ASSERT_EQ(json["failures"].size(), 1U);
    EXPECT_EQ(json["failures"][0]["source"], "bad.ptx");
    EXPECT_EQ(json["failures"][0]["exitCode"], 5);
    EXPECT_TRUE(folder.Has("a.qsn") && folder.Has("c.qsn"));
    EXPECT_FALSE(folder.Has("bad.qsn"));
    // With nothing made at all, the failure is the answer.
    EXPECT_EQ(Run({"--to", "qsn", "bad.ptx", "missing.ptx", "out/"}).exitCode, 5);
}

TEST_F(Convert, OneFileOfAllScansIsMadeWholeOrNotAtAll) {
    folder.Write("a.ptx", MakeSmallPtx(12, 10));
    folder.Write("bad.ptx", "12\n10\nnonsense\n");
    EXPECT_EQ(Run({"a.ptx", "bad.ptx", "all.ptx"}).exitCode, 5);
    const auto json = Json({"a.ptx", "bad.ptx", "all.ptx"}, 5);
    EXPECT_TRUE(json["scans"].empty());
    ASSERT_EQ(json["failures"].size(), 1U);
    EXPECT_EQ(json["failures"][0]["source"], "bad.ptx");
    EXPECT_EQ(folder.Names(), (Names{"a.ptx", "bad.ptx"}));
}

TEST_F(Convert, LossesUnderStrictAreAFailureInTheJson) {
    folder.Write("a.ptx", MakeSmallPtx());
    for (const char* output : {"b.ply", "b.xyz"}) {
        const auto json = Json({"--strict", "a.ptx", output}, 1);
        ASSERT_EQ(json["failures"].size(), 1U);
        EXPECT_EQ(json["failures"][0]["exitCode"], 1);
        EXPECT_TRUE(Contains(json["failures"][0]["error"], "grid"));
    }
    EXPECT_EQ(folder.Names(), Names{"a.ptx"});
}

TEST_F(Convert, TextIsPackedWhereTheNameAsksForIt) {
    folder.Write("a.ptx", MakeSmallPtx());
    ASSERT_EQ(Run({"a.ptx", "plain.ptx"}).exitCode, 0);
    ASSERT_EQ(Run({"a.ptx", "packed.ptx.gz"}).exitCode, 0);
    EXPECT_EQ(folder.Read("packed.ptx.gz").substr(0, 2), "\x1f\x8b");
    EXPECT_EQ(RunShellLine("gzip -dc packed.ptx.gz", Here()).out, folder.Read("plain.ptx"));
}

TEST_F(Convert, FinishedScansAreNotDoneAgainAfterAFailure) {
    folder.Write("a.ptx", MakeSmallPtx(12, 10));
    folder.Write("b.ptx", MakeSmallPtx(13, 10).substr(0, 900));
    const std::vector<std::string> line = {"--to", "qsn", "a.ptx", "b.ptx", "out/"};
    Json(line, 6);
    EXPECT_EQ(NamesIn("out").size(), 2U);  // one scan, and what is known of it
    const auto first = fs::last_write_time(folder.File("out/a.qsn"));
    folder.Write("b.ptx", MakeSmallPtx(13, 10));
    const auto json = Json(line);
    EXPECT_EQ(json["scans"][0]["finishedBefore"], true);
    EXPECT_EQ(json["scans"][1]["finishedBefore"], false);
    EXPECT_EQ(fs::last_write_time(folder.File("out/a.qsn")), first);
    EXPECT_EQ(NamesIn("out"), (Names{"a.qsn", "b.qsn"}));  // nothing is left to know
    // Now they are files like any others.
    EXPECT_EQ(Run(line).exitCode, 7);
}

TEST_F(Convert, AnOutputThatWasChangedOrHasAnotherSourceIsNeverTakenForFinished) {
    folder.Write("a.ptx", MakeSmallPtx(12, 10));
    folder.Write("b.ptx", "12\nbroken");
    const std::vector<std::string> line = {"--to", "qsn", "a.ptx", "b.ptx", "out/"};
    Json(line, 6);
    // Another command: other options shape another file.
    EXPECT_EQ(Run({"--scale", "range=1", "--to", "qsn", "a.ptx", "b.ptx", "out/"}).exitCode, 7);
    // A source that changed.
    folder.Write("a.ptx", MakeSmallPtx(14, 10));
    EXPECT_EQ(Run(line).exitCode, 7);
    folder.Write("a.ptx", MakeSmallPtx(12, 10));
    // An output that changed.
    fs::remove(folder.File("out/a.qsn"));
    Json(line, 6);
    std::ofstream(folder.File("out/a.qsn"), std::ios::app) << "more";
    EXPECT_EQ(Run(line).exitCode, 7);
    // --force does everything again.
    EXPECT_EQ(Json({"--force", "--to", "qsn", "a.ptx", "b.ptx", "out/"}, 6)["scans"][0]["finishedBefore"],
              false);
}

TEST_F(Convert, AnInterruptionLeavesOnlyWhatIsCompleteAndTheNextRunGoesOn) {
    folder.Write("a.ptx", MakeSmallPtx(12, 10));
    folder.Write("b.ptx", MakeSmallPtx(700, 600));
    MakeFolder("out");
    const std::vector<std::string> line = {"convert", "--threads", "1",     "--to",  "qsn",
                                           "--patch", "64",        "a.ptx", "b.ptx", "out"};
    Program program(QsnPath(), line, Here());
    // a.qsn, the journal, and the hidden file of b.
    while (program.IsRunning() && NamesIn("out").size() < 3)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    program.Signal(SIGINT);
    const ProgramResult stopped = program.Wait();
    EXPECT_EQ(stopped.exitCode, 130) << stopped.err;
    const Names left = NamesIn("out");
    EXPECT_EQ(left.size(), 2U);
    EXPECT_EQ(left.back(), "a.qsn");
    const ProgramResult rest = RunQsn(line, Here());
    EXPECT_EQ(rest.exitCode, 0) << rest.err;
    EXPECT_TRUE(Contains(rest.err, "finished before")) << rest.err;
    EXPECT_EQ(NamesIn("out"), (Names{"a.qsn", "b.qsn"}));
}

TEST_F(Convert, LossesAreReportedAndStrictRefusesThem) {
    folder.Write("a.ptx", MakeSmallPtx());
    ASSERT_EQ(Run({"a.ptx", "a.qsn"}).exitCode, 0);
    const ProgramResult told = Run({"a.qsn", "b.ply"});
    EXPECT_EQ(told.exitCode, 0);
    EXPECT_TRUE(Contains(told.err, "lost: grid")) << told.err;
    const ProgramResult refused = Run({"--strict", "a.qsn", "c.ply"});
    EXPECT_EQ(refused.exitCode, 1) << refused.err;
    EXPECT_TRUE(Contains(refused.err, "grid")) << refused.err;
    EXPECT_FALSE(folder.Has("c.ply"));
    EXPECT_EQ(Run({"--strict", "a.qsn", "c.ptx"}).exitCode, 0);
    EXPECT_EQ(Run({"--strict", "--no-color", "a.qsn", "d.ptx"}).exitCode, 1);
    const auto json = Json({"a.qsn", "e.xyz"});
    for (const auto& loss : json["scans"][0]["losses"])
        EXPECT_TRUE(loss["fate"] == "kept" || loss["fate"] == "converted" || loss["fate"] == "lost") << loss;
}

TEST_F(Convert, UsageIsChecked) {
    folder.Write("a.ptx", MakeSmallPtx());
    const std::pair<std::vector<std::string>, std::string> table[] = {
        {{"a.ptx"}, "IN"},
        {{"a.ptx", "out.nothing"}, ".ply"},
        {{"--to", "nothing", "a.ptx", "out"}, "nothing"},
        {{"--from", "nothing", "a.ptx", "out.qsn"}, "nothing"},
        {{"--coordinates", "round", "a.ptx", "out.ply"}, "round"},
        {{"--decimals", "0", "a.ptx", "out.xyz"}, "--decimals"},
        {{"--local", "--registered", "a.ptx", "out.ply"}, "exclude"},
        {{"--scan", "0", "a.ptx", "out.ply"}, "--scan"},
        {{"-f", "a.ptx", "a.ptx"}, "input itself"},
    };
    for (const auto& [arguments, piece] : table) {
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 2) << piece << ": " << result.err;
        EXPECT_TRUE(Contains(result.err, piece)) << result.err;
    }
    EXPECT_EQ(Run({"missing.ptx", "out.qsn"}).exitCode, 3);
    EXPECT_EQ(folder.Names(), Names{"a.ptx"});
}

TEST_F(Convert, NamesOfThreeHundredCharactersInAllWork) {
    // 255 bytes a name is what file systems take; the whole path is longer.
    const std::string deep =
        "R\xc3\xa4ume \xe7\x82\xb9\xe7\xbe\xa4 \xf0\x9f\x93\xa1 " + std::string(100, 'd');
    MakeFolder(deep);
    const std::string base = deep + "/" + std::string(251, 'n');
    folder.Write(base + ".ptx", MakeSmallPtx());
    for (const char* ending : {".qsn", ".xyz"}) {
        const ProgramResult result = Run({base + ".ptx", base + ending});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_TRUE(folder.Has(base + ending));
    }
    EXPECT_EQ(NamesIn(deep).size(), 3U);
}

TEST_F(Convert, ANameThatIsTooLongIsSaidToBe) {
    folder.Write("a.ptx", MakeSmallPtx());
    const ProgramResult result = Run({"a.ptx", std::string(252, 'n') + ".qsn"});
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_TRUE(Contains(result.err, "a name of 256 bytes; file systems take names of up to 255"))
        << result.err;
    // A number behind a name makes it longer too: what fitted by itself does so no more.
    folder.Write("two.ptx", MakeSmallPtx(12, 10) + MakeSmallPtx(13, 10));
    const ProgramResult numbered = Run({"two.ptx", std::string(251, 'n') + ".qsn"});
    EXPECT_EQ(numbered.exitCode, 7);
    EXPECT_TRUE(Contains(numbered.err, "257 bytes")) << numbered.err;
    EXPECT_EQ(folder.Names(), (Names{"a.ptx", "two.ptx"}));
}

TEST_F(Convert, ALocaleWithADecimalCommaChangesNothing) {
    MakeFolder("locales");
    const std::string made = folder.File("locales/de_DE.UTF-8");
    const std::string line = "localedef -i de_DE -f UTF-8 '" + made + "'";
    if (RunShellLine(line, Here()).exitCode != 0) GTEST_SKIP() << "this system cannot make a German locale";
    folder.Write("a.ptx", MakeSmallPtx());
    ASSERT_EQ(Run({"a.ptx", "a.qsn"}).exitCode, 0);
    ProgramOptions german = Here();
    german.environment = {{"LOCPATH", folder.File("locales")}, {"LC_ALL", "de_DE.UTF-8"}};
    const std::string probe = "test \"$(env printf %.1f 0)\" = 0,0";
    ASSERT_EQ(RunShellLine(probe, german).exitCode, 0) << "the locale is not in force";
    for (const std::string ending : {".ptx", ".xyz", ".pts", ".ply", ".pcd"}) {
        const ProgramResult plain = Run({"a.qsn", "plain" + ending});
        const ProgramResult local = RunQsn({"convert", "a.qsn", "local" + ending}, german);
        EXPECT_EQ(local.exitCode, 0) << local.err;
        EXPECT_TRUE(folder.Read("plain" + ending) == folder.Read("local" + ending)) << ending;
    }
    const ProgramResult result =
        RunQsn({"convert", "--json", "--scale", "range=0.5", "a.ptx", "local.qsn"}, german);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    nlohmann::json json = nlohmann::json::parse(result.out);
    nlohmann::json same = Json({"--scale", "range=0.5", "a.ptx", "plain.qsn"});
    EXPECT_EQ(json["scans"][0]["losses"], same["scans"][0]["losses"]);
}

TEST_F(Convert, TheHelpSaysWhatIsKept) {
    for (const char* verb : {"convert", "import", "export"}) {
        const ProgramResult help = RunQsn({verb, "--help"});
        for (const char* piece :
             {"What is kept:", "to the last bit", "column and row", "--strict", "Examples:"})
            EXPECT_TRUE(Contains(help.out, piece)) << verb << " " << piece;
    }
}

TEST_F(Convert, TheGuideListsTheKeysOfTheJson) {
    folder.Write("a.ptx", MakeSmallPtx(12, 10));
    folder.Write("bad.ptx", "12\n");
    ExpectDocumentedKeys({Json({"--to", "qsn", "a.ptx", "bad.ptx", "out/"}, 6)}, "### JSON of `qsn convert`");
}

}  // namespace
}  // namespace qsn
