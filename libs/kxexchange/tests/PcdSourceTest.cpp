// SPDX-License-Identifier: MIT
// PCD in, and the way its data are packed.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "Lzf.h"
#include "PointFiles.h"

namespace kxexchange::testing {
namespace {

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

}  // namespace
}  // namespace kxexchange::testing
