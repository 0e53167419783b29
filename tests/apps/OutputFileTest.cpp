// SPDX-License-Identifier: MIT
#include "OutputFile.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Errors.h"
#include "TemporaryFolder.h"

namespace qsn {
namespace {

using Names = std::vector<std::string>;

void WriteTo(const std::string& path, const std::string& text) {
    std::ofstream(ToPath(path)) << text;
}

TEST(OutputFile, AppearsUnderItsNameOnlyWhenCommitted) {
    const TemporaryFolder folder;
    OutputFile output(folder.File("out.png"), false, {});
    EXPECT_EQ(ToPath(output.PartialPath()).extension(), ".png");
    WriteTo(output.PartialPath(), "done");
    EXPECT_FALSE(folder.Has("out.png"));
    output.Commit();
    EXPECT_EQ(folder.Names(), Names{"out.png"});
    EXPECT_EQ(folder.Read("out.png"), "done");
}

TEST(OutputFile, TakesBytesAsTheyAre) {
    const TemporaryFolder folder;
    OutputFile output(folder.File("out.raw"), false, {});
    const std::vector<unsigned char> bytes = {0, '\r', '\n', 255};
    output.Write(bytes);
    output.Commit();
    EXPECT_EQ(folder.Read("out.raw"), std::string(bytes.begin(), bytes.end()));
}

TEST(OutputFile, EndingsAreFoundInAnyCase) {
    EXPECT_TRUE(HasEnding("scan.png", ".png"));
    EXPECT_TRUE(HasEnding("SCAN.PnG", ".png"));
    EXPECT_TRUE(HasEnding(".png", ".png"));
    for (const char* path : {"", "png", "scan.pn", "scan.png.qsn", "scanpng"})
        EXPECT_FALSE(HasEnding(path, ".png")) << path;
}

TEST(OutputFile, IsRemovedWhenNotCommitted) {
    const TemporaryFolder folder;
    {
        const OutputFile output(folder.File("out.png"), false, {});
        WriteTo(output.PartialPath(), "half");
        EXPECT_EQ(folder.Names().size(), 1U);
    }
    EXPECT_EQ(folder.Names(), Names{});
}

TEST(OutputFile, AnExistingFileNeedsForceAndSurvivesAFailure) {
    const TemporaryFolder folder;
    folder.Write("out.png", "old");
    EXPECT_THROW(OutputFile(folder.File("out.png"), false, {}), Failure);
    {
        const OutputFile output(folder.File("out.png"), true, {});
        WriteTo(output.PartialPath(), "half");
    }
    EXPECT_EQ(folder.Read("out.png"), "old");
    OutputFile output(folder.File("out.png"), true, {});
    WriteTo(output.PartialPath(), "new");
    output.Commit();
    EXPECT_EQ(folder.Read("out.png"), "new");
}

TEST(OutputFile, AFileThatAppearedMeanwhileIsNotReplaced) {
    const TemporaryFolder folder;
    OutputFile output(folder.File("out.png"), false, {});
    WriteTo(output.PartialPath(), "mine");
    folder.Write("out.png", "someone else's");
    EXPECT_THROW(output.Commit(), Failure);
    EXPECT_EQ(folder.Read("out.png"), "someone else's");
}

TEST(OutputFile, AnInputIsNeverAnOutput) {
    const TemporaryFolder folder;
    const std::string input = folder.Write("scan.qsn", "scan");
    std::filesystem::create_symlink(ToPath(input), folder.Path() / "link.qsn");
    EXPECT_THROW(OutputFile(input, true, {input}), UsageError);
    EXPECT_THROW(OutputFile(folder.File("./scan.qsn"), true, {input}), UsageError);
    EXPECT_THROW(OutputFile(folder.File("link.qsn"), true, {input}), UsageError);
    // Also when it does not exist, so that nothing else is complained about first.
    EXPECT_THROW(OutputFile("missing.qsn", true, {"missing.qsn"}), UsageError);
}

TEST(OutputFile, FoldersAndMissingFoldersAreRefused) {
    const TemporaryFolder folder;
    EXPECT_THROW(OutputFile(folder.Path().string(), true, {}), Failure);
    EXPECT_THROW(OutputFile(folder.File("nowhere/out.png"), true, {}), Failure);
    EXPECT_THROW(OutputFile("", true, {}), Failure);
}

TEST(OutputFile, AFileThatCannotGetItsNameIsNamed) {
    const TemporaryFolder folder;
    const std::string path = folder.File("out.png");
    OutputFile output(path, false, {});
    output.Write(std::vector<unsigned char>(3));
    std::filesystem::remove(ToPath(output.PartialPath()));  // somebody tidied up
    try {
        output.Commit();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Code(), ExitWriteFailed);
        EXPECT_EQ(failure.what(), path + ": cannot be given its name: what was written is gone");
    }
    EXPECT_TRUE(folder.Names().empty());
}

TEST(OutputFile, NamesBeyondAsciiAndLongOnesWork) {
    const TemporaryFolder folder;
    const std::string umlauts = "R\xc3\xa4ume \xe7\x82\xb9\xe7\xbe\xa4 \xf0\x9f\x93\xa1.png";
    const std::string longest = std::string(251, 'n') + ".png";  // 255 bytes, what most file systems take
    for (const std::string& name : {umlauts, longest}) {
        OutputFile output(folder.File(name), false, {});
        WriteTo(output.PartialPath(), name);
        output.Commit();
        EXPECT_EQ(folder.Read(name), name);
    }
}

}  // namespace
}  // namespace qsn
