// SPDX-License-Identifier: MIT
// Real processes, killed before, in the middle of and after each of their writes.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "Operations.h"
#include "kxio/RecoverToFile.h"
#include "support/Soak.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"

namespace {

using namespace reliability;
using kxtest::Given;
using kxtest::LoadFile;

/// False when the process came to its end before that write.
bool RunKilled(const Operation& operation, const std::filesystem::path& folder, uint64_t write, unsigned part,
               const std::filesystem::path& done) {
    std::string arguments[] = {KXIO_KILL_CHILD,       operation.name,       folder.string(),
                               std::to_string(write), std::to_string(part), done.string()};
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    pid_t child = 0;
    EXPECT_EQ(::posix_spawn(&child, arguments[0].c_str(), nullptr, nullptr, pointers.data(), environ), 0);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    if (WIFEXITED(status)) {
        EXPECT_EQ(WEXITSTATUS(status), 0);
        return false;
    }
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    return true;
}

/// Calls `look(folder, patches taken)` after a kill at every write, in each of the three ways. The everyday
/// tier kills at each of the first twelve writes in one way, then at the 24th, the 48th and so on.
/// \returns the number of kills
template <class Look>
uint64_t KillAtEveryWrite(const Operation& operation, const Look& look, bool all = kxtest::FullTier()) {
    uint64_t kills = 0;
    const auto kill = [&](uint64_t write, unsigned part) {
        const TempFolder folder;
        const TempFolder beside;
        PutSources(operation, folder.Path());
        SCOPED_TRACE("write " + std::to_string(write) + ", part " + std::to_string(part));
        if (!RunKilled(operation, folder.Path(), write, part, beside / "done")) return false;
        ++kills;
        look(folder.Path(), LoadFile(beside / "done").size());
        return !testing::Test::HasFatalFailure();
    };
    for (uint64_t write = 1;; write += all || write < 12 ? 1 : write) {
        const auto first = static_cast<unsigned>(all ? 0 : (write + 1) % 3);
        for (unsigned part = first; part < (all ? 3 : first + 1); ++part) {
            if (!kill(write, part)) return kills;
        }
    }
}

TEST(Kill, ANewFileKeepsEveryFinishedPatch) {
    const Operation& operation = OperationNamed("Write");
    const TempFolder whole;
    WriteScan(Wide(whole / "out.qsn"), true);
    const auto wanted = ReadResult(whole / "out.qsn");
    ASSERT_TRUE(wanted);
    uint64_t finished = 0;
    uint64_t recovered = 0;
    const uint64_t kills =
        KillAtEveryWrite(operation, [&](const std::filesystem::path& folder, size_t patches) {
            const TempFolder beside;
            std::optional<Given> saved;
            try {
                kxio::RecoverToFile(Wide(folder / "out.qsn"), Wide(beside / "saved.qsn"));
                saved = ReadResult(beside / "saved.qsn");
            } catch (const kxbase::KXException& e) {
                EXPECT_EQ(patches, 0U) << e.Describe();
                return;
            }
            ASSERT_TRUE(saved);
            for (size_t patch = 0; patch < patches; ++patch) {
                for (const char* component : {"1", "2", "3", "5"}) {
                    const std::string name = std::string("chunk ") + component + " " + std::to_string(patch);
                    ++finished;
                    const bool same = saved->cells[name] == wanted->cells.at(name);
                    EXPECT_TRUE(same) << name;
                    recovered += same ? 1 : 0;
                }
            }
        });
    std::cout << "kill Write: " << kills << " kills, " << recovered << " of " << finished
              << " finished chunks recovered\n";
    EXPECT_GT(finished, 0U);
    EXPECT_EQ(recovered, finished);
}

class KillDuring : public testing::TestWithParam<std::string> {};

TEST_P(KillDuring, AnEditLeavesTheOldStateOrTheNewOne) {
    const Operation& operation = OperationNamed(GetParam());
    const EditStates states(operation);
    uint64_t oldOnes = 0;
    uint64_t newOnes = 0;
    // An edit makes a few writes only.
    const uint64_t kills = KillAtEveryWrite(
        operation,
        [&](const std::filesystem::path& folder, size_t) { (states.Look(folder) ? newOnes : oldOnes) += 1; },
        true);
    std::cout << "kill " << operation.name << ": " << kills << " kills, " << oldOnes << " old, " << newOnes
              << " new\n";
    EXPECT_GT(oldOnes, 0U);
    EXPECT_GT(newOnes, 0U);
}

class KillWhileMaking : public testing::TestWithParam<std::string> {};

TEST_P(KillWhileMaking, NoHalfFileHasTheName) {
    const Operation& operation = OperationNamed(GetParam());
    const uint64_t kills = KillAtEveryWrite(operation, [&](const std::filesystem::path& folder, size_t) {
        EXPECT_FALSE(std::filesystem::exists(folder / operation.output));
        for (const auto& [name, bytes] : operation.sources)
            EXPECT_EQ(LoadFile(folder / name), bytes);
    });
    std::cout << "kill " << operation.name << ": " << kills << " kills\n";
    EXPECT_GT(kills, 0U);
}

std::vector<std::string> Names(bool edits) {
    std::vector<std::string> names;
    for (const Operation& operation : Operations()) {
        if (edits ? !operation.edited.empty() : operation.atOnce) names.push_back(operation.name);
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(Operations, KillDuring, testing::ValuesIn(Names(true)),
                         [](const auto& operation) { return operation.param; });
INSTANTIATE_TEST_SUITE_P(Operations, KillWhileMaking, testing::ValuesIn(Names(false)),
                         [](const auto& operation) { return operation.param; });

}  // namespace
