// SPDX-License-Identifier: MIT
// How DiffScans compares cells: values of every kind, scans without a grid, and what cannot be compared.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "InspectedScan.h"

namespace {

using namespace kxio;
using kxtest::Bytes;
using kxtest::Diff;
using kxtest::OneRow;

using Cell = std::pair<uint32_t, uint32_t>;
constexpr float kNoNumber = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinite = std::numeric_limits<float>::infinity();

template <class T>
ComponentDifference Difference(uint32_t component, const std::vector<T>& a, const std::vector<T>& b,
                               double tolerance = 0) {
    DiffOptions options;
    options.tolerance[static_cast<kxbase::ComponentType>(component)] = tolerance;
    const DiffReport report = Diff(OneRow(component, a), OneRow(component, b), options);
    EXPECT_EQ(report.components.size(), 1U);
    return report.components.at(0);
}

TEST(DiffCells, ColoursDifferByTheirMostDifferentChannel) {
    const std::vector<Rgb8> a{{10, 20, 30}, {0, 0, 0}, {9, 9, 9}}, b{{11, 20, 26}, {0, 0, 0}, {9, 10, 9}};
    const ComponentDifference exact = Difference(6, a, b);
    EXPECT_EQ(exact.cells, 3U);
    EXPECT_EQ(exact.different, 2U);
    EXPECT_EQ(exact.firstCell, Cell(0, 0));
    EXPECT_EQ(exact.largest, 4.0);
    EXPECT_EQ(Difference(6, a, b, 3).different, 1U);
    EXPECT_EQ(Difference(6, a, b, 4).different, 0U);
    EXPECT_EQ(Difference(6, a, b, 4).largest, 4.0);
}

TEST(DiffCells, AnglesAndIntensitiesDifferByTheirNumbers) {
    for (const uint32_t angle : {2U, 3U}) {
        const ComponentDifference found = Difference<float>(angle, {1, 2}, {1, 2.5F}, 0.25);
        EXPECT_EQ(found.different, 1U);
        EXPECT_EQ(found.firstCell, Cell(0, 1));
        EXPECT_EQ(found.largest, 0.5);
        EXPECT_EQ(Difference<float>(angle, {1, 2}, {1, 2.5F}, 0.5).different, 0U);
    }
    EXPECT_EQ(Difference<uint8_t>(4, {250, 7}, {10, 7}).largest, 240.0);
    EXPECT_EQ(Difference<uint16_t>(5, {65535, 7}, {1, 7}).largest, 65534.0);
}

TEST(DiffCells, ACellWithAReturnDiffersFromOneWithoutWhateverTheTolerance) {
    const ComponentDifference found = Difference<float>(1, {0, 5, 0.25F}, {0.5F, 5.5F, 0}, 100);
    EXPECT_EQ(found.different, 2U);
    EXPECT_EQ(found.largest, 0.5);
    // An angle of 0 is one like any other.
    EXPECT_EQ(Difference<float>(2, {0}, {0.5F}, 100).different, 0U);
}

TEST(DiffCells, InfinitiesOfOneSignAndAllThatIsNoNumberAreEqual) {
    EXPECT_EQ(Difference<float>(2, {kInfinite, -kInfinite}, {kInfinite, -kInfinite}).different, 0U);
    for (const auto& [a, b] : {std::pair(kNoNumber, 1.0F), std::pair(1.0F, kNoNumber),
                               std::pair(kInfinite, 1.0F), std::pair(kInfinite, -kInfinite)}) {
        const ComponentDifference found = Difference<float>(2, {a}, {b}, 1e30);
        EXPECT_EQ(found.different, 1U) << a << " " << b;
        EXPECT_TRUE(std::isinf(*found.largest)) << a << " " << b;
    }
    // The zeros of both signs are one number in other bits.
    const ComponentDifference zeros = Difference<float>(2, {0.0F}, {-0.0F});
    EXPECT_EQ(zeros.different, 0U);
    EXPECT_EQ(zeros.largest, 0.0);
}

TEST(DiffCells, IdentifiersAreTheSameOrNotAndHaveNoDistance) {
    for (const ComponentDifference& found : {Difference<uint32_t>(18, {1, 2, 3}, {1, 9, 8}, 100),
                                             Difference<uint64_t>(19, {1, 2, 3}, {1, 9, 8}, 100)}) {
        EXPECT_EQ(found.different, 2U);
        EXPECT_EQ(found.firstCell, Cell(0, 1));
        EXPECT_EQ(found.largest, std::nullopt);
    }
}

TEST(DiffCells, ElementsOfOtherSizesAreNotCompared) {
    const DiffReport report = Diff(OneRow<uint16_t>(10, {1, 2}), OneRow<uint32_t>(10, {1, 2}));
    EXPECT_EQ(report.components.at(0).problem, "elements of 2 and of 4 bytes");
    EXPECT_EQ(report.components.at(0).cells, 0U);
    EXPECT_FALSE(report.Equal());
}

TEST(DiffCells, ATableThatEndsEarlyIsSaid) {
    kxtest::ScanFileBuilder file(2, 1, 2, 1);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>{1, 2}, 2, 1));
    file.properties.grid.columns = 4;  // a second patch, which the table does not know
    const DiffReport report = Diff(file.Build(), file.Build());
    EXPECT_EQ(report.components.at(0).problem, "the lookup table ends after 1 patches");
    EXPECT_EQ(report.components.at(0).cells, 2U);
    EXPECT_EQ(report.components.at(0).different, 0U);
    EXPECT_FALSE(report.CellsEqual());
}

TEST(DiffCells, DamagedPatchesAreCountedWithWhatTheFirstOneSays) {
    const auto scan = [] {
        kxtest::ScanFileBuilder file(4, 2, 2, 2);
        kxtest::AddLayer<float>(file, 1, kxtest::RangeAt);
        return file.Build();
    };
    const Bytes whole = scan();
    for (const bool inFirst : {true, false}) {
        Bytes damaged = whole;
        damaged.at(92 + 32 + 28) ^= 0x40;  // the length that the codec noted
        const DiffReport report = inFirst ? Diff(damaged, whole) : Diff(whole, damaged);
        const ComponentDifference& range = report.components.at(0);
        EXPECT_EQ(range.notCompared, 4U);
        EXPECT_EQ(range.cells, 4U);
        EXPECT_EQ(range.different, 0U);
        EXPECT_TRUE(range.problem.starts_with(inFirst ? "first scan: Patch cannot be decoded"
                                                      : "second scan: Patch cannot be decoded"))
            << range.problem;
        EXPECT_FALSE(report.CellsEqual());
    }
}

/// A scan without a grid: lists of values, each of its own length.
Bytes Lists(const std::vector<std::vector<float>>& lists) {
    kxtest::ScanFileBuilder file(static_cast<uint32_t>(lists.size()), 1, 1, 1);
    for (uint32_t i = 0; i < lists.size(); ++i) {
        if (lists[i].empty()) continue;
        file.Chunk(1, 0, i, kxtest::SnappyChunk(lists[i], static_cast<uint32_t>(lists[i].size()), 1));
    }
    return file.Build();
}

TEST(DiffCells, ListsOfValuesAreComparedAsLongAsTheyAre) {
    const Bytes some = Lists({{1, 2, 3}, {4}});
    EXPECT_TRUE(Diff(some, some).Equal());
    const ComponentDifference longer = Diff(some, Lists({{1, 2, 3}, {4, 5, 6}})).components.at(0);
    EXPECT_EQ(longer.cells, 6U);
    EXPECT_EQ(longer.different, 2U);
    EXPECT_EQ(Diff(Lists({{1, 2, 3}, {4, 5, 6}}), some).components.at(0).different, 2U);
    const ComponentDifference missing = Diff(some, Lists({{1, 2, 3}, {}})).components.at(0);
    EXPECT_EQ(missing.different, 1U);
}

TEST(DiffCells, AScanWithoutAGridIsNotComparedWithOneThatHasIt) {
    kxtest::ScanFileBuilder grid(2, 1, 2, 1);
    grid.Chunk(1, 0, 0, kxtest::SnappyChunk(std::vector<float>{1, 4}, 2, 1));
    const DiffReport report = Diff(Lists({{1}, {4}}), grid.Build());
    EXPECT_EQ(report.components.at(0).problem, "one of the scans has no grid");
    EXPECT_FALSE(report.CellsEqual());
}

TEST(DiffCells, GridsOfOtherHeightsAreOfOtherSizes) {
    const auto scan = [](uint32_t rows) {
        kxtest::ScanFileBuilder file(2, rows, 2, rows);
        kxtest::AddLayer<float>(file, 1, kxtest::RangeAt);
        return file.Build();
    };
    const DiffReport report = Diff(scan(2), scan(3));
    EXPECT_FALSE(report.sameSize);
    EXPECT_EQ(report.components.at(0).cells, 0U);
}

TEST(DiffCells, ProgressGrowsToTheTotalAndWhatItThrowsEndsTheWork) {
    kxtest::ScanFileBuilder file(200, 2, 2, 2);  // several batches of patches
    kxtest::AddLayer<float>(file, 1, kxtest::RangeAt);
    kxtest::AddLayer<uint8_t>(file, 4, kxtest::LuminanceAt);
    const Bytes scan = file.Build();
    std::vector<uint64_t> told;
    DiffOptions options;
    options.progress = [&](uint64_t done, uint64_t total) {
        EXPECT_EQ(total, 800U);
        told.push_back(done);
    };
    EXPECT_TRUE(Diff(scan, scan, options).Equal());
    EXPECT_GE(told.size(), 4U);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), 800U);
    options.progress = [](uint64_t, uint64_t) { throw std::runtime_error("enough"); };
    EXPECT_THROW(Diff(scan, scan, options), std::runtime_error);
}

}  // namespace
