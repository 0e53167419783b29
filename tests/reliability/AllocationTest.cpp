// SPDX-License-Identifier: MIT
// Every operation with its n-th request for memory refused: it is told, no source is touched, an edited file
// holds the old state or the new one, and nothing is left behind: no file, no open one, no memory. The
// everyday tier refuses about 25 requests of each operation, the full one up to 2,000.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <new>
#include <set>

#include "Operations.h"
#include "kxbase/Exceptions.h"
#include "support/Soak.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"

namespace {

std::atomic<int64_t> g_blocks{0};  // that are in use
std::atomic<bool> g_counting{false};
std::atomic<uint64_t> g_requests{0};
std::atomic<uint64_t> g_refused{0};  // the request that is refused, counted from 1; 0: none

void* Request(std::size_t bytes) noexcept {
    if (g_counting && ++g_requests == g_refused) return nullptr;
    void* place = std::malloc(bytes == 0 ? 1 : bytes);
    g_blocks += place == nullptr ? 0 : 1;
    return place;
}
void Release(void* place) noexcept {
    g_blocks -= place == nullptr ? 0 : 1;
    std::free(place);
}
void* RequestOrThrow(std::size_t bytes) {
    void* place = Request(bytes);
    if (place == nullptr) throw std::bad_alloc();
    return place;
}

}  // namespace

void* operator new(std::size_t bytes) {
    return RequestOrThrow(bytes);
}
void* operator new[](std::size_t bytes) {
    return RequestOrThrow(bytes);
}
void* operator new(std::size_t bytes, const std::nothrow_t& /*nothrow*/) noexcept {
    return Request(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t& /*nothrow*/) noexcept {
    return Request(bytes);
}
void operator delete(void* place) noexcept {
    Release(place);
}
void operator delete[](void* place) noexcept {
    Release(place);
}
void operator delete(void* place, std::size_t) noexcept {
    Release(place);
}
void operator delete[](void* place, std::size_t) noexcept {
    Release(place);
}

namespace {

using namespace reliability;
using kxtest::Given;

/// What a scan says; not how it is compressed, for what a codec cannot do another one does.
Given Content(Given given) {
    std::erase_if(given.cells, [](const auto& cell) {
        return cell.first.starts_with("chunk") || cell.first.starts_with("preview") ||
               cell.first == "thumbnail";
    });
    given.properties.componentCodecs.clear();
    return given;
}
bool Same(const std::optional<Given>& a, const std::optional<Given>& b) {
    if (!a || !b) return a.has_value() == b.has_value();
    return kxtest::Differing(Content(*a), Content(*b)).empty();
}

/// Files that this process has open.
size_t OpenFiles() {
    std::error_code none;  // no such folder: not this system's way to tell
    const std::filesystem::directory_iterator files("/proc/self/fd", none);
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

/// Runs one operation with requests refused.
class Refusal {
public:
    explicit Refusal(const Operation& operation) : m_operation(operation) {
        const TempFolder folder;
        PutSources(operation, folder.Path());
        if (!operation.edited.empty()) m_before = ReadResult(folder / operation.edited);
        Run(0);
        EXPECT_FALSE(m_threw);
        Run(0);  // what is made once is there now
        m_whole = m_outcome;
        m_requests = g_requests;
    }

    uint64_t Requests() const { return m_requests; }

    /// True when it was reported.
    bool Check(uint64_t refused) {
        const size_t files = OpenFiles();
        Run(refused);
        EXPECT_EQ(OpenFiles(), files) << "a file was left open";
        EXPECT_EQ(m_blocksLeft, 0) << "memory was not given back";
        LookForLeftovers();
        const bool isNew = Same(m_outcome.scan, m_whole.scan);
        if (!m_operation.edited.empty()) {
            EXPECT_TRUE(isNew || (m_threw && Same(m_outcome.scan, m_before)));
            return m_threw;
        }
        // What could not be read was refused, one by one.
        const bool less = m_outcome.scan && m_whole.scan && m_outcome.scan->refused > m_whole.scan->refused;
        if (m_threw || m_outcome.told) return true;
        EXPECT_EQ(m_outcome.text, m_whole.text);
        if (less) {
            EXPECT_EQ(kxtest::Unmarked(*m_whole.scan, m_outcome.scan), "");
        } else {
            EXPECT_TRUE(isNew) << "another result, and it was not told";
        }
        return less;
    }

private:
    void Run(uint64_t refused) {
        m_folder.emplace();
        PutSources(m_operation, m_folder->Path());
        m_outcome = {};
        m_threw = false;
        const int64_t before = g_blocks;
        int64_t copied = 0;
        {
            Outcome made;
            g_requests = 0;
            g_refused = refused;
            g_counting = true;
            try {
                m_operation.run(m_folder->Path(), made);
            } catch (const kxbase::KXException&) {
                m_threw = true;
            } catch (const std::bad_alloc&) {
                m_threw = true;
            }
            g_counting = false;
            copied = g_blocks;
            m_outcome = made;
            copied = g_blocks - copied;
        }
        m_blocksLeft = g_blocks - copied - before;
        LookAtResult(m_operation, m_folder->Path(), m_outcome);
    }

    void LookForLeftovers() const {
        std::set<std::string> allowed;
        for (const auto& [name, bytes] : m_operation.sources) {
            allowed.insert(name);
            if (name != m_operation.edited) {
                EXPECT_EQ(kxtest::LoadFile(*m_folder / name), bytes);
            }
        }
        if (!m_threw || !m_operation.atOnce) allowed.insert(m_operation.output);
        for (const auto& entry : std::filesystem::directory_iterator(m_folder->Path()))
            EXPECT_TRUE(allowed.contains(entry.path().filename().string()))
                << entry.path() << " was left behind";
    }

    const Operation& m_operation;
    std::optional<Given> m_before;
    Outcome m_whole;
    uint64_t m_requests = 0;
    std::optional<TempFolder> m_folder;
    Outcome m_outcome;
    bool m_threw = false;
    int64_t m_blocksLeft = 0;
};

class Refusals : public testing::TestWithParam<std::string> {};

TEST_P(Refusals, OfMemoryAreReportedAndHarmNothing) {
    Refusal refusal(OperationNamed(GetParam()));
    const uint64_t step = std::max<uint64_t>(1, refusal.Requests() / kxtest::Trials<uint64_t>(25, 2000));
    uint64_t cases = 0;
    uint64_t told = 0;
    for (uint64_t refused = 1; refused <= refusal.Requests(); refused += step) {
        SCOPED_TRACE("request " + std::to_string(refused) + " of " + std::to_string(refusal.Requests()));
        ++cases;
        told += refusal.Check(refused) ? 1 : 0;
    }
    std::cout << "memory " << GetParam() << ": " << refusal.Requests() << " requests, " << cases
              << " refused, " << told << " reported\n";
    EXPECT_GT(told, 0U);
}

std::vector<std::string> OperationNames() {
    std::vector<std::string> names;
    for (const Operation& operation : Operations())
        names.push_back(operation.name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Operations, Refusals, testing::ValuesIn(OperationNames()),
                         [](const auto& operation) { return operation.param; });

}  // namespace
