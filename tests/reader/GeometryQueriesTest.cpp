// SPDX-License-Identifier: MIT
// Bounding boxes, vertices and the estimated box.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

#include "kxbase/InMemoryStream.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxio/FlatPatchDescriptor.h"
#include "kxio/QSNScanReader.h"
#include "kxio/QSNScanWriter.h"
#include "support/ScanFileBuilder.h"
#include "support/Thrown.h"

namespace {

using PolarPoint = kxbase::tBasePolarPoint<float>;
using XYZPoint = kxbase::tBaseXYZPoint<float>;
using kxbase::QSNIndex;
using kxtest::Bytes;
using kxtest::ThrownBy;

constexpr float kPi = 3.1415927f;

void ExpectPolar(const PolarPoint& p, double range, double horizontal, double vertical) {
    EXPECT_NEAR(p.range, range, 1e-4);
    EXPECT_NEAR(p.horizontal, horizontal, 2e-6);
    EXPECT_NEAR(p.vertical, vertical, 2e-6);
}

// 10 x 7 cells in patches of 4 x 4: partial patches right and below.
kxtest::ScanFileBuilder EdgeGrid() {
    kxtest::ScanFileBuilder file(10, 7, 4, 4);
    auto& grid = file.properties.grid;
    grid.columnStartAngle = 1.0f;
    grid.rowStartAngle = 0.5f;
    grid.columnAngularStep = 0.01f;
    grid.rowAngularStep = 0.02f;
    file.Component(1);
    file.Limits(2, 9, {{2, 3}, {4, 5}, {6, 7}, {3, 8}, {0, 0}, {5, 9}});
    return file;
}

TEST(BoundingBoxes, EdgesLieHalfAStepOutsideTheCellsOfThePatch) {
    kxbase::InMemoryStream stream(EdgeGrid().Build());
    const kxio::QSNScanReader reader(&stream);
    PolarPoint min;
    PolarPoint max;
    reader.GetBoundingBox(0, 0, min, max);
    ExpectPolar(min, 2, 1.0 + 0.005, 0.5 - 0.01);
    ExpectPolar(max, 3, 1.0 - 3 * 0.01 - 0.005, 0.5 + 3 * 0.02 + 0.01);
    EXPECT_GT(min.horizontal, max.horizontal);         // start and end corner, not sorted
    reader.GetBoundingBox(QSNIndex(5, 77), min, max);  // row 1, column 2: 2 columns and 3 rows are left
    ExpectPolar(min, 5, 1.0 - 8 * 0.01 + 0.005, 0.5 + 4 * 0.02 - 0.01);
    ExpectPolar(max, 9, 1.0 - 9 * 0.01 - 0.005, 0.5 + 6 * 0.02 + 0.01);
    reader.GetScanBoundingBox(min, max);
    ExpectPolar(min, 2, 1.005, 0.49);
    ExpectPolar(max, 9, 1.0 - 0.09 - 0.005, 0.5 + 0.12 + 0.01);
}

TEST(BoundingBoxes, VerticalAnglesStayBetweenZenithAndNadir) {
    auto file = EdgeGrid();
    file.properties.grid.rowStartAngle = 0;
    file.properties.grid.rowAngularStep = kPi / 6;  // the last row lies at the nadir
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    PolarPoint min;
    PolarPoint max;
    reader.GetScanBoundingBox(min, max);
    EXPECT_EQ(min.vertical, 0.0f);
    EXPECT_EQ(max.vertical, kPi);
    reader.GetBoundingBox(0, 0, min, max);
    EXPECT_EQ(min.vertical, 0.0f);
    reader.GetBoundingBox(1, 0, min, max);
    EXPECT_EQ(max.vertical, kPi);
}

TEST(BoundingBoxes, IndexesBeyondTheGridAreRefusedAndColumnsAlias) {
    kxbase::InMemoryStream stream(EdgeGrid().Build());
    const kxio::QSNScanReader reader(&stream);
    PolarPoint min, max, aliasMin, aliasMax;
    const char* text = "Call to GetBoundingBox with invalid parameters";
    using OutOfBounds = kxbase::KXIndexOutOfBoundsException;
    EXPECT_EQ(ThrownBy<OutOfBounds>([&] { reader.GetBoundingBox(QSNIndex(6), min, max); }), text);
    EXPECT_EQ(ThrownBy<OutOfBounds>([&] { reader.GetBoundingBox(2, 0, min, max); }), text);
    EXPECT_EQ(ThrownBy<OutOfBounds>([&] { reader.GetBoundingBox(0x55555556u, 0, min, max); }), text);
    reader.GetBoundingBox(1, 0, min, max);
    reader.GetBoundingBox(0, 3, aliasMin, aliasMax);
    EXPECT_EQ(min, aliasMin);
    EXPECT_EQ(max, aliasMax);
    EXPECT_EQ(ThrownBy<OutOfBounds>([&] { reader.GetPatchVertices(QSNIndex(6)); }), "Patch out of range");
    EXPECT_EQ(ThrownBy<OutOfBounds>([&] { reader.GetPatchVertices(0x80000000u, 0); }), "Patch out of range");
}

TEST(BoundingBoxes, AFileWithoutLimitsHasNoneOnEveryQuery) {
    kxtest::ScanFileBuilder file(10, 7, 4, 4);
    file.Component(1);
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    PolarPoint min, max;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ThrownBy<kxbase::KXIncompleteFileException>([&] { reader.GetScanBoundingBox(min, max); }),
                  "No bounding information found");
        EXPECT_EQ(ThrownBy<kxbase::KXIncompleteFileException>([&] { reader.GetPatchVertices(QSNIndex(0)); }),
                  "No bounding information found");
    }
}

TEST(BoundingBoxes, AnUnreadableLimitsRecordCountsAsNone) {
    Bytes bytes = EdgeGrid().Build();
    const uint64_t position = kxtest::GetMainField(bytes, kxtest::MainField::BoundingInformation);
    kxtest::PutU32(bytes, position + 16 + 8, 0xffffffffu);  // the number of pairs
    kxbase::InMemoryStream stream(bytes);
    const kxio::QSNScanReader reader(&stream);
    EXPECT_EQ(ThrownBy<kxbase::KXIncompleteFileException>([&] { reader.GetPatchVertices(); }),
              "No bounding information found");
}

TEST(BoundingBoxes, AnOldLimitsRecordIsRefusedByNameOnEveryQuery) {
    Bytes bytes = EdgeGrid().Build();
    const uint64_t position = kxtest::GetMainField(bytes, kxtest::MainField::BoundingInformation);
    kxtest::PutU32(bytes, position + 8, 199);
    kxbase::InMemoryStream stream(bytes);
    const kxio::QSNScanReader reader(&stream);
    for (int i = 0; i < 2; ++i) {
        try {
            reader.GetPatchVertices();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const kxbase::KXHeaderReadingException& e) {
            EXPECT_STREQ(e.what(), "Unsupported MinMax version");
            EXPECT_EQ(e.Context().file, "memory");
        }
    }
}

TEST(BoundingBoxes, AnEmptyGridHasNoVerticesAndNoExtent) {
    kxtest::ScanFileBuilder file(0, 0, 4, 4);
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    EXPECT_TRUE(reader.GetPatchVertices().empty());
    const auto box = reader.GetScanEstimatedBoundingBox();
    EXPECT_EQ(box.min, XYZPoint());
    EXPECT_EQ(box.max, XYZPoint());
    PolarPoint min, max;
    reader.GetScanBoundingBox(min, max);
    const float largest = std::numeric_limits<float>::max();
    EXPECT_EQ(min, PolarPoint(largest, largest, largest));
    EXPECT_EQ(max, PolarPoint(-largest, -largest, -largest));
    EXPECT_EQ(
        ThrownBy<kxbase::KXIndexOutOfBoundsException>([&] { reader.GetBoundingBox(QSNIndex(0), min, max); }),
        "Call to GetBoundingBox with invalid parameters");
}

TEST(BoundingBoxes, MorePairsThanPatchesAreIgnoredAndMissingOnesStayZero) {
    auto file = EdgeGrid();
    std::vector<std::pair<float, float>> pairs(11, {1.0f, 2.0f});
    file.Limits(1, 2, pairs);
    kxbase::InMemoryStream more(file.Build());
    const kxio::QSNScanReader rich(&more);
    EXPECT_EQ(rich.GetPatchVertices().size(), 6u * 8);

    pairs.resize(2);
    file.Limits(1, 2, pairs);
    kxbase::InMemoryStream fewer(file.Build());
    const kxio::QSNScanReader poor(&fewer);
    PolarPoint min, max;
    poor.GetBoundingBox(QSNIndex(1), min, max);
    EXPECT_EQ(max.range, 2.0f);
    poor.GetBoundingBox(QSNIndex(2), min, max);
    EXPECT_EQ(min, PolarPoint());
    EXPECT_EQ(max, PolarPoint());
    for (const XYZPoint& corner : poor.GetPatchVertices(QSNIndex(2)))
        EXPECT_EQ(corner, XYZPoint());
}

TEST(BoundingBoxes, AGridThatClaimsMorePatchesThanTheFileHasBytesIsRefused) {
    auto file = EdgeGrid();
    file.properties.grid.columns = 0xfffffff0u;
    file.properties.grid.rows = 12;
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    EXPECT_EQ(ThrownBy<kxbase::KXIncompleteFileException>([&] { reader.GetPatchVertices(); }),
              "No bounding information found");
}

TEST(PatchVertices, FarFaceComesFirstInItsGivenOrder) {
    kxbase::InMemoryStream stream(EdgeGrid().Build());
    const kxio::QSNScanReader reader(&stream);
    const std::vector<XYZPoint> corners = reader.GetPatchVertices(0, 1);
    ASSERT_EQ(corners.size(), 8u);
    PolarPoint min, max;
    reader.GetBoundingBox(0, 1, min, max);
    const double halfExtent = std::max(5 * 0.01 / 2, 5 * 0.02 / 2);  // (columns + 1, rows + 1) steps
    const float far = static_cast<float>(5 / std::cos(halfExtent));
    const PolarPoint expected[8] = {{far, max.horizontal, max.vertical}, {far, min.horizontal, max.vertical},
                                    {far, max.horizontal, min.vertical}, {far, min.horizontal, min.vertical},
                                    {4, max.horizontal, max.vertical},   {4, min.horizontal, max.vertical},
                                    {4, max.horizontal, min.vertical},   {4, min.horizontal, min.vertical}};
    for (size_t i = 0; i < 8; ++i) {
        const XYZPoint point(expected[i]);
        EXPECT_NEAR(corners[i].x, point.x, 1e-5) << i;
        EXPECT_NEAR(corners[i].y, point.y, 1e-5) << i;
        EXPECT_NEAR(corners[i].z, point.z, 1e-5) << i;
    }
    EXPECT_GT(PolarPoint(corners[0]).range, 5.0f);  // farther out than the patch's maximum
    const std::vector<XYZPoint> all = reader.GetPatchVertices();
    ASSERT_EQ(all.size(), 48u);
    EXPECT_TRUE(std::equal(corners.begin(), corners.end(), all.begin() + 8));
}

TEST(EstimatedBox, PatchesWithoutDataAddNothingButTheOriginWhenTheyComeFirst) {
    auto file = EdgeGrid();
    kxbase::InMemoryStream plain(file.Build());
    const auto away = kxio::QSNScanReader(&plain).GetScanEstimatedBoundingBox();
    EXPECT_GT(away.min.x, 0.0f);  // every patch with data lies in one direction, well off the scanner

    file.Limits(2, 9, {{0, 0}, {4, 5}, {6, 7}, {3, 8}, {0, 0}, {5, 9}});
    kxbase::InMemoryStream stream(file.Build());
    const kxio::QSNScanReader reader(&stream);
    const auto box = reader.GetScanEstimatedBoundingBox();
    EXPECT_LE(box.min.x, 0.0f);
    EXPECT_GE(box.max.x, 0.0f);
    for (const uint32_t index : {1u, 2u, 3u, 5u}) {
        for (const XYZPoint& corner : reader.GetPatchVertices(QSNIndex(index))) {
            EXPECT_LE(box.min.x, corner.x);
            EXPECT_GE(box.max.x, corner.x);
            EXPECT_LE(box.min.y, corner.y);
            EXPECT_GE(box.max.y, corner.y);
            EXPECT_LE(box.min.z, corner.z);
            EXPECT_GE(box.max.z, corner.z);
        }
    }
}

// By how much, as a share of the range, the six faces between the corners may cut into a patch. The side
// faces hold the vertical through the scanner and cut nothing, and the near face lies inside the sphere of
// the nearest range. The far face is drawn out for the larger of the two extents only, so the middle of a
// patch with two wide extents may lie beyond it. The upper and the lower face are flat between edges of one
// vertical angle, which bulge towards the horizon half way between them.
struct Shares {
    double farFace = 0;
    double lowerFace = 0;
    double upperFace = 0;
};
Shares SharesOf(const PolarPoint& min, const PolarPoint& max, double halfWidth, double halfHeight) {
    // The plane through the scanner and the two corners of an edge against the edge's middle.
    const double halfBox = static_cast<double>(min.horizontal - max.horizontal) / 2;
    const auto bulge = [halfBox](float vertical) {
        const auto v = static_cast<double>(vertical);
        const double plane = std::atan2(std::sin(v) * std::cos(halfBox), std::cos(v));
        return std::sin(std::abs(v - plane));
    };
    Shares shares;
    shares.farFace =
        1 - std::cos(std::hypot(halfWidth, halfHeight)) / std::cos(std::max(halfWidth, halfHeight));
    // Above the horizon an edge's plane lies above its middle, below the horizon below it.
    shares.lowerFace = max.vertical < kPi / 2 ? bulge(max.vertical) : 0;
    shares.upperFace = min.vertical > kPi / 2 ? bulge(min.vertical) : 0;
    return shares;
}

// A point of the patch must lie on the inner side of the six faces.
void ExpectEnclosed(const std::vector<XYZPoint>& corners, const XYZPoint& point, const Shares& shares,
                    double range) {
    const auto vec = [](const XYZPoint& a) {
        return kxmath::Vector3{static_cast<double>(a.x), static_cast<double>(a.y), static_cast<double>(a.z)};
    };
    kxmath::Vector3 centre;
    for (const XYZPoint& corner : corners)
        centre = centre + (1.0 / 8) * vec(corner);
    struct Face {
        const char* name;
        size_t a, b, c;
        double share;
    };
    for (const Face& face : {Face{"last column", 0, 2, 4, 0},
                             {"first column", 1, 3, 5, 0},
                             {"far", 0, 1, 2, shares.farFace},
                             {"near", 4, 5, 6, 0},
                             {"lower", 0, 1, 4, shares.lowerFace},
                             {"upper", 2, 3, 6, shares.upperFace}}) {
        const kxmath::Vector3 a = vec(corners[face.a]);
        const kxmath::Vector3 n = kxmath::Cross(vec(corners[face.b]) - a, vec(corners[face.c]) - a);
        const double length = std::sqrt(kxmath::Dot(n, n));
        const double inside = kxmath::Dot(n, centre - a) / length;
        const double own = kxmath::Dot(n, vec(point) - a) / length * (inside < 0 ? -1 : 1);
        EXPECT_GE(own, -1e-4 - face.share * range) << face.name;
    }
}

TEST(Geometry, StoredPointsOfRandomGridsLieInTheirPatchsBoxAndBetweenItsVertices) {
    uint64_t pointCount = 0;
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const auto pick = [&random](uint32_t low, uint32_t high) {
            return std::uniform_int_distribution<uint32_t>(low, high)(random);
        };
        const auto real = [&random](float low, float high) {
            return std::uniform_real_distribution<float>(low, high)(random);
        };
        kxbase::GridTopology grid;
        grid.columns = pick(1, 60);
        grid.rows = pick(1, 60);
        grid.patchWidth = pick(2, 20);
        grid.patchHeight = pick(2, 20);
        grid.columnAngularStep = real(0.001f, 0.01f);
        grid.rowAngularStep = real(0.001f, 0.01f);
        grid.columnStartAngle = real(-3, 3);
        grid.rowStartAngle = real(0.3f, 2.0f);
        kxbase::InMemoryStream stream;
        kxcodecs::ZLibChunkCodec codec;
        kxio::QSNScanWriter writer;
        writer.CreateNew(&stream, grid);
        for (uint32_t pr = 0; pr < grid.PatchesPerColumn(); ++pr) {
            for (uint32_t pc = 0; pc < grid.PatchesPerRow(); ++pc) {
                std::vector<float> values[3];
                for (uint32_t r = 0; r < grid.patchHeight; ++r) {
                    for (uint32_t c = 0; c < grid.patchWidth; ++c) {
                        const uint32_t row = pr * grid.patchHeight + r;
                        const uint32_t column = pc * grid.patchWidth + c;
                        const bool inside = row < grid.rows && column < grid.columns;
                        values[0].push_back(inside && pick(0, 3) != 0 ? real(0.5f, 50.0f) : 0.0f);
                        values[1].push_back(grid.rowStartAngle +
                                            (static_cast<float>(row) + real(-0.4f, 0.4f)) *
                                                grid.rowAngularStep);
                        values[2].push_back(grid.columnStartAngle -
                                            (static_cast<float>(column) + real(-0.4f, 0.4f)) *
                                                grid.columnAngularStep);
                    }
                }
                std::vector<kxio::FlatPatchDescriptor> flat;
                for (uint32_t k = 0; k < 3; ++k) {
                    flat.emplace_back(static_cast<kxbase::ComponentType>(k + 1), 4, kxio::RowMajor, 1.0,
                                      &codec);
                    flat.back().data = reinterpret_cast<unsigned char*>(values[k].data());
                    flat.back().size = values[k].size();
                }
                writer.AddPatch({&flat[0], &flat[1], &flat[2]}, pr, pc);
            }
        }
        writer.EndCreation();
        const kxio::QSNScanReader reader(&stream);
        const auto scanBox = reader.GetScanEstimatedBoundingBox();
        for (uint32_t index = 0; index < reader.GetPatchNumber(); ++index) {
            PolarPoint min, max;
            reader.GetBoundingBox(QSNIndex(index), min, max);
            std::vector<XYZPoint> points;
            reader.Get3DPatch(index / grid.PatchesPerRow(), index % grid.PatchesPerRow(), points, true);
            const std::vector<XYZPoint> corners = reader.GetPatchVertices(QSNIndex(index));
            const double halfWidth = (grid.ColumnsInPatch(index % grid.PatchesPerRow()) + 1) *
                                     static_cast<double>(grid.columnAngularStep) / 2;
            const double halfHeight = (grid.RowsInPatch(index / grid.PatchesPerRow()) + 1) *
                                      static_cast<double>(grid.rowAngularStep) / 2;
            const Shares shares = SharesOf(min, max, halfWidth, halfHeight);
            pointCount += points.size();
            for (const XYZPoint& point : points) {
                const PolarPoint polar(point);
                EXPECT_GE(polar.range, min.range * (1 - 1e-6f));
                EXPECT_LE(polar.range, max.range * (1 + 1e-6f));
                EXPECT_GE(polar.vertical, min.vertical - 2e-6f);
                EXPECT_LE(polar.vertical, max.vertical + 2e-6f);
                const float turn = std::remainder(polar.horizontal - min.horizontal, 2 * kPi);
                EXPECT_LE(turn, 4e-6f);
                EXPECT_GE(turn, max.horizontal - min.horizontal - 4e-6f);
                ExpectEnclosed(corners, point, shares, static_cast<double>(polar.range));
                EXPECT_GE(point.x, scanBox.min.x - 1e-4f);
                EXPECT_LE(point.x, scanBox.max.x + 1e-4f);
                EXPECT_GE(point.y, scanBox.min.y - 1e-4f);
                EXPECT_LE(point.y, scanBox.max.y + 1e-4f);
                EXPECT_GE(point.z, scanBox.min.z - 1e-4f);
                EXPECT_LE(point.z, scanBox.max.z + 1e-4f);
            }
        }
    }
    EXPECT_GT(pointCount, 3000U);
}

}  // namespace
