// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>

#include "PointFiles.h"

namespace kxexchange::testing {
namespace {

const std::string kPlyVertex =
    "element vertex 3\nproperty float x\nproperty float y\nproperty double z\nproperty float intensity\n"
    "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty short nx\n";

std::string BinaryPly(bool bigEndian, const std::string& extra = "", const std::string& tail = "") {
    std::string ply = std::string("ply\nformat binary_") + (bigEndian ? "big" : "little") + "_endian 1.0\n" +
                      extra + kPlyVertex + tail + "end_header\n";
    const float values[3][4] = {{1.5F, -2.25F, 3, 0.5F}, {4, 5, 6, 0.25F}, {7, 8, 9, 1}};
    for (int i = 0; i < 3; ++i) {
        PutFloat(ply, values[i][0], bigEndian);
        PutFloat(ply, values[i][1], bigEndian);
        PutDouble(ply, static_cast<double>(values[i][2]) + 1e-9, bigEndian);
        PutFloat(ply, values[i][3], bigEndian);
        for (int channel = 0; channel < 3; ++channel)
            ply += static_cast<char>(10 * i + channel);
        Put<uint16_t>(ply, 0x1234, bigEndian);
    }
    return ply;
}

void ExpectPlyPoints(const std::vector<Cell>& points) {
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[0].x, 1.5);
    EXPECT_EQ(points[0].y, -2.25);
    EXPECT_EQ(points[0].z, 3 + 1e-9);
    EXPECT_EQ(points[1].intensity, 0.25);
    EXPECT_EQ(points[2].red, 20);
    EXPECT_EQ(points[2].green, 21);
    EXPECT_EQ(points[2].blue, 22);
    EXPECT_TRUE(points[2].valid);
}

TEST(PlySource, BinaryOfBothByteOrdersAndTextSayTheSame) {
    for (const bool bigEndian : {false, true}) {
        const auto source = SourceOf(BinaryPly(bigEndian), "a.ply");
        const ScanDescription description = source->OpenScan(0);
        EXPECT_EQ(description.points, 3u);
        EXPECT_TRUE(description.intensity.present);
        EXPECT_TRUE(description.color.present);
        EXPECT_EQ(description.colorBits, 8);
        ASSERT_EQ(description.unheld.size(), 1u);
        EXPECT_EQ(description.unheld[0].field, "nx");
        ExpectPlyPoints(ReadPoints(*source));
        ExpectPlyPoints(ReadPoints(*source));  // a second pass
    }
    const std::string text =
        "ply\r\nformat ascii 1.0\r\ncomment of any words\r\n" + kPlyVertex +
        "end_header\n1.5 -2.25 3.000000001 0.5 0 1 2 7\n4 5 6 .25 10 11 12 -7\n\t7 8 9 1 20 21 22 0";
    const auto source = SourceOf(text, "a.ply");
    ExpectPlyPoints(ReadPoints(*source));
    EXPECT_EQ(source->ScanCount(), 1u);
    EXPECT_EQ(source->FormatName(), "PLY");
}

TEST(PlySource, IsToldByItsFirstBytesToo) {
    const auto source = SourceOf(BinaryPly(false), "no-ending");
    EXPECT_EQ(source->FormatName(), "PLY");
}

TEST(PlySource, VerticesWithoutFiniteCoordinatesAreLeftOut) {
    const auto source = SourceOf(
        "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
        "end_header\nnan nan nan\n1 2 3\n1 -inf 3\n",
        "a.ply");
    EXPECT_EQ(ReadPoints(*source).size(), 1u);
}

TEST(PlySource, ElementsInFrontOfTheVerticesArePassedOver) {
    std::string ply =
        "ply\nformat binary_little_endian 1.0\nelement camera 2\nproperty float f\nelement face 2\n"
        "property list uchar int vertex_indices\nproperty uchar flag\nelement vertex 1\n"
        "property float x\nproperty float y\nproperty float z\nend_header\n";
    PutFloat(ply, 1);
    PutFloat(ply, 2);
    for (const int count : {3, 0}) {
        ply += static_cast<char>(count);
        for (int i = 0; i < count; ++i)
            Put<uint32_t>(ply, 0);
        ply += '\1';
    }
    for (const float value : {4.0F, 5.0F, 6.0F})
        PutFloat(ply, value);
    const auto source = SourceOf(ply, "a.ply");
    const auto points = ReadPoints(*source);
    ASSERT_EQ(points.size(), 1u);
    EXPECT_EQ(points[0].z, 6);
}

// A grid of 3 columns and 2 rows with 3 vertices, row by row.
std::string GridPly(bool binary, const std::vector<int>& entries) {
    std::string ply = std::string("ply\nformat ") + (binary ? "binary_little_endian" : "ascii") +
                      " 1.0\nobj_info num_cols 3\nobj_info num_rows 2\nelement vertex 3\nproperty float x\n"
                      "property float y\nproperty float z\nelement range_grid 6\n"
                      "property list uchar int vertex_indices\nend_header\n";
    for (int i = 0; i < 3; ++i) {
        if (!binary) ply += std::to_string(i + 1) + " 0 0\n";
        if (binary) {
            PutFloat(ply, static_cast<float>(i + 1));
            PutFloat(ply, 0);
            PutFloat(ply, 0);
        }
    }
    for (const int entry : entries) {
        if (!binary) ply += entry < 0 ? "0\n" : "1 " + std::to_string(entry) + "\n";
        if (binary) {
            ply += entry < 0 ? '\0' : '\1';
            if (entry >= 0) Put<uint32_t>(ply, static_cast<uint32_t>(entry));
        }
    }
    return ply;
}

TEST(PlySource, ARangeGridMakesAGrid) {
    for (const bool binary : {false, true}) {
        for (const bool inOrder : {true, false}) {
            // Rows: {0, -, 1}, {-, 2, -}; and the same with the vertices in another order.
            const auto source = SourceOf(GridPly(binary, inOrder ? std::vector{0, -1, 1, -1, 2, -1}
                                                                 : std::vector{0, -1, 2, -1, 1, -1}),
                                         "a.ply");
            for (int pass = 0; pass < 2; ++pass) {
                const Scan scan = ReadScan(*source);
                ASSERT_EQ(scan.description.columns, 3u);
                ASSERT_EQ(scan.description.rows, 2u);
                EXPECT_EQ(scan.At(0, 0).x, 1);
                EXPECT_EQ(scan.At(2, 0).x, inOrder ? 2 : 3);
                EXPECT_EQ(scan.At(1, 1).x, inOrder ? 3 : 2);
                EXPECT_FALSE(scan.At(1, 0).valid);
                EXPECT_FALSE(scan.At(0, 1).valid);
                EXPECT_FALSE(scan.At(2, 1).valid);
                EXPECT_TRUE(source->Warnings().empty());
            }
        }
    }
}

TEST(PlySource, VerticesThatTheGridDoesNotNameAreCounted) {
    const auto source = SourceOf(GridPly(true, {0, -1, 1, -1, -1, -1}), "a.ply");
    ReadScan(*source);
    ASSERT_EQ(source->Warnings().size(), 1u);
    EXPECT_EQ(source->Warnings()[0].substr(0, 2), "1 ");
}

TEST(PlySource, AVertexAtTheOriginIsNoReturnInAGridAndAPointWithoutOne) {
    std::string ply = GridPly(false, {0, -1, 1, -1, 2, -1});
    ply.replace(ply.find("\n2 0 0\n"), 7, "\n0 0 0\n");
    const auto source = SourceOf(ply, "a.ply");
    const Scan scan = ReadScan(*source);
    EXPECT_TRUE(scan.At(0, 0).valid);
    EXPECT_FALSE(scan.At(2, 0).valid);
    ASSERT_EQ(source->Warnings().size(), 1u);
    EXPECT_EQ(source->Warnings()[0], "1 points at 0 0 0 count as cells without a return");
    ply.erase(ply.find("obj_info num_cols"), 20);
    const auto points = ReadPoints(*SourceOf(ply, "a.ply"));
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[1].x, 0);
}

TEST(PlySource, ChannelsThatMakeNoColourOfOneDepthAreNamedAsLost) {
    const auto unheld = [](const std::string& properties, const std::string& values) {
        const auto source = SourceOf(
            "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\n"
            "property float y\nproperty float z\n" +
                properties + "end_header\n1 2 3 " + values + "\n",
            "a.ply");
        const ScanDescription description = source->OpenScan(0);
        const auto points = ReadPoints(*source);
        EXPECT_EQ(points.size(), 1u);
        EXPECT_EQ(description.color.present, points[0].red != 0);
        std::string names;
        for (const UnheldFact& fact : description.unheld)
            names += fact.field + " ";
        return names;
    };
    EXPECT_EQ(unheld("property uchar red\nproperty uchar green\n", "7 8"), "red green ");
    EXPECT_EQ(unheld("property uchar red\nproperty ushort green\nproperty uchar blue\n", "7 8 9"),
              "red green blue ");
    EXPECT_EQ(unheld("property float red\nproperty float green\nproperty float blue\n", "1 1 1"),
              "red green blue ");
    EXPECT_EQ(unheld("property uchar red\nproperty uchar green\nproperty uchar blue\n", "7 8 9"), "");
}

TEST(PlySource, RefusesWhatItCannotTrust) {
    ExpectRefused("plx\n", "a.ply", "expected the word ply");
    ExpectRefused("ply\nformat ascii 1.0\nend_header\n", "a.ply", "no element vertex");
    ExpectRefused("ply\nformat ascii 2.0\nend_header\n", "a.ply", "version 1.0");
    ExpectRefused("ply\nformat ascii 1.0\nelement vertex 99999999999999\n", "a.ply", "2^40");
    ExpectRefused("ply\nformat ascii 1.0\nelement vertex 1\nproperty quad x\n", "a.ply", "type 'quad'");
    ExpectRefused("ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nend_header\n1\n", "a.ply",
                  "without x, y and z");
    ExpectRefused(GridPly(true, {0, -1, 1, -1, 7, -1}), "a.ply", "names vertex 7 of 3");
    std::string many = BinaryPly(false);
    many.replace(many.find("vertex 3"), 8, "vertex 4");
    ExpectRefused(many, "a.ply", "more points");
    many.replace(many.find("vertex 4"), 8, "vertex 900000000000");
    ExpectRefused(many, "a.ply", "expected 900000000000 vertices");
    ExpectRefused(
        "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\nproperty float z\n"
        "end_header\n1 2 three\n",
        "a.ply", "expected a number");
    ExpectRefused(
        "ply\nformat ascii 1.0\nelement vertex 1\nproperty double x\nproperty float y\nproperty float z\n"
        "end_header\n1e13 2 3\n",
        "a.ply", "at most 1e12");
}

TEST(PlySource, AnyDamageIsRefusedOrRead) {
    ExpectTotal(BinaryPly(true), "a.ply");
    ExpectTotal(GridPly(true, {0, -1, 2, -1, 1, -1}), "a.ply");
    ExpectTotal(GridPly(false, {0, -1, 1, -1, 2, -1}), "a.ply");
}

TEST(PlySource, WhatTheSinkWritesIsRead) {
    const auto source = SourceOf(PtxText(MakeSweep({}), 12, 9, true));
    TempFolder folder;
    const auto out = folder.Path() / "a.ply";
    ScanFileExport file(out, *FindSinkFormat("PLY"), {});
    file.Add(*source, 0);
    file.Commit();
    const auto points = ReadPoints(*OpenScanSource(out));
    const Scan scan = ReadScan(*source);
    size_t at = 0;
    for (const Cell& cell : scan.cells) {
        if (!cell.valid) continue;
        EXPECT_NEAR(points[at].x, cell.x, 1e-5);
        EXPECT_EQ(points[at].red, cell.red);
        ++at;
    }
    EXPECT_EQ(at, points.size());
}

}  // namespace
}  // namespace kxexchange::testing
