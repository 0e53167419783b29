// SPDX-License-Identifier: MIT
// Points of patches and previews, and their places in the grid.
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "kxbase/InMemoryStream.h"
#include "kxio/QSNScanReader.h"
#include "support/InterruptedStream.h"
#include "support/ScanFileBuilder.h"
#include "support/Thrown.h"

namespace {

using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;
using kxbase::QSNIndex;
using kxtest::Bytes;
using kxtest::ThrownBy;

// A small scan with given ranges; angles from the grid.
kxtest::ScanFileBuilder PolarScan(const std::vector<float>& ranges) {
    kxtest::ScanFileBuilder file(4, 4, 4, 4);
    std::vector<float> vertical;
    std::vector<float> horizontal;
    for (uint32_t i = 0; i < 16; ++i) {
        vertical.push_back(0.5f + 0.1f * static_cast<float>(i / 4));
        horizontal.push_back(1.0f - 0.1f * static_cast<float>(i % 4));
    }
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(ranges, 4, 4));
    file.Chunk(2, 0, 0, kxtest::SnappyChunk(vertical, 4, 4));
    file.Chunk(3, 0, 0, kxtest::SnappyChunk(horizontal, 4, 4));
    return file;
}

std::vector<float> SomeRanges() {
    std::vector<float> ranges(16, 0.0f);
    ranges[3] = 5;
    ranges[4] = -1;
    ranges[9] = 7;
    ranges[15] = 2;
    return ranges;
}

TEST(Points, EveryCellOfAPatchBecomesAPoint) {
    kxbase::InMemoryStream stream(PolarScan(SomeRanges()).Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> points;
    reader.Get3DPatch(0, 0, points, false);
    ASSERT_EQ(points.size(), 16u);
    EXPECT_EQ(points[0], XYZPoint());
    const XYZPoint expected(PolarPoint(7, 1.0f - 0.1f, 0.5f + 0.2f));
    EXPECT_NEAR(points[9].x, expected.x, 1e-6);
    EXPECT_NEAR(points[9].y, expected.y, 1e-6);
    EXPECT_NEAR(points[9].z, expected.z, 1e-6);
}

TEST(Points, ValidOnlyKeepsReturnsInOrder) {
    kxbase::InMemoryStream stream(PolarScan(SomeRanges()).Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> all;
    std::vector<XYZPoint> valid;
    reader.Get3DPatch(0, 0, all, false);
    reader.Get3DPatch(0, 0, valid, true);
    EXPECT_EQ(valid, (std::vector<XYZPoint>{all[3], all[9], all[15]}));
}

TEST(Points, APatchWithoutReturnsGivesNone) {
    kxbase::InMemoryStream stream(PolarScan(std::vector<float>(16, 0.0f)).Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> points(3);
    reader.Get3DPatch(0, 0, points, true);
    EXPECT_TRUE(points.empty());
}

TEST(Points, TheFirstFailingComponentIsReportedAsPlainException) {
    kxtest::ScanFileBuilder file(4, 4, 4, 4);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(SomeRanges(), 4, 4));
    file.Component(3);
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> points;
    EXPECT_EQ(ThrownBy<kxbase::KXException>([&] { reader.Get3DPatch(0, 0, points, false); }),
              "Patch not in database");
}

TEST(Points, WhatACallersStreamThrowsOfItsOwnIsReportedAsUnknown) {
    kxtest::InterruptedStream stream(PolarScan(SomeRanges()).Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> points;
    stream.beforeRead = [] { throw std::runtime_error("the tape is torn"); };
    EXPECT_EQ(ThrownBy<kxbase::KXException>([&] { reader.Get3DPatch(0, 0, points, false); }),
              "Unknown Exception");
    stream.beforeRead = nullptr;
    reader.Get3DPatch(0, 0, points, false);
    EXPECT_EQ(points.size(), 16u);
}

TEST(Points, ComponentsOfDifferentLengthAreRefused) {
    auto file = PolarScan(SomeRanges());
    file.Chunk(2, 0, 0, kxtest::SnappyChunk(std::vector<float>(4, 0.5f), 2, 2));
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> points;
    EXPECT_EQ(ThrownBy<kxbase::KXException>([&] { reader.Get3DPatch(0, 0, points, true); }),
              "Patch cannot be decoded");
}

TEST(Points, AChunkWithMoreElementsThanThePatchGivesThemAll) {
    kxtest::ScanFileBuilder file(4, 4, 4, 4);
    for (const uint32_t component : {1u, 2u, 3u})
        file.Chunk(component, 0, 0, kxtest::SnappyChunk(std::vector<float>(64, 1.0f), 8, 8));
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> points;
    reader.Get3DPatch(0, 0, points, false);
    EXPECT_EQ(points.size(), 64u);
}

TEST(Points, DoublesAreNarrowedAndOtherElementsRefused) {
    auto file = PolarScan(SomeRanges());
    std::vector<double> vertical(16, 0.25);
    file.Chunk(2, 0, 0, kxtest::SnappyChunk(vertical, 4, 4));
    kxbase::InMemoryStream stream(file.Build());
    std::vector<XYZPoint> points;
    kxio::QSNScanReader(&stream).Get3DPatch(0, 0, points, true);
    EXPECT_NEAR(points[0].z, 5 * std::cos(0.25), 1e-5);

    file.Chunk(2, 0, 0, kxtest::SnappyChunk(std::vector<uint16_t>(16, 1), 4, 4));
    kxbase::InMemoryStream odd(file.Build());
    const kxio::QSNScanReader reader(&odd);
    EXPECT_EQ(ThrownBy<kxbase::KXException>([&] { reader.Get3DPatch(0, 0, points, true); }),
              "Patch cannot be decoded");
}

TEST(Points, IntensityComesFromComponent4ElseTheUpperByteOf5ElseIsZero) {
    auto file = PolarScan(SomeRanges());
    std::vector<kxbase::tXYZLuminance8Point> points;
    kxbase::InMemoryStream bare(file.Build());
    kxio::QSNScanReader(&bare).Get3DPatch(0, 0, points, true);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[1].luminance, 0);

    std::vector<uint16_t> wide(16);
    for (uint16_t i = 0; i < 16; ++i)
        wide[i] = static_cast<uint16_t>(0x1000 * i + 0xff);
    file.Chunk(5, 0, 0, kxtest::SnappyChunk(wide, 4, 4));
    kxbase::InMemoryStream with5(file.Build());
    kxio::QSNScanReader(&with5).Get3DPatch(0, 0, points, true);
    EXPECT_EQ(points[1].luminance, 0x90);

    std::vector<uint8_t> narrow(16);
    for (uint8_t i = 0; i < 16; ++i)
        narrow[i] = i;
    file.Chunk(4, 0, 0, kxtest::SnappyChunk(narrow, 4, 4));
    kxbase::InMemoryStream with4(file.Build());
    kxio::QSNScanReader reader(&with4);
    reader.Get3DPatch(0, 0, points, true);
    EXPECT_EQ(points[1].luminance, 9);
    reader.Get3DPatch(0, 0, points, false);
    EXPECT_EQ(points.size(), 16u);
}

TEST(Points, PreviewsBecomePointsToo) {
    auto file = PolarScan(SomeRanges());
    file.Preview(1, kxtest::SnappyChunk(std::vector<float>{0, 5, 6, 0}, 2, 2));
    file.Preview(2, kxtest::SnappyChunk(std::vector<float>(4, 0.5f), 2, 2));
    file.Preview(3, kxtest::SnappyChunk(std::vector<float>(4, 0.0f), 2, 2));
    file.Component(5).Preview(5, kxtest::SnappyChunk(std::vector<uint16_t>{0, 0x0a00, 0x0b00, 0}, 2, 2));
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> plain;
    reader.Get3DPreview(plain, false);
    EXPECT_EQ(plain.size(), 4u);
    std::vector<kxbase::tXYZLuminance8Point> colored;
    reader.Get3DPreview(colored, true);
    ASSERT_EQ(colored.size(), 2u);
    EXPECT_NEAR(colored[1].x, 6 * std::sin(0.5), 1e-5);
    EXPECT_EQ(colored[0].luminance, 0x0a);
    EXPECT_EQ(colored[1].luminance, 0x0b);
}

TEST(Points, APreviewThatIsMissingIsReported) {
    kxbase::InMemoryStream stream(PolarScan(SomeRanges()).Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<XYZPoint> points;
    EXPECT_EQ(ThrownBy<kxbase::KXException>([&] { reader.Get3DPreview(points, true); }), "Patch not in file");
}

TEST(GridPlaces, OfValidPointsOrOfAllCellsInsideTheGrid) {
    kxtest::ScanFileBuilder file(6, 4, 4, 4);
    file.Chunk(1, 0, 0, kxtest::SnappyChunk(SomeRanges(), 4, 4));
    file.Chunk(1, 0, 1, kxtest::SnappyChunk(std::vector<float>(16, 1.0f), 4, 4));
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    std::vector<QSNIndex> places;
    unsigned count = 0;
    reader.GetProjectedPatchCoordinates(0, places, count, true);
    EXPECT_EQ(places, (std::vector<QSNIndex>{{0, 3}, {0, 9}, {0, 15}}));
    EXPECT_EQ(count, 3u);
    reader.GetProjectedPatchCoordinates(1, places, count, true);  // two columns lie in the grid
    EXPECT_EQ(count, 8u);
    EXPECT_EQ(places[2], QSNIndex(1, 4));
    reader.GetProjectedCoordinates(places, true);
    EXPECT_EQ(places.size(), 11u);
    reader.GetProjectedCoordinates(places, false);
    EXPECT_EQ(places.size(), 24u);
    EXPECT_EQ(ThrownBy<kxbase::KXUnreadablePatchException>(
                  [&] { reader.GetProjectedPatchCoordinates(2, places, count, true); }),
              "Index 2 is outside bounds");
    EXPECT_EQ(ThrownBy<kxbase::KXUnreadablePatchException>(
                  [&] { reader.GetProjectedPatchCoordinates(2, places, count, false); }),
              "Index 2 is outside bounds");
}

}  // namespace
