// SPDX-License-Identifier: MIT
// PTX, XYZ and PLY, byte by byte.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "SmallExport.h"
#include "kxio/QSNScanReader.h"

namespace kxexchange::testing {
namespace {

TEST(ExportPtx, AScanThatSaysNothingOfItsOriginHasItsColumnsAsTheyAreAndRowsFromBelow) {
    OneScan scan;
    ExportReport report;
    const std::string text = Exported(scan, "PTX", {}, &report);
    // Column 0: nadir nothing, horizon 2 m along x, zenith 1 m. Column 1: nadir 4 m, horizon 3 m along y,
    // zenith nothing. No intensity: a half.
    EXPECT_EQ(text, kIdentityHeader +
                        "0 0 0 0.5\n"
                        "2.000000 0.000000 0.000000 0.500000000\n"
                        "0.000000 0.000000 1.000000 0.500000000\n"
                        "0.000000 0.000000 -4.000000 0.500000000\n"
                        "0.000000 3.000000 0.000000 0.500000000\n"
                        "0 0 0 0.5\n");
    EXPECT_EQ(report.columns, 2U);
    EXPECT_EQ(report.rows, 3U);
    EXPECT_EQ(report.cells, 6U);
    EXPECT_EQ(report.points, 4U);
    EXPECT_FALSE(report.intensity);
    EXPECT_FALSE(report.color);
    EXPECT_FALSE(report.registrationApplied);
    EXPECT_TRUE(report.warnings.empty());
}

TEST(ExportPtx, IntensityAndColourFollowTheCoordinates) {
    OneScan scan;
    scan.luminance16 = {65535, 1, 0, 13107, 2, 32768};
    scan.luminance8 = {9, 9, 9, 9, 9, 9};  // the finer one counts
    scan.color = {{1, 2, 3}, {9, 9, 9}, {255, 0, 10}, {4, 5, 6}, {9, 9, 9}, {7, 8, 9}};
    const std::string text = Exported(scan, "PTX");
    EXPECT_EQ(text.substr(kIdentityHeader.size()),
              "0 0 0 0 0 0 0\n"
              "2.000000 0.000000 0.000000 0.000000000 255 0 10\n"
              "0.000000 0.000000 1.000000 1.000000000 1 2 3\n"
              "0.000000 0.000000 -4.000000 0.500007630 7 8 9\n"
              "0.000000 3.000000 0.000000 0.200000000 4 5 6\n"
              "0 0 0 0 0 0 0\n");
    ExportOptions options;
    options.color = options.intensity = false;
    options.sink.decimals = 1;
    EXPECT_EQ(Exported(scan, "PTX", options).substr(kIdentityHeader.size(), 45),
              "0 0 0 0.5\n2.0 0.0 0.0 0.500000000\n0.0 0.0 1.0");
}

TEST(ExportPtx, EightBitIntensityStandsInForSixteen) {
    OneScan scan;
    scan.luminance8 = {255, 0, 51, 0, 0, 128};
    const std::string text = Exported(scan, "PTX");
    EXPECT_NE(text.find("2.000000 0.000000 0.000000 0.200000000\n"), std::string::npos);
    EXPECT_NE(text.find("0.000000 0.000000 1.000000 1.000000000\n"), std::string::npos);
    EXPECT_NE(text.find("0.000000 0.000000 -4.000000 0.501960784\n"), std::string::npos);
}

kxbase::RegistrationInformation QuarterTurn() {
    // x goes to y, y to -x, then 100, 200, 300.
    const double values[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 100, 200.25, 1.0 / 3};
    return kxbase::RegistrationInformation::FromValues(values);
}

TEST(ExportPtx, TheMatrixCarriesTheRegistrationOrThePointsDo) {
    OneScan scan;
    scan.registration = QuarterTurn();
    const std::string kept = Exported(scan, "PTX");
    EXPECT_EQ(kept.substr(0, kept.find("0 0 0 0.5")),
              "2\n3\n100 200.25 0.3333333333333333\n0 1 0\n-1 0 0\n0 0 1\n"
              "0 1 0 0\n-1 0 0 0\n0 0 1 0\n100 200.25 0.3333333333333333 1\n");
    ExportOptions options;
    options.registration = RegistrationUse::Apply;
    ExportReport report;
    const std::string applied = Exported(scan, "PTX", options, &report);
    EXPECT_TRUE(report.registrationApplied);
    EXPECT_EQ(applied, kIdentityHeader +
                           "0 0 0 0.5\n"
                           "100.000000 202.250000 0.333333 0.500000000\n"
                           "100.000000 200.250000 1.333333 0.500000000\n"
                           "100.000000 200.250000 -3.666667 0.500000000\n"
                           "97.000000 200.250000 0.333333 0.500000000\n"
                           "0 0 0 0.5\n");
}

TEST(ExportPtx, AReturnThatRoundsToTheOriginStaysAReturn) {
    OneScan scan;
    scan.range = {0.2F, 0, 0.3F, 3000, 0, 4000};  // fractions of a millimetre, at two decimals of a metre
    ExportOptions options;
    options.sink.decimals = 2;
    const std::string text = Exported(scan, "PTX", options);
    EXPECT_EQ(text.substr(kIdentityHeader.size(), 69),
              "0 0 0 0.5\n0.01 0.00 0.00 0.500000000\n0.01 0.00 0.00 0.500000000\n0.00 ");
}

TEST(ExportXyz, OnlyPointsAreWrittenWithWhatTheScanHas) {
    OneScan scan;
    scan.registration = QuarterTurn();
    ExportReport report;
    EXPECT_EQ(Exported(scan, "XYZ", {}, &report),
              "100.000000 202.250000 0.333333\n100.000000 200.250000 1.333333\n"
              "100.000000 200.250000 -3.666667\n97.000000 200.250000 0.333333\n");
    EXPECT_TRUE(report.registrationApplied);
    EXPECT_EQ(report.points, 4U);
    scan.luminance16 = {65535, 1, 0, 13107, 2, 32768};
    scan.color = {{1, 2, 3}, {9, 9, 9}, {255, 0, 10}, {4, 5, 6}, {9, 9, 9}, {7, 8, 9}};
    ExportOptions options;
    options.registration = RegistrationUse::Keep;
    options.sink.decimals = 3;
    EXPECT_EQ(Exported(scan, "XYZ", options),
              "2.000 0.000 0.000 0.000000000 255 0 10\n0.000 0.000 1.000 1.000000000 1 2 3\n"
              "0.000 0.000 -4.000 0.500007630 7 8 9\n0.000 3.000 0.000 0.200000000 4 5 6\n");
}

template <class Bits>
Bits TakeBits(const std::string& bytes, size_t& at) {
    Bits bits = 0;
    for (size_t i = 0; i < sizeof bits; ++i) {
        bits = static_cast<Bits>(bits | static_cast<Bits>(static_cast<unsigned char>(bytes.at(at++)))
                                            << (8 * i));
    }
    return bits;
}
double TakeFloat(const std::string& bytes, size_t& at) {
    return static_cast<double>(std::bit_cast<float>(TakeBits<uint32_t>(bytes, at)));
}
double TakeDouble(const std::string& bytes, size_t& at) {
    return std::bit_cast<double>(TakeBits<uint64_t>(bytes, at));
}

TEST(ExportPly, VerticesAreLittleEndianRecords) {
    OneScan scan;
    scan.luminance16 = {65535, 1, 0, 13107, 2, 32768};
    scan.color = {{1, 2, 3}, {9, 9, 9}, {255, 0, 10}, {4, 5, 6}, {9, 9, 9}, {7, 8, 9}};
    const std::string bytes = Exported(scan, "PLY");
    const std::string header =
        "ply\nformat binary_little_endian 1.0\ncomment written by kxio...................\nelement vertex 4\n"
        "property float x\nproperty float y\nproperty float z\nproperty float intensity\n"
        "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n";
    ASSERT_EQ(bytes.substr(0, header.size()), header);
    ASSERT_EQ(bytes.size(), header.size() + 4 * 19);
    size_t at = header.size();
    const double expected[4][4] = {{2, 0, 0, 0}, {0, 0, 1, 1}, {0, 0, -4, 32768 / 65535.0}, {0, 3, 0, 0.2}};
    const int colors[4][3] = {{255, 0, 10}, {1, 2, 3}, {7, 8, 9}, {4, 5, 6}};
    for (size_t i = 0; i < 4; ++i) {
        for (const double value : expected[i])
            EXPECT_NEAR(TakeFloat(bytes, at), value, 5e-7);
        for (const int value : colors[i])
            EXPECT_EQ(TakeBits<uint8_t>(bytes, at), value);
    }
}

TEST(ExportPly, CoordinatesFarOutAreDoubles) {
    OneScan scan;
    const double values[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 637012.2412, 849028.31, 431.66};
    scan.registration = kxbase::RegistrationInformation::FromValues(values);
    const std::string header =
        "ply\nformat binary_little_endian 1.0\ncomment written by kxio...................\nelement vertex 4\n"
        "property double x\nproperty double y\nproperty double z\nend_header\n";
    const std::string bytes = Exported(scan, "PLY");
    ASSERT_EQ(bytes.substr(0, header.size()), header);
    ASSERT_EQ(bytes.size(), header.size() + 4 * 24);
    size_t at = header.size();
    EXPECT_NEAR(TakeDouble(bytes, at), 637014.2412, 1e-6);
    EXPECT_NEAR(TakeDouble(bytes, at), 849028.31, 1e-6);
    EXPECT_NEAR(TakeDouble(bytes, at), 431.66, 1e-6);
    // In the instrument's frame, or by wish, they are floats; far ranges count as well.
    ExportOptions options;
    options.registration = RegistrationUse::Keep;
    EXPECT_NE(Exported(scan, "PLY", options).find("property float x"), std::string::npos);
    options.sink.coordinates = NumberKind::Double;
    EXPECT_NE(Exported(scan, "PLY", options).find("property double x"), std::string::npos);
    options = {};
    options.sink.coordinates = NumberKind::Single;
    EXPECT_NE(Exported(scan, "PLY", options).find("property float x"), std::string::npos);
    scan.registration = {};
    scan.range[0] = 2e6F;
    EXPECT_NE(Exported(scan, "PLY").find("property double x"), std::string::npos);
}

TEST(ExportPly, AScanWithoutPointsHasNoVertices) {
    OneScan scan;
    scan.range.assign(6, 0.0F);
    const std::string bytes = Exported(scan, "PLY");
    EXPECT_NE(bytes.find("element vertex 0\n"), std::string::npos);
    EXPECT_EQ(bytes.substr(bytes.size() - 11), "end_header\n");
}

}  // namespace
}  // namespace kxexchange::testing
