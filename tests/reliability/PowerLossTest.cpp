// SPDX-License-Identifier: MIT
// The power fails during an operation: of what was written since the last time that a file was made safe, any
// part may have reached the disk, in any order, torn at any sector.
#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <random>

#include "Operations.h"
#include "kxio/RecoverToFile.h"
#include "support/Soak.h"
#include "support/StoredFile.h"
#include "support/SystemFaults.h"
#include "support/TempFolder.h"

namespace {

using namespace reliability;
using kxtest::FileCall;
using kxtest::FileCallRecord;
using kxtest::Given;

constexpr uint64_t kSector = 512;

/// The calls of one operation and what is left when the power fails after some of them.
class Disk {
public:
    explicit Disk(const Operation& operation) : m_operation(operation) {
        const TempFolder folder;
        PutSources(operation, folder.Path());
        kxtest::FileFaultPlan plan;
        plan.folder = folder.Path().string();
        plan.keepData = true;
        kxtest::SystemFaults::Begin(plan);
        Outcome outcome;
        operation.run(folder.Path(), outcome);
        m_calls = kxtest::SystemFaults::End();
        for (FileCallRecord& call : m_calls) {
            call.path = std::filesystem::path(call.path).filename().string();
            call.newPath = std::filesystem::path(call.newPath).filename().string();
        }
    }

    const std::vector<FileCallRecord>& Calls() const { return m_calls; }

    /// Whether the call before has changed what a loss of power leaves; true at the end.
    bool ChangesAt(size_t count) const {
        if (count == 0 || count == m_calls.size()) return true;
        const FileCall call = m_calls[count - 1].call;
        return call == FileCall::Write || call == FileCall::Sync || call == FileCall::Resize;
    }

    /// The files after all calls.
    std::map<std::string, Bytes> Whole() const { return Upto(m_calls.size()); }
    /// The files after the first `count` calls, when all that was written has reached the disk.
    std::map<std::string, Bytes> Upto(size_t count) const {
        return Files(count, [](auto& file, const auto& write) { Put(file, write, 0, write.bytes); });
    }
    /// The same, but of each write that was not made safe the first sector alone.
    std::map<std::string, Bytes> FirstSectors(size_t count) const {
        return Files(count, [](auto& file, const auto& write) {
            Put(file, write, 0, std::min(write.bytes, kSector - write.position % kSector));
        });
    }
    /// The files after the first `count` calls and a loss of power.
    std::map<std::string, Bytes> After(size_t count, std::mt19937_64& random) const {
        return Files(
            count, [&](auto& file, const auto& write) { Tear(file, write, random); }, &random);
    }

private:
    using Reach = std::function<void(Bytes&, const FileCallRecord&)>;

    // `reach` makes of the writes that were not made safe what reaches the disk, in any order with `random`.
    std::map<std::string, Bytes> Files(size_t count, const Reach& reach,
                                       std::mt19937_64* random = nullptr) const {
        std::map<std::string, Bytes> safe;
        for (const auto& [name, bytes] : m_operation.sources)
            safe[name] = bytes;
        std::map<std::string, std::vector<const FileCallRecord*>> open;  // not yet safe
        for (size_t i = 0; i < count; ++i) {
            const FileCallRecord& call = m_calls[i];
            switch (call.call) {
                case FileCall::Open:
                    // Names and sizes are kept by the file system's own journal.
                    if (call.empties) {
                        safe[call.path].clear();
                        open[call.path].clear();
                    }
                    break;
                case FileCall::Write:
                    open[call.path].push_back(&call);
                    break;
                case FileCall::Resize:
                    // As a write that reaches the disk as a whole or not at all.
                    open[call.path].push_back(&call);
                    break;
                case FileCall::Sync:
                    for (const FileCallRecord* write : open[call.path])
                        Put(safe[call.path], *write, 0, write->bytes);
                    open[call.path].clear();
                    break;
                case FileCall::Rename:
                    safe[call.newPath] = std::move(safe[call.path]);
                    open[call.newPath] = std::move(open[call.path]);
                    safe.erase(call.path);
                    open.erase(call.path);
                    break;
                case FileCall::Remove:
                    safe.erase(call.path);
                    open.erase(call.path);
                    break;
                default:
                    break;
            }
        }
        for (auto& [name, writes] : open) {
            if (random != nullptr) std::shuffle(writes.begin(), writes.end(), *random);
            for (const FileCallRecord* write : writes)
                reach(safe[name], *write);
        }
        return safe;
    }

    static void Put(Bytes& file, const FileCallRecord& write, uint64_t from, uint64_t to) {
        if (write.call == FileCall::Resize) {
            file.resize(write.position);
            return;
        }
        if (from >= to) return;
        if (file.size() < write.position + to) file.resize(write.position + to);
        std::copy(write.data.begin() + static_cast<std::ptrdiff_t>(from),
                  write.data.begin() + static_cast<std::ptrdiff_t>(to),
                  file.begin() + static_cast<std::ptrdiff_t>(write.position + from));
    }
    // Nothing, all, a beginning, or any of its sectors.
    static void Tear(Bytes& file, const FileCallRecord& write, std::mt19937_64& random) {
        const uint64_t kind = random() % 4;
        if (kind == 0) return;
        if (write.call == FileCall::Resize) return Put(file, write, 0, 0);
        const uint64_t first = write.position / kSector;
        const uint64_t last = (write.position + write.bytes - 1) / kSector;
        const uint64_t stop = kind == 2 ? first + random() % (last - first + 1) : last;
        for (uint64_t sector = first; sector <= stop && write.bytes != 0; ++sector) {
            if (kind == 3 && random() % 2 == 0) continue;
            const uint64_t from = std::max(sector * kSector, write.position) - write.position;
            const uint64_t to =
                std::min((sector + 1) * kSector, write.position + write.bytes) - write.position;
            Put(file, write, from, to);
        }
    }

    const Operation& m_operation;
    std::vector<FileCallRecord> m_calls;
};

std::optional<Given> ReadBytes(const Bytes& bytes) {
    const TempFolder folder;
    kxtest::StoreFile(Wide(folder / "scan.qsn"), bytes);
    return ReadResult(folder / "scan.qsn");
}
class PowerLoss : public testing::TestWithParam<std::string> {};

TEST_P(PowerLoss, DuringAnEditLeavesTheOldStateOrTheNewOne) {
    const Operation& operation = OperationNamed(GetParam());
    const Disk disk(operation);
    const EditStates states(operation);
    std::mt19937_64 random(1);
    uint64_t oldOnes = 0, newOnes = 0;
    for (size_t count = 0; count <= disk.Calls().size(); ++count) {
        for (int trial = 0; trial < 1 + kxtest::Trials(2, 200); ++trial) {
            if (!kxtest::FullTier() && !disk.ChangesAt(count)) continue;
            SCOPED_TRACE("after call " + std::to_string(count) + ", trial " + std::to_string(trial));
            const TempFolder folder;
            const auto files = trial == 0 ? disk.FirstSectors(count) : disk.After(count, random);
            kxtest::StoreFile(Wide(folder / operation.edited), files.at(operation.edited));
            (states.Look(folder.Path()) ? newOnes : oldOnes) += 1;
            if (HasFailure()) return;
        }
    }
    std::cout << "power loss " << operation.name << ": " << oldOnes + newOnes << " cases, " << oldOnes
              << " old, " << newOnes << " new\n";
    EXPECT_GT(oldOnes, 0U);
    EXPECT_GT(newOnes, 0U);
}

class PowerLossWhileMaking : public testing::TestWithParam<std::string> {};

TEST_P(PowerLossWhileMaking, AFileThatHasItsNameIsWhole) {
    const Operation& operation = OperationNamed(GetParam());
    const Disk disk(operation);
    std::mt19937_64 random(2);
    const Bytes whole = disk.Whole().at(operation.output);
    ASSERT_FALSE(whole.empty());
    uint64_t named = 0, cases = 0;
    for (size_t count = 0; count <= disk.Calls().size(); ++count) {
        for (int trial = 0; trial < kxtest::Trials(2, 20); ++trial) {
            ++cases;
            const auto files = disk.After(count, random);
            for (const auto& [name, bytes] : operation.sources)
                EXPECT_EQ(files.at(name), bytes);
            const auto made = files.find(operation.output);
            if (made == files.end()) continue;
            ++named;
            EXPECT_EQ(made->second, whole) << "after call " << count;
        }
    }
    std::cout << "power loss " << operation.name << ": " << cases << " cases, " << named
              << " with the new file under its name\n";
    EXPECT_GT(named, 0U);
}

std::vector<std::string> Names(bool edits) {
    std::vector<std::string> names;
    for (const Operation& operation : Operations()) {
        if (edits ? !operation.edited.empty() : operation.atOnce) names.push_back(operation.name);
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(Operations, PowerLoss, testing::ValuesIn(Names(true)),
                         [](const auto& operation) { return operation.param; });
INSTANTIATE_TEST_SUITE_P(Operations, PowerLossWhileMaking, testing::ValuesIn(Names(false)),
                         [](const auto& operation) { return operation.param; });

TEST(PowerLossWhileWriting, AFileThatOpensIsRightAndTheRestIsRecovered) {
    const Operation& operation = OperationNamed("Write");
    const Disk disk(operation);
    std::mt19937_64 random(3);
    const TempFolder folder;
    Outcome outcome;
    operation.run(folder.Path(), outcome);
    const auto wanted = ReadResult(folder / operation.output);
    ASSERT_TRUE(wanted);
    uint64_t cases = 0, opened = 0;
    for (size_t count = 1; count <= disk.Calls().size(); ++count) {
        for (int trial = 0; trial < kxtest::Trials(50, 2000); ++trial) {
            ++cases;
            const auto files = trial == 0 ? disk.Upto(count) : disk.After(count, random);
            const auto found = ReadBytes(files.at(operation.output));
            if (!found) continue;
            ++opened;
            if (!found->marked) {
                EXPECT_EQ(kxtest::Unmarked(*wanted, found), "") << "after call " << count;
            }
        }
    }
    std::cout << "power loss Write: " << cases << " cases, " << opened << " opened\n";
    EXPECT_GT(opened, 0U);
}

}  // namespace
