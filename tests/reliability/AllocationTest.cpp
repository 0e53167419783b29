// SPDX-License-Identifier: MIT
// Every operation with its n-th request for memory refused: it is told, no source is touched, an edited file
// holds the old state or the new one, and nothing is left behind. The everyday tier refuses about 25 requests
// of each operation, the full one up to 2,000.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <new>
#include <set>

#include "Operations.h"
#include "support/Soak.h"
#include "support/StoredFile.h"
#include "support/TempFolder.h"

namespace {

std::atomic<bool> g_counting{false};
std::atomic<uint64_t> g_requests{0};
std::atomic<uint64_t> g_refused{0};  // the request that is refused, counted from 1; 0: none

void* Request(std::size_t bytes) noexcept {
    if (g_counting && ++g_requests == g_refused) return nullptr;
    return std::malloc(bytes == 0 ? 1 : bytes);
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
    std::free(place);
}
void operator delete[](void* place) noexcept {
    std::free(place);
}
void operator delete(void* place, std::size_t) noexcept {
    std::free(place);
}
void operator delete[](void* place, std::size_t) noexcept {
    std::free(place);
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

class Refusals : public testing::TestWithParam<std::string> {};

TEST_P(Refusals, OfMemoryAreReportedAndHarmNothing) {
    const Operation& operation = OperationNamed(GetParam());
    std::optional<TempFolder> folder;
    Outcome outcome;
    bool threw = false;
    const auto run = [&](uint64_t refused) {
        folder.emplace();
        PutSources(operation, folder->Path());
        outcome = {};
        threw = false;
        g_requests = 0;
        g_refused = refused;
        g_counting = true;
        try {
            operation.run(folder->Path(), outcome);
        } catch (const std::exception&) {
            threw = true;
        }
        g_counting = false;
        LookAtResult(operation, folder->Path(), outcome);
    };
    run(0);
    ASSERT_FALSE(threw);
    run(0);  // what is made once is there now
    const Outcome whole = outcome;
    const uint64_t requests = g_requests;
    std::optional<Given> before;
    if (!operation.edited.empty()) {
        folder.emplace();
        PutSources(operation, folder->Path());
        before = ReadResult(*folder / operation.edited);
    }
    const uint64_t step = std::max<uint64_t>(1, requests / kxtest::Trials<uint64_t>(25, 2000));
    uint64_t cases = 0;
    uint64_t told = 0;
    for (uint64_t refused = 1; refused <= requests; refused += step) {
        SCOPED_TRACE("request " + std::to_string(refused) + " of " + std::to_string(requests));
        run(refused);
        ++cases;
        told += threw ? 1 : 0;
        std::set<std::string> allowed;
        for (const auto& [name, bytes] : operation.sources) {
            allowed.insert(name);
            if (name != operation.edited) {
                EXPECT_EQ(kxtest::LoadFile(*folder / name), bytes);
            }
        }
        if (!threw || !operation.atOnce) allowed.insert(operation.output);
        for (const auto& entry : std::filesystem::directory_iterator(folder->Path()))
            EXPECT_TRUE(allowed.contains(entry.path().filename().string()))
                << entry.path() << " was left behind";
        if (!operation.edited.empty()) {
            EXPECT_TRUE(Same(outcome.scan, whole.scan) || (threw && Same(outcome.scan, before)));
        } else if (!threw && !outcome.told) {
            EXPECT_EQ(outcome.text, whole.text);
            EXPECT_TRUE(Same(outcome.scan, whole.scan)) << "another result, and it was not told";
        }
    }
    std::cout << "memory " << operation.name << ": " << requests << " requests, " << cases << " refused, "
              << told << " reported\n";
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
