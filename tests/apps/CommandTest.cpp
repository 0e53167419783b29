// SPDX-License-Identifier: MIT
// What holds for every subcommand: help, usage errors, names, locale, pipes.
#include "Command.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "Errors.h"
#include "RunProgram.h"
#include "SamplePtx.h"
#include "TemporaryFolder.h"
#include "support/Sanitizers.h"

namespace qsn {
namespace {

using Arguments = std::vector<std::string>;

bool Contains(const std::string& text, const std::string& piece) {
    return text.find(piece) != std::string::npos;
}

void ImportSmall(const TemporaryFolder& folder, const std::string& name) {
    folder.Write("source.ptx", MakeSmallPtx());
    const ProgramResult result = RunQsn({"import", "-q", "source.ptx", name}, {folder.Path(), {}, false});
    ASSERT_EQ(result.exitCode, 0) << result.err;
}

/// Every command that opens a scan; outputs are out.* and may be replaced.
std::vector<Arguments> ReadingLines(const std::string& scan) {
    return {{"info", scan},
            {"preview", "-f", scan, "out.png"},
            {"export", "-f", scan, "out.ply"},
            {"edit", "--dry-run", "--message", "checked", scan},
            {"thumbnail", "-f", scan, "out.jpg"},
            {"locate", "--cell", "3,5", scan},
            {"bbox", scan},
            {"lod", "-f", scan, "out.raw"},
            {"histogram", scan},
            {"diff", scan, scan},
            {"stats", scan}};
}

/// The same, and those that take any bytes: for them damage is an answer, not an error.
std::vector<Arguments> InspectingLines(const std::string& scan) {
    std::vector<Arguments> lines = ReadingLines(scan);
    lines.push_back({"verify", "--deep", scan});
    lines.push_back({"dump", scan});
    return lines;
}

/// No output was left.
void ExpectNoOutput(const TemporaryFolder& folder) {
    for (const std::string& name : folder.Names())
        EXPECT_FALSE(name.starts_with("out.")) << name;
}

TEST(QsnCommand, HelpNamesEverySubcommand) {
    const ProgramResult result = RunQsn({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    for (const CommandDescription& command : Commands()) {
        EXPECT_TRUE(Contains(result.out, command.name));
        EXPECT_TRUE(Contains(result.out, command.summary));
    }
    for (const ExitCodeMeaning& meaning : ExitCodeMeanings())
        EXPECT_TRUE(Contains(result.out, std::to_string(meaning.code) + "  " + meaning.meaning));
}

TEST(QsnCommand, HelpOfEverySubcommandShowsItsExamples) {
    for (const CommandDescription& command : Commands()) {
        const ProgramResult result = RunQsn({command.name, "--help"});
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.err, "");
        for (const char* option : {"--threads", "--quiet", "--verbose", "--progress", "--limit-memory"})
            EXPECT_TRUE(Contains(result.out, option)) << command.name << " " << option;
        ASSERT_FALSE(command.examples.empty());
        for (const Example& example : command.examples)
            EXPECT_TRUE(Contains(result.out, example.commandLine));
    }
}

TEST(QsnCommand, VersionIsOneLineOfData) {
    const ProgramResult result = RunQsn({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "qsn " QSN_VERSION "\n");
    EXPECT_EQ(result.err, "");
}

TEST(QsnCommand, WrongUsageExitsWithTwoAndSaysWhy) {
    const TemporaryFolder folder;
    folder.Write("source.ptx", MakeSmallPtx(4, 4));
    struct Case {
        Arguments arguments;
        const char* said;
    };
    const std::vector<Case> cases = {
        {{}, "subcommand"},
        {{"frobnicate"}, "frobnicate"},
        {{"import"}, "SCAN"},
        {{"import", "source.ptx"}, "OUT"},
        {{"import", "source.ptx", "out.qsn", "more"}, "more"},
        {{"import", "source.ptx", "out.qsn", "--frobnicate"}, "--frobnicate"},
        {{"import", "source.ptx", "out.qsn", "--patch", "big"}, "--patch big"},
        {{"import", "source.ptx", "out.qsn", "--codec", "range=lzma"}, "lzma"},
        {{"import", "source.ptx", "out.qsn", "--codec", "range=jpeg"}, "color only"},
        {{"import", "source.ptx", "out.qsn", "--scale", "range=0"}, "above 0"},
        {{"import", "source.ptx", "out.qsn", "--color", "png"}, "lossless"},
        {{"import", "source.ptx", "out.qsn", "--scan", "0"}, "--scan"},
        {{"import", "source.ptx", "out.qsn", "--threads", "0"}, "--threads"},
        {{"import", "source.ptx", "out.qsn", "--threads", "many"}, "--threads"},
        {{"import", "source.ptx", "source.ptx", "--force"}, "input itself"},
        {{"info"}, "FILE"},
        {{"info", "--progress", "loud", "scan.qsn"}, "--progress loud"},
        {{"info", "--limit-memory", "63M", "scan.qsn"}, "--limit-memory 63M"},
        {{"info", "--limit-memory", "much", "scan.qsn"}, "--limit-memory much"},
        {{"preview", "scan.qsn"}, "OUT"},
        {{"preview", "scan.qsn", "out.png", "--component", "height"}, "height"},
        {{"preview", "scan.qsn", "out.png", "--size", "800"}, "--size 800"},
        {{"preview", "scan.qsn", "out.png", "--size", "1x1"}, "--size 1x1"},
        {{"preview", "scan.qsn", "scan.qsn"}, "input itself"},
        {{"export", "scan.qsn", "out.laz"}, ".ply"},
        {{"export", "scan.qsn", "out.ply", "--local", "--registered"}, "--local"},
        {{"info", "\xff.qsn"}, "UTF-8"},
    };
    for (const Case& c : cases) {
        const ProgramResult result = RunQsn(c.arguments, {folder.Path(), {}, false});
        std::ostringstream line;
        for (const std::string& argument : c.arguments)
            line << " " << argument;
        EXPECT_EQ(result.exitCode, 2) << line.str();
        EXPECT_EQ(result.out, "") << line.str();
        EXPECT_TRUE(result.err.starts_with("qsn: ")) << result.err;
        EXPECT_TRUE(Contains(result.err, c.said)) << line.str() << "\n" << result.err;
        EXPECT_TRUE(Contains(result.err, "--help")) << result.err;
    }
    EXPECT_EQ(folder.Names(), Arguments{"source.ptx"});
}

TEST(QsnCommand, AMissingInputIsNamed) {
    const TemporaryFolder folder;
    std::vector<Arguments> lines = InspectingLines("missing.qsn");
    lines.push_back({"import", "missing.ptx", "out.qsn"});
    lines.push_back({"parts", "missing.qsn"});
    for (const Arguments& line : lines) {
        const ProgramResult result = RunQsn(line, {folder.Path(), {}, false});
        EXPECT_EQ(result.exitCode, 3) << line[0];
        EXPECT_EQ(result.out, "") << line[0];
        EXPECT_TRUE(Contains(result.err, "missing.")) << line[0] << "\n" << result.err;
        EXPECT_FALSE(Contains(result.err, "internal error")) << result.err;
    }
    EXPECT_EQ(folder.Names(), Arguments{});
}

TEST(QsnCommand, FilesThatAreNoScansAreRefusedByName) {
    const TemporaryFolder folder;
    folder.Write("text.qsn", "This is a letter, not a scan.\n");
    folder.Write("empty.qsn", "");
    std::filesystem::create_directory(folder.Path() / "folder.qsn");
    for (const std::string name : {"text.qsn", "empty.qsn", "folder.qsn"}) {
        for (const Arguments& line : ReadingLines(name)) {
            const ProgramResult result = RunQsn(line, {folder.Path(), {}, false});
            EXPECT_EQ(result.exitCode, name == "folder.qsn" ? 3 : 4) << line[0] << " " << name;
            EXPECT_EQ(result.out, "");
            EXPECT_TRUE(Contains(result.err, name)) << result.err;
        }
        for (const Arguments& line : {Arguments{"verify", name}, Arguments{"dump", name}}) {
            const ProgramResult result = RunQsn(line, {folder.Path(), {}, false});
            EXPECT_EQ(result.exitCode, name == "folder.qsn" ? 3 : 4) << line[0] << " " << name;
        }
    }
    ExpectNoOutput(folder);
}

TEST(QsnCommand, ATruncatedScanIsRefusedWithFileAndByte) {
    const TemporaryFolder folder;
    ASSERT_NO_FATAL_FAILURE(ImportSmall(folder, "scan.qsn"));
    const std::string whole = folder.Read("scan.qsn");
    for (const double share : {0.001, 0.01, 0.3, 0.6}) {
        const auto length = static_cast<size_t>(share * static_cast<double>(whole.size()));
        folder.Write("cut.qsn", whole.substr(0, length));
        for (const Arguments& line : ReadingLines("cut.qsn")) {
            const ProgramResult result = RunQsn(line, {folder.Path(), {}, false});
            EXPECT_EQ(result.exitCode, length < 16 ? 4 : 5) << line[0] << " " << length;
            EXPECT_TRUE(Contains(result.err, "cut.qsn")) << result.err;
            EXPECT_TRUE(Contains(result.err, "byte ")) << result.err;
        }
        const ProgramResult verified = RunQsn({"verify", "cut.qsn"}, {folder.Path(), {}, false});
        EXPECT_NE(verified.exitCode, 0) << length;
        EXPECT_TRUE(Contains(verified.out, "cut.qsn: ")) << verified.out;
        EXPECT_EQ(Contains(verified.out, "byte "), length >= 16) << verified.out;
    }
    ExpectNoOutput(folder);
}

TEST(QsnCommand, DamageAnywhereEndsInAnAnswerOrAnError) {
    const TemporaryFolder folder;
    ASSERT_NO_FATAL_FAILURE(ImportSmall(folder, "scan.qsn"));
    const std::string whole = folder.Read("scan.qsn");
    // The headers and tables at both ends decide most; the middle is patches.
    for (size_t i = 0; i < 60; ++i) {
        const size_t place = i < 23 ? i * 4 : 92 + (i - 23) * (whole.size() - 92) / 37;
        std::string damaged = whole;
        damaged[place] = static_cast<char>(damaged[place] ^ 0xff);
        folder.Write("damaged.qsn", damaged);
        for (const Arguments& line : InspectingLines("damaged.qsn")) {
            const ProgramResult result = RunQsn(line, {folder.Path(), {}, false});
            // Also 2: a component whose number is damaged is one that the file does not have.
            const std::set<int> codes = {0, 1, 2, 4, 5, 6};
            EXPECT_TRUE(codes.contains(result.exitCode))
                << line[0] << ", byte " << place << ": " << result.exitCode << " " << result.err;
            EXPECT_FALSE(Contains(result.err, "internal error")) << result.err;
        }
    }
}

TEST(QsnCommand, ExistingOutputsNeedForce) {
    const TemporaryFolder folder;
    ASSERT_NO_FATAL_FAILURE(ImportSmall(folder, "scan.qsn"));
    const std::vector<Arguments> lines = {{"import", "source.ptx", "out.qsn"},
                                          {"preview", "scan.qsn", "out.png"},
                                          {"export", "scan.qsn", "out.ply"},
                                          {"thumbnail", "scan.qsn", "out.jpg"},
                                          {"lod", "scan.qsn", "out.raw"}};
    for (const Arguments& line : lines) {
        folder.Write(line[2], "mine");
        ProgramResult result = RunQsn(line, {folder.Path(), {}, false});
        EXPECT_EQ(result.exitCode, 7) << line[0];
        EXPECT_TRUE(Contains(result.err, "--force")) << result.err;
        EXPECT_EQ(folder.Read(line[2]), "mine");
        Arguments forced = line;
        forced.push_back("--force");
        result = RunQsn(forced, {folder.Path(), {}, false});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_NE(folder.Read(line[2]), "mine");
    }
}

TEST(QsnCommand, NamesInEveryScriptWork) {
    const TemporaryFolder folder;
    const std::string base = "R\xc3\xa4ume \xe7\x82\xb9\xe7\xbe\xa4 \xf0\x9f\x93\xa1 ";
    folder.Write(base + "in.ptx", MakeSmallPtx());
    // The C locale knows none of these characters.
    const ProgramOptions options{folder.Path(), {{"LC_ALL", "C"}}, false};
    EXPECT_EQ(RunQsn({"import", base + "in.ptx", base + ".qsn"}, options).exitCode, 0);
    const ProgramResult info = RunQsn({"info", "--json", base + ".qsn"}, options);
    EXPECT_EQ(info.exitCode, 0) << info.err;
    EXPECT_TRUE(Contains(info.out, base + ".qsn"));
    EXPECT_EQ(RunQsn({"preview", base + ".qsn", base + ".png"}, options).exitCode, 0);
    EXPECT_EQ(RunQsn({"export", base + ".qsn", base + ".ply"}, options).exitCode, 0);
    for (const char* ending : {".qsn", ".png", ".ply"})
        EXPECT_TRUE(folder.Has(base + ending));
}

TEST(QsnCommand, TheLongestNamesThatFileSystemsTakeWork) {
    const TemporaryFolder folder;
    const std::string base(251, 'n');  // with an ending, 255 bytes
    folder.Write(base + ".ptx", MakeSmallPtx());
    const ProgramOptions options{folder.Path(), {}, false};
    for (const Arguments& line : {Arguments{"import", base + ".ptx", base + ".qsn"},
                                  Arguments{"preview", base + ".qsn", base + ".png"},
                                  Arguments{"export", base + ".qsn", base + ".ply"}}) {
        const ProgramResult result = RunQsn(line, options);
        EXPECT_EQ(result.exitCode, 0) << line[0] << " " << result.err;
        EXPECT_TRUE(folder.Has(line[2])) << line[0];
    }
}

TEST(QsnCommand, ALocaleWithADecimalCommaChangesNothing) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder.Path() / "locales");
    const ProgramResult made = RunShellLine(
        "localedef -i de_DE -f UTF-8 --no-archive \"$PWD/locales/de_DE.UTF-8\"", {folder.Path(), {}, false});
    if (!folder.Has("locales/de_DE.UTF-8/LC_NUMERIC"))
        GTEST_SKIP() << "no German locale can be made here: " << made.out << made.err;
    ASSERT_NO_FATAL_FAILURE(ImportSmall(folder, "scan.qsn"));

    const std::map<std::string, std::string> german = {{"LOCPATH", folder.File("locales")},
                                                       {"LC_ALL", "de_DE.UTF-8"}};
    const ProgramOptions plain{folder.Path(), {{"LC_ALL", "C"}}, false};
    const ProgramOptions comma{folder.Path(), german, false};
    // The locale must really have the comma, or this test would show nothing.
    EXPECT_EQ(RunShellLine("locale decimal_point", comma).out, ",\n");
    EXPECT_EQ(RunQsn({"import", "source.ptx", "comma.qsn", "--scale", "range=0.5"}, comma).exitCode, 0);
    EXPECT_EQ(RunQsn({"import", "source.ptx", "plain.qsn", "--scale", "range=0.5"}, plain).exitCode, 0);
    for (const Arguments& line :
         {Arguments{"info", "scan.qsn"}, Arguments{"info", "--json", "scan.qsn"},
          Arguments{"bbox", "scan.qsn"}, Arguments{"bbox", "--json", "scan.qsn"},
          Arguments{"locate", "--cell", "3,5", "scan.qsn"},
          Arguments{"locate", "--direction", "40.5,90.5", "scan.qsn"}, Arguments{"histogram", "scan.qsn"},
          Arguments{"edit", "--dry-run", "--registration", "1,0,0,0,1,0,0,0,1,0.5,0,0", "scan.qsn"}}) {
        const ProgramResult expected = RunQsn(line, plain);
        EXPECT_EQ(expected.exitCode, 0) << expected.err;
        EXPECT_EQ(RunQsn(line, comma).out, expected.out);
    }
    for (const std::string ending : {".xyz", ".ptx"}) {
        EXPECT_EQ(RunQsn({"export", "comma.qsn", "comma" + ending}, comma).exitCode, 0);
        EXPECT_EQ(RunQsn({"export", "plain.qsn", "plain" + ending}, plain).exitCode, 0);
        EXPECT_EQ(folder.Read("comma" + ending), folder.Read("plain" + ending));
    }
}

TEST(QsnCommand, DataGoesToStandardOutputAndNothingElse) {
    const TemporaryFolder folder;
    folder.Write("source.ptx", MakeSmallPtx());
    const ProgramOptions options{folder.Path(), {}, false};
    const ProgramResult import = RunQsn({"import", "source.ptx", "scan.qsn"}, options);
    EXPECT_EQ(import.out, "");
    EXPECT_TRUE(Contains(import.err, "40 x 30 cells"));
    for (const Arguments& line : InspectingLines("scan.qsn")) {
        const ProgramResult result = RunQsn(line, options);
        EXPECT_EQ(result.exitCode, 0) << line[0] << " " << result.err;
        // Those that write a file report; the others answer.
        const bool writes = line[1] == "-f";
        EXPECT_EQ(result.out.empty(), writes) << line[0];
        EXPECT_EQ(result.err.empty(), !writes) << line[0];
    }
}

TEST(QsnCommand, VerboseTellsTimeAndMemoryOnStandardError) {
    const TemporaryFolder folder;
    ASSERT_NO_FATAL_FAILURE(ImportSmall(folder, "scan.qsn"));
    const ProgramOptions here{folder.Path(), {}, false};
    const ProgramResult plain = RunQsn({"info", "scan.qsn"}, here);
    const ProgramResult verbose = RunQsn({"info", "--verbose", "scan.qsn"}, here);
    EXPECT_EQ(verbose.exitCode, 0);
    EXPECT_EQ(verbose.out, plain.out);
    EXPECT_TRUE(verbose.err.starts_with("qsn info: ")) << verbose.err;
    EXPECT_TRUE(Contains(verbose.err, " s, up to ")) << verbose.err;
    EXPECT_TRUE(Contains(verbose.err, "MB\n")) << verbose.err;
}

TEST(QsnCommand, ALimitOfMemoryIsKeptWithAnyNumberOfThreads) {
    if (kxtest::kAddressSanitizer || kxtest::kThreadSanitizer)
        GTEST_SKIP() << "a sanitizer needs more memory";
    const TemporaryFolder folder;
    ASSERT_NO_FATAL_FAILURE(ImportSmall(folder, "scan.qsn"));
    for (Arguments line : InspectingLines("scan.qsn")) {
        line.insert(line.end(), {"--limit-memory", "64M", "--threads", "500"});
        const ProgramResult result = RunQsn(line, {folder.Path(), {}, false});
        EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 8)
            << line[0] << " " << result.exitCode << " " << result.err;
    }
}

TEST(QsnCommand, ErrorsAreColouredOnATerminalUnlessNoColorIsSet) {
    const TemporaryFolder folder;
    const auto error = [&](const std::map<std::string, std::string>& environment) {
        return Program(QsnPath(), {"info", "missing.qsn"}, {folder.Path(), environment, true}).Wait().err;
    };
    EXPECT_TRUE(Contains(error({{"TERM", "xterm"}, {"NO_COLOR", ""}}), "\033[1;31mqsn:\033[0m "));
    EXPECT_FALSE(Contains(error({{"TERM", "xterm"}, {"NO_COLOR", "1"}}), "\033"));
    EXPECT_FALSE(Contains(error({{"TERM", "dumb"}, {"NO_COLOR", ""}}), "\033"));
    EXPECT_FALSE(Contains(RunQsn({"info", "missing.qsn"}, {folder.Path(), {}, false}).err, "\033"));
}

TEST(QsnCommand, NamesOfThreeHundredCharactersWork) {
    const TemporaryFolder folder;
    // Longer than any one name may be: a path of folders.
    const std::string base = std::string(150, 'd') + "/" + std::string(140, 'e') +
                             "/Stra\xc3\x9f"
                             "e";
    std::filesystem::create_directories(folder.Path() / base);
    folder.Write("source.ptx", MakeSmallPtx(12, 10));
    const ProgramOptions here{folder.Path(), {}, false};
    const std::string scan = base + "/scan.qsn";
    EXPECT_GT(scan.size(), 300U);
    EXPECT_EQ(RunQsn({"import", "-q", "source.ptx", scan}, here).exitCode, 0);
    const ProgramResult result = RunQsn({"verify", "--deep", scan}, here);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, scan)) << result.out;
    EXPECT_EQ(RunQsn({"diff", scan, scan}, here).exitCode, 0);
}

TEST(QsnCommand, QuietSaysNothing) {
    const TemporaryFolder folder;
    folder.Write("source.ptx", MakeSmallPtx());
    const ProgramOptions options{folder.Path(), {}, false};
    for (const Arguments& line : {Arguments{"import", "-q", "source.ptx", "scan.qsn"},
                                  Arguments{"preview", "-q", "scan.qsn", "out.png"},
                                  Arguments{"export", "--quiet", "scan.qsn", "out.ply"},
                                  Arguments{"thumbnail", "-q", "scan.qsn", "out.jpg"},
                                  Arguments{"thumbnail", "-q", "--set", "out.jpg", "scan.qsn"},
                                  Arguments{"lod", "-q", "scan.qsn", "out.raw"},
                                  Arguments{"edit", "-q", "--message", "checked", "scan.qsn"}}) {
        const ProgramResult result = RunQsn(line, options);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out + result.err, "") << line[0];
    }
}

TEST(QsnCommand, AnOutputThatDoesNotFitIsNamedAndLeavesNothing) {
    if (kxtest::kThreadSanitizer)
        GTEST_SKIP() << "ThreadSanitizer itself does not run where files end at 4 KiB";
    const TemporaryFolder folder;
    folder.Write("source.ptx", MakeSmallPtx(200, 100));
    ASSERT_EQ(RunQsn({"import", "-q", "source.ptx", "scan.qsn"}, {folder.Path(), {}, false}).exitCode, 0);
    const Arguments before = folder.Names();
    for (const Arguments& line :
         {Arguments{"import source.ptx", "out.qsn"}, Arguments{"preview scan.qsn", "out.png"},
          Arguments{"export scan.qsn", "out.ply"}, Arguments{"lod scan.qsn", "out.raw"}}) {
        // Files end at 4 KiB here, as on a full disk.
        const ProgramResult result = RunShellLine(
            "trap '' XFSZ; ulimit -f 8; exec qsn " + line[0] + " " + line[1], {folder.Path(), {}, false});
        EXPECT_EQ(result.exitCode, 7) << line[0];
        EXPECT_TRUE(Contains(result.err, "Cannot write file")) << result.err;
        EXPECT_TRUE(Contains(result.err, line[1])) << result.err;
        EXPECT_FALSE(Contains(result.err, ".qsn-")) << "a hidden name in " << result.err;
        EXPECT_EQ(folder.Names(), before) << line[0];
    }
}

TEST(QsnCommand, AFullDiskBehindStandardOutputIsAFailure) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "this system has no /dev/full";
    const TemporaryFolder folder;
    ASSERT_NO_FATAL_FAILURE(ImportSmall(folder, "scan.qsn"));
    const ProgramResult result = RunShellLine("qsn info scan.qsn > /dev/full", {folder.Path(), {}, false});
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_TRUE(Contains(result.err, "standard output")) << result.err;
}

}  // namespace
}  // namespace qsn
