// SPDX-License-Identifier: MIT
// Every command line that the help or the guide shows is run, as it is shown.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "Command.h"
#include "RunProgram.h"
#include "SamplePtx.h"
#include "TemporaryFolder.h"

namespace qsn {
namespace {

/// What the examples take for granted: scan.ptx, scan.ptx.gz, several.ptx and, but for imports, scan.qsn,
/// broken.qsn, which is the former without its end, and old.qsn, which has no hashes.
void Prepare(const TemporaryFolder& folder, bool withScan) {
    const std::string ptx = MakeSmallPtx();
    folder.Write("scan.ptx", ptx);
    folder.Write("several.ptx", ptx + MakeSmallPtx(20, 10));
    const ProgramOptions here{folder.Path(), {}, false};
    ASSERT_EQ(RunShellLine("gzip -c scan.ptx > scan.ptx.gz", here).exitCode, 0);
    if (!withScan) return;
    ASSERT_EQ(RunQsn({"import", "-q", "scan.ptx", "scan.qsn"}, here).exitCode, 0);
    ASSERT_EQ(RunQsn({"import", "-q", "--no-hashes", "scan.ptx", "old.qsn"}, here).exitCode, 0);
    ASSERT_EQ(RunQsn({"thumbnail", "-q", "scan.qsn", "photo.jpg"}, here).exitCode, 0);
    const std::string whole = folder.Read("scan.qsn");
    folder.Write("broken.qsn", whole.substr(0, whole.size() - 300));
    folder.Write("copy.qsn", whole);
}

void RunExample(const std::string& line) {
    const TemporaryFolder folder;
    ASSERT_NO_FATAL_FAILURE(Prepare(folder, line.find("qsn import") == std::string::npos));
    const auto before = folder.Contents();
    const ProgramResult result = RunShellLine(line, {folder.Path(), {}, false});
    EXPECT_EQ(result.exitCode, 0) << line << "\n" << result.err;
    EXPECT_TRUE(!result.out.empty() || folder.Contents() != before) << line << " did nothing";
}

/// Lines of the text that begin, after blanks, with "qsn ".
std::vector<std::string> CommandLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const size_t start = line.find_first_not_of(' ');
        if (start != std::string::npos && line.compare(start, 4, "qsn ") == 0)
            lines.push_back(line.substr(start));
    }
    return lines;
}

TEST(Examples, EveryExampleOfTheHelpRuns) {
    size_t count = 0;
    for (const CommandDescription& command : Commands()) {
        const ProgramResult help = RunQsn({command.name, "--help"});
        const std::vector<std::string> lines = CommandLines(help.out.substr(help.out.find("Examples:")));
        EXPECT_EQ(lines.size(), command.examples.size()) << command.name;
        for (const std::string& line : lines)
            RunExample(line);
        count += lines.size();
    }
    EXPECT_GE(count, 2 * Commands().size());
}

/// What stands between ```sh and ``` in a guide.
std::string ShellBlocks(std::istream& guide) {
    std::string shell;
    bool inside = false;
    for (std::string line; std::getline(guide, line);) {
        if (line.starts_with("```")) {
            inside = line == "```sh";
        } else if (inside) {
            shell += line + "\n";
        }
    }
    return shell;
}

TEST(Examples, EveryCommandOfTheGuidesRuns) {
    size_t guides = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KXIO_SOURCE_DIR "/docs")) {
        if (entry.path().extension() != ".md") continue;
        std::ifstream in(entry.path());
        ASSERT_TRUE(in.good()) << entry.path();
        const std::vector<std::string> lines = CommandLines(ShellBlocks(in));
        if (lines.empty()) continue;
        ++guides;
        SCOPED_TRACE(entry.path().filename());
        for (const std::string& line : lines)
            RunExample(line);
        if (entry.path().filename() == "guide-qsn.md") {
            EXPECT_GE(lines.size(), 2 * Commands().size());
        }
    }
    EXPECT_GE(guides, 2U);
}

TEST(Examples, EveryCommandOfTheReadmeRuns) {
    std::ifstream in(KXIO_SOURCE_DIR "/README.md");
    std::stringstream text;
    text << in.rdbuf();
    const std::vector<std::string> lines = CommandLines(text.str());
    EXPECT_GE(lines.size(), 4U);
    for (const std::string& line : lines)
        RunExample(line);
}

TEST(Examples, HelpFitsIntoEightyColumns) {
    std::vector<std::vector<std::string>> calls = {{"--help"}};
    for (const CommandDescription& command : Commands())
        calls.push_back({command.name, "--help"});
    for (const auto& call : calls) {
        std::istringstream in(RunQsn(call).out);
        for (std::string line; std::getline(in, line);)
            EXPECT_LE(line.size(), 80U) << call[0] << ": " << line;
    }
}

}  // namespace
}  // namespace qsn
