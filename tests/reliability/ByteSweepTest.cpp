// SPDX-License-Identifier: MIT
// Every byte of small files of every kind changed in ten ways, and every file cut at every length: reading
// all of what is left ends, raises nothing but our own exceptions, and with hashes gives no wrong value
// unmarked. The everyday tier takes every 97th case, the full one all.
#include <gtest/gtest.h>

#include <iostream>

#include "SweepSeeds.h"
#include "kxio/VerifyScan.h"
#include "support/GivenByReader.h"
#include "support/ReadEverything.h"
#include "support/Soak.h"
#include "support/Watchdog.h"

namespace {

using namespace reliability;
using kxtest::Given;

class Sweep {
public:
    explicit Sweep(const Seed& seed) : m_seed(seed), m_dog("sweep of " + seed.name) {}

    void Run() {
        const auto whole = kxtest::TryReadGiven(m_seed.bytes);
        ASSERT_TRUE(whole) << "the seed does not open";
        ASSERT_EQ(whole->marked, false);
        ASSERT_EQ(kxtest::Unmarked(*whole, whole), "");
        m_whole = *whole;
        for (const Bytes& bytes : m_seed.earlier)
            m_earlier.push_back(kxtest::TryReadGiven(bytes).value());
        Bytes damaged = m_seed.bytes;
        for (size_t at = 0; at < damaged.size(); ++at) {
            const unsigned char old = damaged[at];
            for (unsigned change = 0; change < 10; ++change) {
                damaged[at] = change < 8 ? static_cast<unsigned char>(old ^ (1U << change))
                                         : static_cast<unsigned char>(change == 8 ? 0x00 : 0xff);
                if (IsWanted()) Case(damaged, at, change);
            }
            damaged[at] = old;
        }
        for (size_t size = 0; size < m_seed.bytes.size(); ++size) {
            if (!IsWanted()) continue;
            damaged.assign(m_seed.bytes.begin(), m_seed.bytes.begin() + static_cast<std::ptrdiff_t>(size));
            Case(damaged, size, kCut);
        }
        std::cout << "sweep " << m_seed.name << ": " << m_seed.bytes.size() << " bytes, " << m_cases
                  << " cases, " << m_opened << " opened, " << m_refused << " requests refused, " << m_marked
                  << " listed a problem, " << m_unmarked << " gave a changed value unmarked" << std::endl;
        EXPECT_GT(m_opened, 0U);
        if (m_seed.hashes) {
            EXPECT_EQ(m_unmarked, 0U);
        }
    }

private:
    static constexpr unsigned kCut = 10;

    bool IsWanted() { return kxtest::FullTier() || m_next++ % 97 == 0; }

    void Case(const Bytes& damaged, size_t at, unsigned change) {
        m_dog.Case(at, change);
        ++m_cases;
        kxbase::InMemoryStream stream(damaged);
        EXPECT_TRUE(kxtest::ReadEverything(stream).consistent) << Name(at, change);
        if (m_cases % 4 == 0) kxio::VerifyScan(stream);
        const auto given = kxtest::TryReadGiven(damaged);
        if (!given) return;
        ++m_opened;
        m_refused += given->refused;
        m_marked += given->marked ? 1 : 0;
        const std::string what = kxtest::Unmarked(m_whole, given);
        if (what.empty()) return;
        // Without the last records that were appended the file is one that it has been.
        for (const Given& earlier : m_earlier) {
            if (change == kCut && kxtest::Unmarked(earlier, given).empty()) return;
        }
        if (change != kCut && IsAnEarlierSpeckleByte(damaged, at, *given)) return;
        ++m_unmarked;
        if (m_seed.hashes && m_unmarked < 10) ADD_FAILURE() << Name(at, change) << ": " << what;
    }

    /// The byte is what it was before an edit, of which the hash is listed too, and nothing else is
    /// different.
    bool IsAnEarlierSpeckleByte(const Bytes& damaged, size_t at, const Given& given) const {
        const auto isThat = [&](const Bytes& earlier) {
            return at < earlier.size() && earlier[at] == damaged[at] && earlier[at] != m_seed.bytes[at];
        };
        if (std::none_of(m_seed.earlier.begin(), m_seed.earlier.end(), isThat)) return false;
        Given expected = m_whole;
        bool& speckle = expected.properties.speckleCorrectionNeeded;
        speckle = !speckle;
        return kxtest::Unmarked(expected, given).empty();
    }

    std::string Name(size_t at, unsigned change) const {
        return (change == kCut ? "cut at " : "byte ") + std::to_string(at) + ", change " +
               std::to_string(change);
    }

    const Seed& m_seed;
    kxtest::Watchdog m_dog;
    Given m_whole;
    std::vector<Given> m_earlier;
    uint64_t m_next = 0;
    uint64_t m_cases = 0;
    uint64_t m_opened = 0;
    uint64_t m_refused = 0;
    uint64_t m_marked = 0;
    uint64_t m_unmarked = 0;
};

class ByteSweep : public testing::TestWithParam<std::string> {};

TEST_P(ByteSweep, EndsWithoutHarmAndWithHashesWithoutAWrongValue) {
    Sweep(SeedNamed(GetParam())).Run();
}

std::vector<std::string> SeedNames() {
    std::vector<std::string> names;
    for (const Seed& seed : SweepSeeds())
        names.push_back(seed.name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Seeds, ByteSweep, testing::ValuesIn(SeedNames()),
                         [](const auto& seed) { return seed.param; });

}  // namespace
