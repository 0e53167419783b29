// SPDX-License-Identifier: MIT
// Eight threads ask a real scan for everything at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <thread>

#include "ImportSample.h"
#include "kxio/CoordConverter3D.h"
#include "kxio/ScanAccess.h"

// LLVM's OpenMP runtime keeps a block for every thread that has led a team, also after that thread has ended.
extern "C" const char* __lsan_default_suppressions();  // NOLINT: the sanitizer's name
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libomp.so";
}

namespace {

using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;
using Bytes = std::vector<unsigned char>;

constexpr unsigned kThreads = 8;

template <class T>
void Append(Bytes& all, const T* values, size_t count) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(values);
    all.insert(all.end(), bytes, bytes + count * sizeof(T));
}

/// Everything that can be asked about one patch, as bytes.
Bytes AskAbout(const kxio::CoordConverter3D& scan, uint32_t index) {
    const kxio::ScanAccess access(scan);
    const kxbase::GridTopology& grid = scan.GetScanInformation().grid;
    const uint32_t row = index / grid.PatchesPerRow();
    const uint32_t column = index % grid.PatchesPerRow();
    Bytes answer;
    for (const kxbase::ComponentType component : scan.GetAvailableComponents()) {
        const Bytes values = access.ReadPatchBytes(component, row, column, access.ElementBytes(component));
        Append(answer, values.data(), values.size());
    }
    for (unsigned wanted = 1; wanted <= 2; ++wanted) {
        unsigned level = wanted;
        const auto reduced = access.ReadReducedPatch<float>(kxbase::Range, 0, 0, level);
        Append(answer, reduced.values.data(), reduced.values.size());
    }

    PolarPoint corners[2];
    scan.GetBoundingBox(row, column, corners[0], corners[1]);
    Append(answer, corners, 2);
    scan.GetScanBoundingBox(corners[0], corners[1]);
    Append(answer, corners, 2);
    const std::vector<XYZPoint> vertices = scan.GetPatchVertices(row, column);
    Append(answer, vertices.data(), vertices.size());
    std::vector<XYZPoint> points;
    scan.Get3DPatch(row, column, points, true);
    Append(answer, points.data(), points.size());

    // A point of every hundredth return, and back to its cell.
    for (size_t i = 0; i < points.size(); i += 100) {
        try {
            const kxbase::QSNIndexCoordinates cell = scan.GetClosestQSNCoordinate(points[i]);
            const PolarPoint point = scan.GetPoint(cell);
            Append(answer, &cell, 1);
            Append(answer, &point, 1);
            const kxbase::QSNIndexCoordinates near =
                scan.GetClosestValidQSNCoordinate({point.horizontal, point.vertical});
            Append(answer, &near, 1);
        } catch (const kxbase::KXBadInputException& error) {
            Append(answer, error.what(), std::strlen(error.what()));
        }
    }

    unsigned size[2] = {};
    Bytes thumbnail;
    scan.GetThumbnailRGB(thumbnail, size[0], size[1]);
    Append(answer, size, 2);
    Append(answer, thumbnail.data(), thumbnail.size());
    scan.GetThumbnailJPEG(thumbnail);
    Append(answer, thumbnail.data(), thumbnail.size());
    return answer;
}

class MixedThreads : public testing::Test {
protected:
    void SetUp() override {
        m_path = kxtest::ImportSample(kxtest::SampleScan("pump_345x1074.ptx.gz"), m_folder, 128);
        const kxio::CoordConverter3D scan(m_path);
        for (uint32_t index = 0; index < scan.GetScanInformation().grid.PatchCount(); ++index)
            m_expected.push_back(AskAbout(scan, index));
        ASSERT_EQ(m_expected.size(), 27U);
    }
    /// All patches in an order of the thread's own. \returns how many answers were not the expected ones
    uint64_t Compare(const kxio::CoordConverter3D& scan, unsigned seed) const {
        std::vector<uint32_t> order(m_expected.size());
        std::iota(order.begin(), order.end(), 0U);
        std::shuffle(order.begin(), order.end(), std::mt19937(seed));
        return static_cast<uint64_t>(std::count_if(order.begin(), order.end(), [&](uint32_t index) {
            return AskAbout(scan, index) != m_expected[index];
        }));
    }
    template <class ScanOf>
    uint64_t OnThreads(ScanOf scanOf) const {
        std::atomic<uint64_t> wrong{0};
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kThreads; ++i)
            threads.emplace_back([&, i] { wrong += Compare(scanOf(i), i); });
        for (std::thread& thread : threads)
            thread.join();
        return wrong;
    }

    TempFolder m_folder;
    std::wstring m_path;
    std::vector<Bytes> m_expected;
};

TEST_F(MixedThreads, OneReaderAnswersEightThreadsAsItAnswersOne) {
    const kxio::CoordConverter3D scan(m_path);
    EXPECT_EQ(OnThreads([&](unsigned) -> const kxio::CoordConverter3D& { return scan; }), 0U);
}

TEST_F(MixedThreads, EightReadersOfOneFileAnswerAsOne) {
    std::vector<std::unique_ptr<kxio::CoordConverter3D>> scans;
    for (unsigned i = 0; i < kThreads; ++i)
        scans.push_back(std::make_unique<kxio::CoordConverter3D>(m_path));
    EXPECT_EQ(OnThreads([&](unsigned i) -> const kxio::CoordConverter3D& { return *scans[i]; }), 0U);
}

}  // namespace
