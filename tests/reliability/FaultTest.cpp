// SPDX-License-Identifier: MIT
// Every call that an operation makes of the system fails in every way: it is told, or it changes nothing; no
// file that is only read is touched, one that is edited holds the old state or the new one, and nothing is
// left behind. The everyday tier takes every 13th case, the full one all.
#include <gtest/gtest.h>

#include <iostream>
#include <set>

#include "Operations.h"
#include "support/Soak.h"
#include "support/StoredFile.h"
#include "support/SystemFaults.h"
#include "support/TempFolder.h"

namespace {

using namespace reliability;
using kxtest::FileFault;
using kxtest::Given;
using kxtest::SystemFaults;

const char* NameOf(FileFault fault) {
    switch (fault) {
        case FileFault::Device:
            return "EIO";
        case FileFault::NoSpaceOnce:
            return "ENOSPC once";
        case FileFault::NoSpaceForever:
            return "ENOSPC for ever";
        case FileFault::Short:
            return "short";
        case FileFault::Interrupted:
            return "EINTR";
        default:
            return "none";
    }
}

const char* NameOf(kxtest::FileCall call) {
    static const char* const names[] = {"open",  "read",   "write",  "size", "sync",
                                        "close", "rename", "remove", "lock", "resize"};
    return names[static_cast<int>(call)];
}

bool Same(const Given& a, const Given& b) {
    return a.cells == b.cells && a.properties == b.properties && a.marked == b.marked;
}
bool Same(const std::optional<Given>& a, const std::optional<Given>& b) {
    return a.has_value() == b.has_value() && (!a || Same(*a, *b));
}

struct Run {
    bool threw = false;
    bool foreign = false;  // something that is no std::exception
    bool happened = false;
    std::string what;
    Outcome outcome;
    std::vector<kxtest::FileCallRecord> calls;
};

class Harness {
public:
    explicit Harness(const Operation& operation) : m_operation(operation) {}

    void Check() {
        const Run whole = Disturbed(FileFault::None, 0);
        ASSERT_FALSE(whole.threw) << whole.what;
        ASSERT_GT(whole.calls.size(), 2U);
        ASSERT_FALSE(whole.outcome.told);
        m_whole = whole.outcome;
        m_old = OldState();
        uint64_t cases = 0;
        uint64_t told = 0;
        uint64_t harmless = 0;
        uint64_t next = 0;
        for (const FileFault fault : {FileFault::Device, FileFault::NoSpaceOnce, FileFault::NoSpaceForever,
                                      FileFault::Short, FileFault::Interrupted}) {
            for (uint64_t at = 1; at <= whole.calls.size(); ++at) {
                if (!kxtest::FullTier() && next++ % 13 != 0) continue;
                const Run run = Disturbed(fault, at);
                if (!run.happened) continue;  // this call cannot fail in this way
                SCOPED_TRACE(std::string(NameOf(fault)) + " at call " + std::to_string(at) + " of " +
                             std::to_string(whole.calls.size()) + ", " + NameOf(run.calls.at(at - 1).call) +
                             " " + run.calls.at(at - 1).path);
                ++cases;
                const bool isTold = Judge(run, fault);
                (isTold ? told : harmless) += 1;
            }
        }
        std::cout << "faults " << m_operation.name << ": " << whole.calls.size() << " calls, " << cases
                  << " cases, " << told << " reported, " << harmless << " without effect\n";
        EXPECT_GT(cases, 0U);
    }

private:
    std::optional<Given> OldState() {
        if (m_operation.edited.empty()) return std::nullopt;
        const TempFolder folder;
        PutSources(m_operation, folder.Path());
        return ReadResult(folder / m_operation.edited);
    }

    Run Disturbed(FileFault fault, uint64_t at) {
        m_folder.emplace();
        PutSources(m_operation, m_folder->Path());
        Run run;
        kxtest::FileFaultPlan plan;
        plan.folder = m_folder->Path().string();
        plan.fault = fault;
        plan.at = at;
        SystemFaults::Begin(plan);
        try {
            m_operation.run(m_folder->Path(), run.outcome);
        } catch (const std::exception& e) {
            run.threw = true;
            run.what = e.what();
        } catch (...) {
            run.threw = run.foreign = true;
        }
        run.happened = SystemFaults::Happened();
        run.calls = SystemFaults::End();
        LookAtResult(m_operation, m_folder->Path(), run.outcome);
        return run;
    }

    // True when the fault was reported.
    bool Judge(const Run& run, FileFault fault) {
        EXPECT_FALSE(run.foreign);
        for (const auto& [name, bytes] : m_operation.sources) {
            if (name != m_operation.edited) {
                EXPECT_EQ(kxtest::LoadFile(*m_folder / name), bytes) << name << " was changed";
            }
        }
        std::set<std::string> allowed;
        for (const auto& [name, bytes] : m_operation.sources)
            allowed.insert(name);
        if (!run.threw || !m_operation.atOnce) allowed.insert(m_operation.output);
        for (const auto& entry : std::filesystem::directory_iterator(m_folder->Path())) {
            EXPECT_TRUE(allowed.contains(entry.path().filename().string()))
                << entry.path().filename().string() << " was left behind";
        }
        // A call that did a part, or nothing yet, is made again.
        if (fault == FileFault::Short || fault == FileFault::Interrupted) {
            EXPECT_FALSE(run.threw) << run.what;
        }
        if (!m_operation.edited.empty()) {
            EXPECT_TRUE(Same(run.outcome.scan, m_whole.scan) || (run.threw && Same(run.outcome.scan, m_old)))
                << "neither the old state nor the new one" << (run.threw ? ", reported: " + run.what : "");
            return run.threw;
        }
        if (run.threw) return true;
        if (run.outcome.told || (run.outcome.scan && run.outcome.scan->marked)) return true;
        if (m_operation.output.empty() && run.outcome.scan && !run.outcome.scan->cells.empty()) {
            // What could not be read was refused; the rest is right.
            EXPECT_EQ(kxtest::Unmarked(*m_whole.scan, run.outcome.scan), "");
            const bool refused = run.outcome.scan->refused > m_whole.scan->refused ||
                                 !run.outcome.scan->cells.contains("thumbnail");
            EXPECT_TRUE(refused || Same(run.outcome.scan, m_whole.scan))
                << "less was given, and it was not told";
            return refused;
        }
        EXPECT_EQ(run.outcome.text, m_whole.text) << "another result, and it was not told";
        EXPECT_TRUE(Same(run.outcome.scan, m_whole.scan)) << "another scan, and it was not told";
        return false;
    }

    const Operation& m_operation;
    std::optional<TempFolder> m_folder;
    Outcome m_whole;
    std::optional<Given> m_old;
};

class Faults : public testing::TestWithParam<std::string> {};

TEST_P(Faults, AreReportedAndHarmNothing) {
    Harness(OperationNamed(GetParam())).Check();
}

std::vector<std::string> OperationNames() {
    std::vector<std::string> names;
    for (const Operation& operation : Operations())
        names.push_back(operation.name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Operations, Faults, testing::ValuesIn(OperationNames()),
                         [](const auto& operation) { return operation.param; });

}  // namespace
