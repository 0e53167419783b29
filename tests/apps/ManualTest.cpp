// SPDX-License-Identifier: MIT
#include "Manual.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <sstream>

#include "Command.h"
#include "Errors.h"
#include "OutputFile.h"
#include "TemporaryFolder.h"

namespace qsn {
namespace {

/// The same without the backslashes that roff and zsh want.
std::string Plain(const std::string& text) {
    std::string plain;
    for (const char c : text) {
        if (c != '\\') plain += c;
    }
    return plain;
}

bool Contains(const std::string& text, const std::string& piece) {
    return text.find(piece) != std::string::npos;
}

/// Calls `use(app, name)` for every option of every subcommand.
template <class Use>
size_t ForEachOption(const CLI::App& program, Use use) {
    size_t count = 0;
    for (const CLI::App* command : program.get_subcommands({})) {
        for (const CLI::Option* option : command->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                use(*command, name);
                ++count;
            }
        }
    }
    return count;
}

TEST(Manual, EveryOptionOfEverySubcommandAppearsOnItsPage) {
    WithCommandLine([](const CLI::App& program) {
        const size_t count = ForEachOption(program, [&](const CLI::App& command, const std::string& name) {
            EXPECT_TRUE(Contains(Plain(ManualPage(program, command)), "--" + name))
                << command.get_name() << " " << name;
        });
        EXPECT_GE(count, 6 * Commands().size());  // those that all of them have
    });
}

TEST(Manual, PagesShowExamplesExitCodesAndAllCommands) {
    WithCommandLine([](const CLI::App& program) {
        const std::string page = Plain(ManualPage(program));
        for (const CommandDescription& command : Commands()) {
            EXPECT_TRUE(Contains(page, std::string("qsn-") + command.name));
            const std::string own = Plain(ManualPage(program, *program.get_subcommand(command.name)));
            for (const Example& example : command.examples)
                EXPECT_TRUE(Contains(own, Plain(example.commandLine).substr(0, 20))) << example.commandLine;
            for (const ExitCodeMeaning& meaning : ExitCodeMeanings())
                EXPECT_TRUE(Contains(own, meaning.meaning));
        }
        EXPECT_TRUE(Contains(page, "NO_COLOR"));
    });
}

TEST(Manual, GroffHasNothingToWarnAbout) {
    if (std::system("groff --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no groff here";
    const TemporaryFolder folder;
    WriteManual(folder.Path().string());
    const std::string line =
        "cd '" + folder.Path().string() +
        "' && for page in *.1; do groff -man -ww -Tascii -z \"$page\" || exit 1; done 2> warnings";
    EXPECT_EQ(std::system(line.c_str()), 0);
    EXPECT_EQ(folder.Read("warnings"), "");
}

TEST(Completion, EveryOptionIsKnownToEveryShell) {
    WithCommandLine([](const CLI::App& program) {
        const std::string bash = BashCompletion(program);
        const std::string zsh = Plain(ZshCompletion(program));
        const std::string fish = FishCompletion(program);
        ForEachOption(program, [&](const CLI::App& command, const std::string& name) {
            const std::string line = bash.substr(bash.find("        " + command.get_name() + ") options="));
            EXPECT_TRUE(Contains(line.substr(0, line.find('\n')), "--" + name))
                << command.get_name() << " " << name;
            const size_t begin = zsh.find("        " + command.get_name() + ")\n");
            ASSERT_NE(begin, std::string::npos);
            EXPECT_TRUE(Contains(zsh.substr(begin, zsh.find(";;", begin) - begin), "'--" + name + "["))
                << name;
            std::istringstream lines(fish);
            bool found = false;
            for (std::string text; std::getline(lines, text);)
                found = found || (Contains(text, "from " + command.get_name() + "'") &&
                                  Contains(text, " -l " + name + " "));
            EXPECT_TRUE(found) << command.get_name() << " " << name;
        });
    });
}

TEST(Completion, BashAcceptsItAndCompletesVerbsAndOptions) {
    if (std::system("bash --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no bash here";
    const TemporaryFolder folder;
    WriteManual(folder.Path().string());
    const std::string at = "cd '" + folder.Path().string() + "' && ";
    EXPECT_EQ(std::system((at + "bash -n qsn.bash").c_str()), 0);
    const auto complete = [&](const std::string& words, int index) {
        const std::string script = ". ./qsn.bash; COMP_WORDS=(" + words +
                                   "); COMP_CWORD=" + std::to_string(index) +
                                   "; _qsn; printf \"%s\\n\" \"${COMPREPLY[@]}\"";
        EXPECT_EQ(std::system((at + "bash -c '" + script + "' > reply").c_str()), 0);
        return folder.Read("reply");
    };
    EXPECT_EQ(complete("qsn ver", 1), "verify\n");
    EXPECT_EQ(complete("qsn verify --de", 2), "--deep\n");
    EXPECT_EQ(complete("qsn verify --progress n", 3), "never\n");
    EXPECT_EQ(complete("qsn info qsn.b", 2), "qsn.bash\n");
    folder.Write("two words.qsn", "");
    EXPECT_EQ(complete("qsn info two", 2), "two words.qsn\n");
}

TEST(Completion, FishAndZshAcceptTheirs) {
    const TemporaryFolder folder;
    WriteManual(folder.Path().string());
    const std::string at = "cd '" + folder.Path().string() + "' && ";
    bool ran = false;
    if (std::system("fish --version > /dev/null 2>&1") == 0) {
        EXPECT_EQ(std::system((at + "fish --no-execute qsn.fish").c_str()), 0);
        ran = true;
    }
    if (std::system("zsh --version > /dev/null 2>&1") == 0) {
        EXPECT_EQ(std::system((at + "zsh -n _qsn").c_str()), 0);
        ran = true;
    }
    if (!ran) GTEST_SKIP() << "neither fish nor zsh here";
}

}  // namespace
}  // namespace qsn
