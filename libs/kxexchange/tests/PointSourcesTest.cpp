// SPDX-License-Identifier: MIT
// PLY, PCD, XYZ and PTS in.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "GridGather.h"
#include "Lzf.h"
#include "Quaternion.h"
#include "RowStore.h"
#include "TestTools.h"

namespace kxexchange::testing {

namespace {

template <class Bits>
void Put(std::string& out, Bits bits, bool bigEndian = false) {
    for (size_t i = 0; i < sizeof bits; ++i)
        out += static_cast<char>(bits >> (8 * (bigEndian ? sizeof bits - 1 - i : i)) & 0xff);
}
void PutFloat(std::string& out, float value, bool bigEndian = false) {
    Put(out, std::bit_cast<uint32_t>(value), bigEndian);
}
void PutDouble(std::string& out, double value, bool bigEndian = false) {
    Put(out, std::bit_cast<uint64_t>(value), bigEndian);
}

// All points of a source without grid.
std::vector<Cell> ReadPoints(ScanSource& source, uint64_t index = 0) {
    const ScanDescription description = source.OpenScan(index);
    EXPECT_FALSE(description.HasGrid());
    std::vector<Cell> all, cells;
    while (source.ReadColumns(1, cells) != 0)
        all.insert(all.end(), cells.begin(), cells.end());
    return all;
}

void ExpectRefused(const std::string& bytes, const std::string& name, const std::string& words) {
    try {
        const auto source = SourceOf(bytes, name);
        source->OpenScan(0);
        std::vector<Cell> cells;
        while (source->ReadColumns(16, cells) != 0) {
        }
        ADD_FAILURE() << "not refused: " << words;
    } catch (const SourceFormatException& e) {
        EXPECT_NE(e.Context().detail.find(words), std::string::npos) << e.Context().detail;
        EXPECT_TRUE(e.Context().offset.has_value());
        EXPECT_EQ(e.Context().file, name);
    }
}

// Cut anywhere and with any byte changed: refused or read, nothing else.
void ExpectTotal(const std::string& bytes, const std::string& name) {
    const auto consume = [&](const std::string& damaged) {
        try {
            const auto source = SourceOf(damaged, name);
            source->OpenScan(0);
            std::vector<Cell> cells;
            uint64_t rounds = 0;
            while (source->ReadColumns(16, cells) != 0)
                ASSERT_LT(++rounds, 100000u);
        } catch (const SourceFormatException& e) {
            EXPECT_FALSE(e.Context().detail.empty());
        }
    };
    for (size_t length = 0; length < bytes.size(); ++length)
        consume(bytes.substr(0, length));
    for (size_t i = 0; i < bytes.size(); ++i) {
        for (const int change : {1, 0x80, 0x0f}) {
            std::string damaged = bytes;
            damaged[i] = static_cast<char>(damaged[i] ^ change);
            consume(damaged);
        }
    }
}

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

std::string PcdHeader(const std::string& data, int width = 2, int height = 2) {
    return "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\nFIELDS x y z intensity rgb _\n"
           "SIZE 4 4 4 2 4 1\nTYPE F F F U U U\nCOUNT 1 1 1 1 1 3\nWIDTH " +
           std::to_string(width) + "\nHEIGHT " + std::to_string(height) +
           "\nVIEWPOINT 10 20 30 0.7071067811865476 0 0 0.7071067811865476\nPOINTS " +
           std::to_string(width * height) + "\nDATA " + data + "\n";
}

struct PcdPoint {
    float x, y, z;
    uint16_t intensity;
    uint32_t rgb;
};
const PcdPoint kPcdPoints[] = {
    {1, 2, 3, 40, 0x010203}, {4, 5, 6, 50, 0xfffefd}, {NAN, NAN, NAN, 0, 0}, {7, 8, 9, 60, 7}};

std::string BinaryPcd(int width = 2, int height = 2) {
    std::string pcd = PcdHeader("binary", width, height);
    for (const PcdPoint& point : kPcdPoints) {
        for (const float value : {point.x, point.y, point.z})
            PutFloat(pcd, value);
        Put(pcd, point.intensity);
        Put(pcd, point.rgb);
        pcd += "abc";
    }
    return pcd;
}

std::string Fields() {
    std::string planes;
    for (const PcdPoint& point : kPcdPoints)
        PutFloat(planes, point.x);
    for (const PcdPoint& point : kPcdPoints)
        PutFloat(planes, point.y);
    for (const PcdPoint& point : kPcdPoints)
        PutFloat(planes, point.z);
    for (const PcdPoint& point : kPcdPoints)
        Put(planes, point.intensity);
    for (const PcdPoint& point : kPcdPoints)
        Put(planes, point.rgb);
    return planes + "abcabcabcabc";
}

// Literals, and a copy for the end, which repeats itself.
std::string PackedPcd() {
    const std::string planes = Fields();
    std::string packed;
    const size_t literal = planes.size() - 9;
    for (size_t at = 0; at < literal; at += 32) {
        const std::string piece = planes.substr(at, std::min<size_t>(32, literal - at));
        packed += static_cast<char>(piece.size() - 1);
        packed += piece;
    }
    packed += static_cast<char>(7 << 5);  // copy of 7 + 0 + 2 bytes
    packed += '\0';
    packed += '\2';  // from 3 bytes back
    std::string pcd = PcdHeader("binary_compressed");
    Put(pcd, static_cast<uint32_t>(packed.size()));
    Put(pcd, static_cast<uint32_t>(planes.size()));
    return pcd + packed;
}

const std::string kTextPcd = PcdHeader("ascii") +
                             "1 2 3 40 66051 97 98 99\n4 5 6 50 16776957 97 98 99\nnan nan nan 0 0 97 98 99\n"
                             "7 8 9 60 7 97 98 99\n";

void ExpectPcd(const std::string& bytes) {
    const auto source = SourceOf(bytes, "a.pcd");
    for (int pass = 0; pass < 2; ++pass) {
        const Scan scan = ReadScan(*source);
        ASSERT_EQ(scan.description.columns, 2u);
        ASSERT_EQ(scan.description.rows, 2u);
        EXPECT_EQ(scan.At(0, 0).x, 1);
        EXPECT_EQ(scan.At(1, 0).z, 6);
        EXPECT_FALSE(scan.At(0, 1).valid);
        EXPECT_EQ(scan.At(0, 1).x, 0);
        EXPECT_EQ(scan.At(1, 1).intensity, 60);
        EXPECT_EQ(scan.At(0, 0).red, 1);
        EXPECT_EQ(scan.At(0, 0).green, 2);
        EXPECT_EQ(scan.At(0, 0).blue, 3);
        // A quarter turn about z: x goes to y.
        const double* pose = scan.description.pose.Values();
        EXPECT_NEAR(pose[0], 0, 1e-15);
        EXPECT_NEAR(pose[1], 1, 1e-15);
        EXPECT_NEAR(pose[3], -1, 1e-15);
        EXPECT_EQ(pose[9], 10);
        EXPECT_EQ(pose[11], 30);
    }
}

TEST(PcdSource, TextBinaryAndCompressedSayTheSame) {
    ExpectPcd(kTextPcd);
    ExpectPcd(BinaryPcd());
    ExpectPcd(PackedPcd());
}

TEST(PcdSource, APointAtTheOriginIsNoReturnInAGrid) {
    std::string text = kTextPcd;
    text.replace(text.find("\n4 5 6"), 6, "\n0 0 0");
    const auto source = SourceOf(text, "a.pcd");
    const Scan scan = ReadScan(*source);
    EXPECT_FALSE(scan.At(1, 0).valid);
    EXPECT_TRUE(scan.At(1, 1).valid);
    ASSERT_EQ(source->Warnings().size(), 1u);
    EXPECT_EQ(source->Warnings()[0], "1 points at 0 0 0 count as cells without a return");
}

TEST(PcdSource, ACloudOfOneRowHasNoGrid) {
    const auto source = SourceOf(BinaryPcd(4, 1), "a.pcd");
    const auto points = ReadPoints(*source);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_EQ(points[2].x, 7);
}

TEST(PcdSource, AViewpointThatIsNoneIsLeftOutWithAWarning) {
    std::string pcd = BinaryPcd();
    pcd.replace(pcd.find("0.7071067811865476 0 0 0.7071067811865476"), 41, "0 0 0 0.3");
    const auto source = SourceOf(pcd, "a.pcd");
    EXPECT_EQ(ReadScan(*source).description.pose, kxbase::RegistrationInformation());
    EXPECT_EQ(source->Warnings().size(), 1u);
}

TEST(PcdSource, RefusesWhatItCannotTrust) {
    ExpectRefused("VERSION 0.7\n", "a.pcd", "begins with DATA");
    ExpectRefused("NONSENSE\n", "a.pcd", "does not have");
    ExpectRefused(BinaryPcd().substr(0, BinaryPcd().size() - 1), "a.pcd", "expected 4 points");
    std::string pcd = BinaryPcd();
    pcd.replace(pcd.find("POINTS 4"), 8, "POINTS 5");
    ExpectRefused(pcd, "a.pcd", "expected WIDTH x HEIGHT");
    pcd = PackedPcd();
    pcd.replace(pcd.find("WIDTH 2"), 7, "WIDTH 3");
    pcd.replace(pcd.find("POINTS 4"), 8, "POINTS 6");
    ExpectRefused(pcd, "a.pcd", "expected 6 points of 21 bytes");
    pcd = PackedPcd();
    pcd[pcd.size() - 1] = '\x05';  // still inside what came before
    EXPECT_NO_THROW(ReadScan(*SourceOf(pcd, "a.pcd")));
    pcd[pcd.size() - 3] = static_cast<char>(7 << 5 | 31);
    ExpectRefused(pcd, "a.pcd", "damaged");
    pcd = PcdHeader("binary_compressed", 30000, 30000);
    Put<uint32_t>(pcd, 4);
    Put<uint32_t>(pcd, 0xffffffff);
    ExpectRefused(pcd + "abcd", "a.pcd", "packed bytes");
}

TEST(PcdSource, AnyDamageIsRefusedOrRead) {
    ExpectTotal(BinaryPcd(), "a.pcd");
    ExpectTotal(PackedPcd(), "a.pcd");
    ExpectTotal(kTextPcd, "a.pcd");
}

TEST(Lzf, CopiesMayRunIntoWhatTheyWrite) {
    const std::string packed{'\0', 'a', static_cast<char>(7 << 5), '\x5a', '\0'};  // 'a', then 99 copies
    std::string out;
    size_t at = 0;
    const bool good = UnpackLzf(
        [&](std::span<unsigned char> piece) {
            if (at == packed.size()) return size_t{0};
            piece[0] = static_cast<unsigned char>(packed[at++]);
            return size_t{1};
        },
        [&](std::span<const unsigned char> piece) { out.append(piece.begin(), piece.end()); }, 100);
    EXPECT_TRUE(good);
    EXPECT_EQ(out, std::string(100, 'a'));
}

TEST(Lzf, LongDataIsUnpackedInPieces) {
    // A literal run, then copies from 8,192 back or less, against a plain decoder.
    std::mt19937 random(9);
    std::string packed, expected;
    while (expected.size() < 3000000) {
        if (expected.size() < 9000 || random() % 4 == 0) {
            const size_t count = random() % 32 + 1;
            packed += static_cast<char>(count - 1);
            for (size_t i = 0; i < count; ++i) {
                packed += static_cast<char>(random());
                expected += packed.back();
            }
        } else {
            const size_t back = random() % 8192 + 1, length = random() % 262 + 3;
            const size_t code = length - 2;
            packed += static_cast<char>(std::min<size_t>(code, 7) << 5 | (back - 1) >> 8);
            if (code >= 7) packed += static_cast<char>(code - 7);
            packed += static_cast<char>((back - 1) & 255);
            for (size_t i = 0; i < length; ++i)
                expected += expected[expected.size() - back];
        }
    }
    std::string out;
    size_t at = 0;
    const auto read = [&](std::span<unsigned char> piece) {
        const size_t count = std::min(piece.size(), packed.size() - at);
        std::copy_n(packed.begin() + static_cast<std::ptrdiff_t>(at), count, piece.begin());
        at += count;
        return count;
    };
    EXPECT_TRUE(UnpackLzf(
        read, [&](std::span<const unsigned char> piece) { out.append(piece.begin(), piece.end()); },
        expected.size()));
    EXPECT_EQ(out, expected);
    at = 0;
    EXPECT_FALSE(UnpackLzf(
        read, [](std::span<const unsigned char>) {}, expected.size() - 1));
    at = 0;
    EXPECT_FALSE(UnpackLzf(
        read, [](std::span<const unsigned char>) {}, expected.size() + 1));
}

TEST(XyzSource, TheNumberOfValuesTellsWhatThePointsHave) {
    struct Form {
        const char* line;
        bool intensity, color;
    };
    for (const Form& form : {Form{"1 2 3", false, false}, Form{"1 2 3 0.5", true, false},
                             Form{"1 2 3 9 8 7", false, true}, Form{"1\t2  3 -4 9 8 7\r", true, true}}) {
        const auto source =
            SourceOf(std::string("# a remark\n\n") + form.line + "\n" + form.line + "\n\n", "a.xyz");
        const ScanDescription description = source->OpenScan(0);
        EXPECT_EQ(description.intensity.present, form.intensity);
        EXPECT_EQ(description.color.present, form.color);
        const auto points = ReadPoints(*source);
        ASSERT_EQ(points.size(), 2u) << form.line;
        EXPECT_EQ(points[1].y, 2);
        EXPECT_EQ(points[1].blue, form.color ? 7 : 0);
        EXPECT_EQ(source->ScanCount(), 1u);
    }
}

TEST(XyzSource, RefusesWhatIsNoPoint) {
    ExpectRefused("1 2\n", "a.xyz", "3, 4, 6 or 7 values");
    ExpectRefused("1 2 3\n1 2 x\n", "a.xyz", "a number");
    ExpectRefused("1 2 3\n1 2 3 4\n", "a.xyz", "no more than 3 values");
    ExpectRefused("1 2 3\n\n1 2 3\n", "a.xyz", "3 values");
    ExpectRefused("1 2 3 4 5 256\n", "a.xyz", "0 to 255");
    ExpectRefused("", "a.xyz", "a point");
    ExpectTotal("1 2 3 0.5 6 7 8\n4 5 6 7 8 9 0\n", "a.xyz");
}

TEST(PtsSource, BlocksAreScans) {
    const auto source = SourceOf("2\n1 2 3 -2048 1 2 3\n4 5 6 2047 4 5 6\n1\n7 8 9\n\n0\n", "a.pts");
    EXPECT_EQ(source->ScanCount(), 3u);
    EXPECT_EQ(ReadPoints(*source, 0).size(), 2u);
    EXPECT_EQ(ReadPoints(*source, 0)[0].intensity, -2048);
    EXPECT_EQ(ReadPoints(*source, 1)[0].z, 9);
    EXPECT_TRUE(ReadPoints(*source, 2).empty());
    EXPECT_THROW(source->OpenScan(3), kxbase::KXIndexOutOfBoundsException);
    ExpectRefused("2\n1 2 3\n", "a.pts", "1 more points");
    ExpectRefused("two\n1 2 3\n", "a.pts", "number of points");
    ExpectTotal("2\n1 2 3 -2048 1 2 3\n4 5 6 2047 4 5 6\n1\n7 8 9\n", "a.pts");
}

TEST(GridGather, ColumnsComeBackFromMemoryAndFromAFileAlike) {
    for (const uint64_t limit : {uint64_t{1} << 20, uint64_t{400}}) {
        GridGather gather(50, 30, {}, limit);
        std::vector<uint64_t> order(50 * 30);
        for (size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::shuffle(order.begin(), order.end(), std::mt19937(3));
        for (int round = 0; round < 8; ++round) {
            for (const uint64_t at : order) {
                if (at % 5 == 0) continue;
                Cell cell;
                cell.valid = true;
                cell.x = static_cast<double>(at + static_cast<uint64_t>(round) * 100000);
                gather.Put(at / 30, at % 30, cell);
            }
        }
        EXPECT_EQ(gather.UsesFile(), limit == 400);
        for (int pass = 0; pass < 2; ++pass) {
            gather.Rewind();
            std::vector<Cell> all, cells;
            while (gather.Read(7, cells) != 0)
                all.insert(all.end(), cells.begin(), cells.end());
            ASSERT_EQ(all.size(), order.size());
            for (size_t i = 0; i < all.size(); ++i) {
                EXPECT_EQ(all[i].valid, i % 5 != 0);
                EXPECT_EQ(all[i].x, i % 5 != 0 ? static_cast<double>(i) : 0.0);  // the first of the eight
            }
            EXPECT_EQ(gather.Collisions(), 7u * 1200);
        }
    }
}

TEST(RowStore, ColumnsBecomeRowsInMemoryAndThroughAFileAlike) {
    for (const uint64_t limit : {uint64_t{1} << 20, uint64_t{500}}) {
        RowStore store(37, 11, 3, {}, limit);
        for (int column = 0; column < 37; ++column) {
            std::vector<unsigned char> records;
            for (int row = 0; row < 11; ++row)
                records.insert(records.end(),
                               {static_cast<unsigned char>(column), static_cast<unsigned char>(row), 9});
            store.AddColumn(records);
        }
        EXPECT_EQ(store.UsesFile(), limit == 500);
        std::vector<unsigned char> row;
        for (const uint64_t wanted : {uint64_t{10}, uint64_t{0}, uint64_t{4}}) {
            store.ReadRow(wanted, row);
            ASSERT_EQ(row.size(), 111u);
            for (size_t column = 0; column < 37; ++column) {
                EXPECT_EQ(row[3 * column], column);
                EXPECT_EQ(row[3 * column + 1], wanted);
                EXPECT_EQ(row[3 * column + 2], 9);
            }
        }
    }
}

TEST(Quaternion, ComesBackForEveryGreatestComponent) {
    for (const Quaternion& q :
         {Quaternion{1, 0, 0, 0}, Quaternion{0.1, 0.9, 0.3, 0.2}, Quaternion{0.2, 0.1, -0.9, 0.3},
          Quaternion{0.05, -0.2, 0.3, 0.9}, Quaternion{0, 0, 0, 1}}) {
        const auto pose = PoseOf({1, 2, 3}, q);
        const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
        const Quaternion again = QuaternionOf(pose);
        for (size_t i = 0; i < 4; ++i)
            EXPECT_NEAR(again[i], q[i] / length, 1e-15);
        EXPECT_LT(RotationError(pose), 1e-15);
    }
}

}  // namespace

}  // namespace kxexchange::testing
