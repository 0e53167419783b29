// SPDX-License-Identifier: MIT
// Progress and interruption, with an import that takes its time.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "RunProgram.h"
#include "SamplePtx.h"
#include "TemporaryFolder.h"

namespace qsn {
namespace {

using Names = std::vector<std::string>;

/// 1.4 million cells, enough for seconds of work and some progress reports.
class LongImport : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TemporaryFolder;
        s_folder->Write("long.ptx", MakeSmallPtx(1400, 1000));
    }
    static void TearDownTestSuite() {
        delete s_folder;
        s_folder = nullptr;
    }
    void TearDown() override {
        for (const std::string& name : s_folder->Names()) {
            if (name != "long.ptx") std::filesystem::remove(s_folder->File(name));
        }
    }

    static ProgramOptions Here() { return {s_folder->Path(), {}, false}; }

    /// Starts an import and stops it by `number` once it has begun to write.
    static ProgramResult Interrupt(int number) {
        Program program(QsnPath(), {"import", "--threads", "1", "--patch", "64", "long.ptx", "out.qsn"},
                        Here());
        while (program.IsRunning() && s_folder->Names().size() == 1)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        program.Signal(number);
        return program.Wait();
    }

    static TemporaryFolder* s_folder;
};
TemporaryFolder* LongImport::s_folder = nullptr;

TEST_F(LongImport, InterruptionRemovesWhatWasWrittenAndExitsWith130) {
    const ProgramResult result = Interrupt(SIGINT);
    EXPECT_EQ(result.exitCode, 130) << result.err;
    EXPECT_EQ(s_folder->Names(), Names{"long.ptx"});
    EXPECT_EQ(result.err, "qsn: interrupted\n");
}

TEST_F(LongImport, ARequestToTerminateStopsAsCleanly) {
    const ProgramResult result = Interrupt(SIGTERM);
    EXPECT_EQ(result.exitCode, 130) << result.err;
    EXPECT_EQ(s_folder->Names(), Names{"long.ptx"});
}

TEST_F(LongImport, InterruptionKeepsTheFileThatWasThere) {
    s_folder->Write("out.qsn", "mine");
    Program program(QsnPath(), {"import", "--threads", "1", "--force", "long.ptx", "out.qsn"}, Here());
    while (program.IsRunning() && s_folder->Names().size() == 2)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    program.Signal(SIGINT);
    EXPECT_EQ(program.Wait().exitCode, 130);
    EXPECT_EQ(s_folder->Read("out.qsn"), "mine");
    EXPECT_EQ(s_folder->Names(), (Names{"long.ptx", "out.qsn"}));
}

TEST_F(LongImport, ProgressIsShownOnATerminalAndTakenAwayAgain) {
    const ProgramResult result =
        Program(QsnPath(), {"import", "--threads", "1", "--patch", "64", "long.ptx", "out.qsn"},
                {s_folder->Path(), {{"TERM", "xterm"}}, true})
            .Wait();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("\rimport"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("cells/s"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("left"), std::string::npos) << result.err;
    // Blanks over the line, back to its start, then the report.
    EXPECT_NE(result.err.find(" \rlong.ptx -> out.qsn"), std::string::npos) << result.err;
}

TEST_F(LongImport, ProgressCanBeLinesOfJson) {
    const ProgramResult result = RunQsn(
        {"import", "--progress", "json", "--threads", "1", "--patch", "64", "long.ptx", "out.qsn"}, Here());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    std::istringstream lines(result.err);
    uint64_t cells = 0;
    int count = 0;
    for (std::string line; std::getline(lines, line) && line.starts_with("{"); ++count) {
        const auto json = nlohmann::json::parse(line);
        EXPECT_EQ(json["schema"], "qsn.progress");
        EXPECT_EQ(json["version"], 1);
        EXPECT_EQ(json["work"], "import");
        EXPECT_GE(json["cells"].get<uint64_t>(), cells);
        cells = json["cells"];
    }
    EXPECT_GE(count, 1);
    EXPECT_EQ(RunQsn({"import", "-f", "-q", "--progress", "json", "long.ptx", "out.qsn"}, Here()).err, "");
}

TEST_F(LongImport, NoProgressInAPipeOrOnADumbTerminal) {
    ProgramResult result =
        RunQsn({"import", "--threads", "1", "--patch", "64", "long.ptx", "out.qsn"}, Here());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err.find('\r'), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("cells/s"), std::string::npos) << result.err;
    result = Program(QsnPath(), {"import", "--threads", "1", "--force", "long.ptx", "out.qsn"},
                     {s_folder->Path(), {{"TERM", "dumb"}}, true})
                 .Wait();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err.find("cells/s"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace qsn
